#include "pin/external_dialog.h"

#include <new>

#include "pin/dialog_double.h"
#include "pin/pin_fixture.h"
#include "session/entry_points.h"
#include "text/text_conversion.h"

namespace {

bool hasMemory = true;

}  // namespace

// new (std::nothrow) T[n], which the linker leads here (--wrap).
extern "C" {
void* __real__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __wrap__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);

void* __wrap__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
    return hasMemory ? __real__ZnamRKSt9nothrow_t(size, tag) : nullptr;
}
}

namespace KelmoraID {
namespace {

using namespace testing;

const LogLines failedLoad{{"isExternalPinDialogAvailable", "Unable to load DLL: CodeEntryLibrary"},
                          {"isExternalPinDialogAvailable", "Error code: 126"}};
const LogLines failedConversion{{"isLoginWindowHandle", "Class name conversion failed."}};

using Calls = std::vector<std::string>;

class ExternalDialog : public ::testing::Test {
protected:
    PlatformCallsGuard guard;
    DialogDouble dialog;
    LogCapture log;
    WideString path = WIDE_TEXT("an earlier path");

    void expectUnavailable(const Calls& calls, const LogLines& file) {
        EXPECT_FALSE(isExternalPinDialogAvailable(path));
        EXPECT_EQ(dialog.calls, calls);
        EXPECT_EQ(log.file(), file);
        EXPECT_EQ(log.output(), LogLines{});
        EXPECT_EQ(narrow(path), "an earlier path");
    }

