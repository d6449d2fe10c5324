#include <cstdlib>
#include <exception>

// What the C++ runtime calls when an exception finds no handler. Its own prints the exception's
// name on standard error, which the processes that load this library do not have, and brings a
// demangler of fifty kilobytes for it.
#ifdef __GLIBCXX__
namespace __gnu_cxx {
void __verbose_terminate_handler() {
    std::abort();
}
}  // namespace __gnu_cxx
#endif
