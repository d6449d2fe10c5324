#include <exception>

// What GCC's library takes when the DLL is loaded, 71 KiB, for exceptions that are thrown when
// there is no memory. It gives that back only when asked to, and so each load and unload would cost
// as much.
#ifdef __GLIBCXX__
namespace __gnu_cxx {
void __freeres() noexcept;
}  // namespace __gnu_cxx

namespace {

// Behind all other destructors: what they throw may need it.
[[gnu::destructor(101)]] void giveBack() {
    __gnu_cxx::__freeres();
}

}  // namespace
#endif