    // The kind of PIN that the platform is told.
    static DWORD pinType() {
        const ScriptedCard card;
        AcquiredPinCard acquired(CardType::type3);
        PIN_INFO pinInfo{};
        DWORD length = 0;
        EXPECT_EQ(CardGetProperty(&acquired.data, WIDE_TEXT("PIN Information"),
                                  reinterpret_cast<PBYTE>(&pinInfo), sizeof pinInfo, &length, 1),
                  0u);
        return pinInfo.PinType;
    }
};

TEST_F(ExternalDialog, IsFoundBesideTheApplicationAndTriedOnce) {
    EXPECT_TRUE(isExternalPinDialogAvailable(path));
    EXPECT_EQ(narrow(path), "C:\\Program Files\\Kelmora\\CodeEntryLibrary.dll");
    EXPECT_EQ(dialog.calls, DialogDouble::callsOfOneTest());
    EXPECT_EQ(log.file(), LogLines{});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(ExternalDialog, MovesTheProcessToTheFolderAtEverySuccessfulTest) {
    EXPECT_TRUE(isExternalPinDialogAvailable(path));
    dialog.calls.clear();
    EXPECT_TRUE(isExternalPinDialogAvailable(path));
    EXPECT_EQ(dialog.calls, DialogDouble::callsOfOneTest());
}

TEST_F(ExternalDialog, GivesThePathWithoutTheTerminatorOfTheConversion) {
    EXPECT_TRUE(isExternalPinDialogAvailable(path));
    EXPECT_EQ(path.find(WCHAR{}), WideString::npos);
}

TEST_F(ExternalDialog, KeepsCharactersOutsideAscii) {
    dialog.startCommand = WIDE_TEXT("C:\\Ohjelmat \u00E4\u20AC\\app.exe");
    WideString loaded;
    platformCalls().LoadLibraryExW = [&](LPCWSTR library, HANDLE, DWORD) -> HMODULE {
        loaded = library;
        return nullptr;
    };
    EXPECT_FALSE(isExternalPinDialogAvailable(path));
    EXPECT_EQ(loaded, WIDE_TEXT("C:\\Ohjelmat \u00E4\u20AC\\CodeEntryLibrary.dll"));
}

TEST_F(ExternalDialog, ReadsAStartCommandOfMoreThan255Characters) {
    const std::string folder = "C:\\" + std::string(300, 'x');
    dialog.startCommand = wide(folder + "\\app.exe");
    EXPECT_TRUE(isExternalPinDialogAvailable(path));
    EXPECT_EQ(narrow(path), folder + "\\CodeEntryLibrary.dll");
}

TEST_F(ExternalDialog, IsUnavailableWithoutARegistryValueAndNothingIsLoggedOrLoaded) {
    dialog.startCommand.reset();
    expectUnavailable({}, {});
    EXPECT_EQ(pinType(), 0u);
    EXPECT_EQ(dialog.calls, Calls{});
}

TEST_F(ExternalDialog, IsUnavailableWithAnEmptyRegistryValueAndNothingIsLoggedOrLoaded) {
    dialog.startCommand = WideString();
    expectUnavailable({}, {});
}

TEST_F(ExternalDialog, IsUnavailableInAFolderWithoutTheLibrary) {
    dialog.libraryLoads = false;
    expectUnavailable({"load C:\\Program Files\\Kelmora\\CodeEntryLibrary.dll, 8"}, failedLoad);
    EXPECT_EQ(pinType(), 0u);
}

TEST_F(ExternalDialog, DoesNotUnderstandAQuotationMark) {
    dialog.startCommand = WIDE_TEXT("\"C:\\Program Files\\Kelmora\\app.exe\"");
    dialog.libraryLoads = false;
    expectUnavailable({"load \"C:\\Program Files\\Kelmora\\CodeEntryLibrary.dll, 8"}, failedLoad);
    EXPECT_EQ(pinType(), 0u);
}

TEST_F(ExternalDialog, DoesNotUnderstandArguments) {
    dialog.startCommand = WIDE_TEXT("C:\\Kelmora\\app.exe --log D:\\log.txt");
    dialog.libraryLoads = false;
    expectUnavailable({"load C:\\Kelmora\\app.exe --log D:\\CodeEntryLibrary.dll, 8"}, failedLoad);
    EXPECT_EQ(pinType(), 0u);
}

TEST_F(ExternalDialog, TakesWhatStandsBehindTheLastBackslashForTheProgramsName) {
    dialog.startCommand = WIDE_TEXT("C:\\Kelmora\\app.exe --quiet");
    EXPECT_TRUE(isExternalPinDialogAvailable(path));
    EXPECT_EQ(narrow(path), "C:\\Kelmora\\CodeEntryLibrary.dll");
}

TEST_F(ExternalDialog, CountsAStartCommandWithoutAFolderAsAFailedLoad) {
    for (const char* command : {"app.exe", "\\", "\"app.exe\" --quiet"}) {
        dialog.startCommand = wide(command);
        expectUnavailable({}, failedLoad);
    }
}

TEST_F(ExternalDialog, TellsThatNoModuleWasFoundWhereThereIsNoFolder) {
    platformCalls().GetLastError = nullptr;
    SetLastError(0);
    dialog.startCommand = WIDE_TEXT("app.exe");
    expectUnavailable({}, failedLoad);
}

TEST_F(ExternalDialog, TakesAFolderAtTheRoot) {
    dialog.startCommand = WIDE_TEXT("C:\\app.exe");
    EXPECT_TRUE(isExternalPinDialogAvailable(path));
    EXPECT_EQ(dialog.calls, (Calls{"load C:\\CodeEntryLibrary.dll, 8", "free", "folder C:"}));
}

TEST_F(ExternalDialog, IsUnavailableAtTheRootOfTheCurrentDriveWhichHasNoFolderName) {
    dialog.startCommand = WIDE_TEXT("\\app.exe");
    expectUnavailable({"load \\CodeEntryLibrary.dll, 8", "free", "folder "},
                      {{"isExternalPinDialogAvailable", "Error: Changing directory failed."}});
}

TEST_F(ExternalDialog, DropsTheLastFolderOfAStartCommandThatEndsInABackslash) {
    dialog.startCommand = WIDE_TEXT("C:\\Kelmora\\bin\\");
    EXPECT_TRUE(isExternalPinDialogAvailable(path));
    EXPECT_EQ(narrow(path), "C:\\Kelmora\\CodeEntryLibrary.dll");
}

TEST_F(ExternalDialog, IsUnavailableWhenTheFolderCannotBeEntered) {
    dialog.folderChanges = false;
    expectUnavailable(DialogDouble::callsOfOneTest(),
                      {{"isExternalPinDialogAvailable", "Error: Changing directory failed."}});
    EXPECT_EQ(pinType(), 0u);
}

TEST_F(ExternalDialog, CountsAnExceptionOfTheRegistryAsAMissingValue) {
    platformCalls().RegGetValueW = [](HKEY, LPCWSTR, LPCWSTR, DWORD, LPDWORD, PVOID,
                                      LPDWORD) -> LSTATUS {
        throw std::runtime_error("no memory for it");
    };
    EXPECT_FALSE(isExternalPinDialogAvailable(path));
    EXPECT_EQ(log.output(), (LogLines{{"ERROR",
                                       "Could not read Kelmora ID installation path ('Kelmora ID') "
                                       "from registry. Exception: no memory for it"}}));
    EXPECT_EQ(log.file(), LogLines{});
    EXPECT_EQ(dialog.calls, Calls{});
}

TEST_F(ExternalDialog, AddsNothingToTheLinesOfAFailingRegistry) {
    platformCalls().RegGetValueW = [](HKEY, LPCWSTR, LPCWSTR, DWORD, LPDWORD, PVOID,
                                      LPDWORD) -> LSTATUS { return ERROR_UNSUPPORTED_TYPE; };
    EXPECT_FALSE(isExternalPinDialogAvailable(path));
    EXPECT_EQ(log.output(),
              (LogLines{{"ERROR", "Could not read registry. Windows system error code: '1630'."}}));
    EXPECT_EQ(log.file(), (LogLines{{"AdAttributeService", "Could not read registry."}}));
    EXPECT_EQ(dialog.calls, Calls{});
}

TEST_F(ExternalDialog, IsUnavailableWhenAnyConversionFails) {
    // Two calls of the platform make one conversion: the start command to UTF-8; the value's name,
    // the folder and the library's path to wide text.
    const std::pair<const char*, int> conversions[] = {{"WideCharToMultiByte", 2},
                                                       {"MultiByteToWideChar", 6}};
    for (const auto& [call, count] : conversions) {
        for (int nth = 1; nth <= count; ++nth) {
            SCOPED_TRACE(std::string(call) + " " + std::to_string(nth));
            platformCalls().failCall(call, nth);
            EXPECT_FALSE(isExternalPinDialogAvailable(path));
            EXPECT_EQ(narrow(path), "an earlier path");
        }
        platformCalls().failures.clear();
        platformCalls().counts.clear();
        EXPECT_TRUE(isExternalPinDialogAvailable(path));
        EXPECT_EQ(platformCalls().counts[call], count);
        path = WIDE_TEXT("an earlier path");
    }
}

TEST_F(ExternalDialog, ReadsNoUnnamedValueWhenItsNameDoesNotConvert) {
    for (int nth = 1; nth <= 2; ++nth) {
        platformCalls().failCall("MultiByteToWideChar", nth);
        expectUnavailable({}, {});
        EXPECT_EQ(platformCalls().counts["RegGetValueW"], 0);
        platformCalls().failures.clear();
        platformCalls().counts.clear();
    }
}

TEST_F(ExternalDialog, MakesThePinExternalInFrontOfAnOrdinaryWindow) {
    EXPECT_EQ(pinType(), 1u);
}

TEST_F(ExternalDialog, LeavesThePinToThePlatformOnTheLogonScreenThoughTheLibraryIsThere) {
    dialog.windowClass = WIDE_TEXT("LogonUI Logon Window");
    EXPECT_EQ(pinType(), 0u);
    EXPECT_EQ(dialog.calls, DialogDouble::callsOfOneTest());
}

TEST_F(ExternalDialog, KnowsTheLogonWindowByItsExactClass) {
    const std::pair<const char*, bool> classes[] = {{"LogonUI Logon Window", true},
                                                    {"LogonUI Logon Window ", false},
                                                    {"LogonUI Logon Windo", false},
                                                    {"logonui logon window", false},
                                                    {"#32769", false}};
    for (const auto& [name, isLogonWindow] : classes) {
        dialog.windowClass = wide(name);
        EXPECT_EQ(isLoginWindowHandle(), isLogonWindow) << name;
    }
    EXPECT_EQ(log.file(), LogLines{});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(ExternalDialog, TakesAWindowWithoutAClassNameForTheLogonScreen) {
    dialog.windowClass.clear();
    EXPECT_TRUE(isLoginWindowHandle());
    EXPECT_EQ(log.file(), failedConversion);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(pinType(), 0u);
}

// A failed call may have written to the buffer all the same.
TEST_F(ExternalDialog, TakesACountOfZeroForTheLogonScreenWhateverTheBufferHolds) {
    for (const int count : {0, -1}) {
        platformCalls().GetClassNameW = [count](HWND, LPWSTR name, int) {
            name[0] = WCHAR{'x'};
            return count;
        };
        EXPECT_TRUE(isLoginWindowHandle());
        EXPECT_EQ(log.file(), failedConversion);
    }
}

TEST_F(ExternalDialog, TakesAnEmptyClassNameForTheLogonScreenWhateverItsCount) {
    platformCalls().GetClassNameW = [](HWND, LPWSTR name, int) {
        name[0] = 0;
        name[1] = WCHAR{'x'};
        return 2;
    };
    EXPECT_TRUE(isLoginWindowHandle());
    EXPECT_EQ(log.file(), failedConversion);
}

TEST_F(ExternalDialog, TakesNoWindowAtAllForTheLogonScreen) {
    platformCalls().GetForegroundWindow = [] { return HWND{}; };
    platformCalls().GetClassNameW = [](HWND handle, LPWSTR, int) {
        EXPECT_EQ(handle, nullptr);
        return 0;
    };
    EXPECT_TRUE(isLoginWindowHandle());
    EXPECT_EQ(log.file(), failedConversion);
}

TEST_F(ExternalDialog, TakesAWindowWhoseClassNameDoesNotConvertForTheLogonScreen) {
    for (int nth = 1; nth <= 2; ++nth) {
        platformCalls().failCall("WideCharToMultiByte", nth);
        EXPECT_TRUE(isLoginWindowHandle());
        EXPECT_EQ(log.file(), failedConversion);
    }
}

TEST_F(ExternalDialog, TakesAWindowForWhoseClassNameThereIsNoMemoryForTheLogonScreen) {
    hasMemory = false;
    const bool isLogon = isLoginWindowHandle();
    hasMemory = true;
    EXPECT_TRUE(isLogon);
    EXPECT_EQ(log.file(), failedConversion);
}

TEST_F(ExternalDialog, ReadsAClassNameWithinItsBufferAlone) {
    platformCalls().GetClassNameW = [](HWND, LPWSTR name, int count) {
        std::fill_n(name, count, WCHAR{'x'});  // no terminator
        return count;
    };
    EXPECT_FALSE(isLoginWindowHandle());
    EXPECT_EQ(log.file(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
