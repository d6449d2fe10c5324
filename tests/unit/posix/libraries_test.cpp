#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <thread>

#include "platform/win32.h"
#include "support/log_capture.h"

namespace {

namespace fs = std::filesystem;

// A library that stands on every machine of this kind.
constexpr LPCWSTR mathLibrary = u"libm.so.6";

TEST(Libraries, LoadALibraryAndFindItsFunction) {
    const HMODULE module = LoadLibraryExW(mathLibrary, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    ASSERT_NE(module, nullptr);
    const auto root = reinterpret_cast<double (*)(double)>(
        reinterpret_cast<void*>(GetProcAddress(module, "sqrt")));
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root(9.0), 3.0);
    EXPECT_EQ(FreeLibrary(module), TRUE);
}

TEST(Libraries, TakeABackslashInThePathForAFoldersEnd) {
    const HMODULE module = LoadLibraryExW(mathLibrary, nullptr, 0);
    ASSERT_NE(module, nullptr);
    // The library by its full path, in the form of Windows.
    std::error_code none;
    std::string path;
    for (const char* folder : {"/lib/x86_64-linux-gnu", "/lib/aarch64-linux-gnu", "/lib64",
                               "/usr/lib", "/lib/i386-linux-gnu"}) {
        if (fs::exists(std::string(folder) + "/libm.so.6", none)) path = folder;
    }
    ASSERT_FALSE(path.empty());
    path += "/libm.so.6";
    std::u16string wide;
    for (const char c : path) wide += c == '/' ? u'\\' : static_cast<char16_t>(c);
    const HMODULE again = LoadLibraryExW(wide.c_str(), nullptr, 0);
    EXPECT_EQ(again, module);
    EXPECT_EQ(FreeLibrary(again), TRUE);
    EXPECT_EQ(FreeLibrary(module), TRUE);
}

TEST(Libraries, TellThatALibraryIsMissing) {
    SetLastError(0);
    EXPECT_EQ(LoadLibraryExW(u"C:\\no\\such\\library.dll", nullptr, 8), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MOD_NOT_FOUND});
    SetLastError(0);
    EXPECT_EQ(LoadLibraryExW(u"", nullptr, 8), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MOD_NOT_FOUND});
}

TEST(Libraries, TellThatAFunctionIsMissing) {
    const HMODULE module = LoadLibraryExW(mathLibrary, nullptr, 0);
    ASSERT_NE(module, nullptr);
    SetLastError(0);
    EXPECT_EQ(GetProcAddress(module, "promptCodeEntryDefault"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_PROC_NOT_FOUND});
    FreeLibrary(module);
}

TEST(Libraries, ChangeTheCurrentDirectory) {
    const fs::path before = fs::current_path();
    const fs::path folder = fs::path(KelmoraID::testing::testFolder()) / "Kelmora ID \xC3\xA4";
    fs::create_directories(folder);
    std::u16string wide = folder.u16string();
    for (char16_t& unit : wide) {
        if (unit == u'/') unit = u'\\';
    }
    EXPECT_EQ(SetCurrentDirectoryW(wide.c_str()), TRUE);
    EXPECT_TRUE(fs::equivalent(fs::current_path(), folder));
    fs::current_path(before);
}

TEST(Libraries, TellThatAFolderIsMissing) {
    const fs::path before = fs::current_path();
    SetLastError(0);
    EXPECT_EQ(SetCurrentDirectoryW(u"\\no\\such\\folder"), FALSE);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(fs::current_path(), before);
}

TEST(Libraries, KeepTheLastErrorOfEachThreadApart) {
    SetLastError(1);
    DWORD other = 5;
    std::thread([&other] {
        other = GetLastError();
        SetLastError(2);
    }).join();
    EXPECT_EQ(other, 0U);
    EXPECT_EQ(GetLastError(), 1U);
}

}  // namespace
