#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "driver_under_test.h"

namespace boundary {
namespace {

void* load(const char* path) {
    void* const module = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        std::printf("%s\n", dlerror());
        std::exit(2);
    }
    return module;
}

template <typename Function>
Function find(void* module, const char* name) {
    void* const function = dlsym(module, name);
    if (function == nullptr) {
        std::printf("%s is not exported\n", name);
        std::exit(2);
    }
    return reinterpret_cast<Function>(function);
}

}  // namespace

LibraryCopy::LibraryCopy() : module_(nullptr) {
    static void* const winscard = load(KELMORA_WINSCARD);
    find<SetCardSeamFunction>(winscard, "SetCardSeam")(behindTheSeam());
    module_ = load(KELMORA_LIBRARY);
}

LibraryCopy::~LibraryCopy() {
    dlclose(module_);
}

bool LibraryCopy::isLoaded() {
    return dlopen(KELMORA_LIBRARY, RTLD_NOW | RTLD_NOLOAD) != nullptr;
}

PFN_CARD_ACQUIRE_CONTEXT LibraryCopy::acquireContext() const {
    return find<PFN_CARD_ACQUIRE_CONTEXT>(module_, "CardAcquireContext");
}

}  // namespace boundary
