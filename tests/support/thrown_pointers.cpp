#include "support/thrown_pointers.h"

#include <cxxabi.h>

#include <atomic>
#include <typeinfo>

// Names that the compiler's run-time libraries give; the first is there under a leak checker only.
extern "C" __attribute__((weak)) void __lsan_ignore_object(const void* object);
extern "C" [[noreturn]] void __real___cxa_throw(void* thrown, std::type_info* type,
                                                void (*destroy)(void*));
extern "C" [[noreturn]] void __wrap___cxa_throw(void* thrown, std::type_info* type,
                                                void (*destroy)(void*));

namespace KelmoraID::testing {
namespace {

std::atomic<int> pointers = 0;

}  // namespace

void (*onThrownPointer)(void* error) = nullptr;

int thrownPointers() {
    return pointers;
}

}  // namespace KelmoraID::testing

// Stands in every throw of the program (the linker's --wrap).
extern "C" void __wrap___cxa_throw(void* thrown, std::type_info* type, void (*destroy)(void*)) {
    if (dynamic_cast<const abi::__pointer_type_info*>(type) != nullptr) {
        ++KelmoraID::testing::pointers;
        if (KelmoraID::testing::onThrownPointer != nullptr) {
            KelmoraID::testing::onThrownPointer(*static_cast<void**>(thrown));
        }
        if (__lsan_ignore_object != nullptr) __lsan_ignore_object(*static_cast<void**>(thrown));
    }
    __real___cxa_throw(thrown, type, destroy);
}
