#include <dlfcn.h>
#include <gtest/gtest.h>

#include <vector>

#include "platform/win32.h"

namespace {

std::vector<DWORD>& reasons() {
    static std::vector<DWORD> reasons;
    return reasons;
}

TEST(LibraryLoad, CallsTheEntryFunctionOnceWhenLoadedAndOnceWhenUnloaded) {
    void* library = dlopen(LOADED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto entryCalls =
        reinterpret_cast<DWORD (*)(DWORD&, void (*)(DWORD))>(dlsym(library, "entryCalls"));
    ASSERT_NE(entryCalls, nullptr);
    DWORD reason = 99;
    EXPECT_EQ(entryCalls(reason, [](DWORD further) { reasons().push_back(further); }), 1U);
    EXPECT_EQ(reason, DLL_PROCESS_ATTACH);
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_EQ(reasons(), std::vector<DWORD>{DLL_PROCESS_DETACH});
}

}  // namespace
