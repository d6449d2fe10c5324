#include <gtest/gtest.h>

#include <cstring>

#include "session/entry_points.h"
#include "support/acquired_card.h"
#include "support/log_capture.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using namespace testing;

LPSTR name(const char* text) {
    return const_cast<LPSTR>(text);
}

class VirtualFilesTest : public ::testing::Test {
protected:
    struct Read {
        DWORD status;
        ByteVector content;
    };
    static Read read(AcquiredCard& from, const char* directory, const char* file,
                     DWORD dwFlags = 0) {
        PBYTE data = nullptr;
        DWORD size = 0;
        const DWORD status =
            CardReadFile(from.data(), name(directory), name(file), dwFlags, &data, &size);
        Read result{status, {}};
        if (status == 0) {
            EXPECT_NE(data, nullptr);
            result.content.assign(data, data + size);
        }
        if (data != nullptr) from.data()->pfnCspFree(data);
        return result;
    }
    static Read list(AcquiredCard& from, const char* directory, DWORD dwFlags = 0) {
        LPSTR names = nullptr;
        DWORD size = 0;
        const DWORD status = CardEnumFiles(from.data(), name(directory), &names, &size, dwFlags);
        Read result{status, {}};
        if (status == 0) {
            result.content.assign(names, names + size);
            from.data()->pfnCspFree(names);
        }
        return result;
    }
    static ByteVector text(const char* value, std::size_t size) { return {value, value + size}; }

    LogCapture log;
    AcquiredCard two{CardType::type3};
    AcquiredCard three{CardType::type5};
};

class CardReadFileTest : public VirtualFilesTest {};

TEST_F(CardReadFileTest, GivesTheFilesOfTheRoot) {
    EXPECT_EQ(read(two, nullptr, "cardcf").content, ByteVector(6, 0));
    EXPECT_EQ(read(two, nullptr, "cardid").content, bytes("000102030405060708090A0B0C0D0E0F"));
    EXPECT_EQ(read(two, nullptr, "cardapps").content, bytes("6D736370 00000000"));
}

TEST_F(CardReadFileTest, GivesSixZeroBytesForCardcfEveryTime) {
    EXPECT_EQ(read(two, nullptr, "cardcf").content, ByteVector(6, 0));
    EXPECT_EQ(read(two, nullptr, "cardcf").content, ByteVector(6, 0));
}

TEST_F(CardReadFileTest, GivesTheContainersByteForByte) {
    const Read map = read(three, "mscp", "cmapfile");
    ASSERT_EQ(map.content.size(), 3 * 86u);
    EXPECT_EQ(std::memcmp(map.content.data(), three.context->containers.data(), 3 * 86), 0);
    EXPECT_EQ(read(two, "mscp", "cmapfile").content.size(), 2 * 86u);
}

TEST_F(CardReadFileTest, GivesTheCertificatesAsTheyWereRead) {
    EXPECT_EQ(read(two, "mscp", "kxc00").content, p256Certificate());
    EXPECT_EQ(read(two, "mscp", "ksc01").content, rsa2048Certificate());
    EXPECT_EQ(read(three, "mscp", "ksc02").content, p384Certificate());
}

TEST_F(CardReadFileTest, ComparesNamesWithoutRegardToCase) {
    EXPECT_EQ(read(two, nullptr, "CARDID").content, read(two, nullptr, "cardid").content);
    EXPECT_EQ(read(two, "MSCP", "KXC00").content, p256Certificate());
    EXPECT_EQ(read(two, "Mscp", "CMapFile").status, 0);
}

TEST_F(CardReadFileTest, LogsParametersAndExit) {
    read(two, nullptr, "cardcf");
    EXPECT_EQ(log.file(),
              (LogLines{{"CardReadFile", "Entering the function"},
                        {"CardReadFile",
                         "function parameters, pszDirectoryName:'NULL', pszFileName:'cardcf' "
                         "dwFlags:'0'"},
                        exitLine("CardReadFile", status::success)}));
    read(two, "mscp", "kxc00");
    EXPECT_EQ(log.file(),
              (LogLines{{"CardReadFile", "Entering the function"},
                        {"CardReadFile",
                         "function parameters, pszDirectoryName:'mscp', pszFileName:'kxc00' "
                         "dwFlags:'0'"},
                        exitLine("CardReadFile", status::success)}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(CardReadFileTest, RefusesBadArgumentsWithoutAFurtherLine) {
    PBYTE data = nullptr;
    DWORD size = 0;
    EXPECT_EQ(CardReadFile(nullptr, nullptr, name("cardid"), 0, &data, &size),
              status::invalidParameter);
    EXPECT_EQ(CardReadFile(two.data(), nullptr, nullptr, 0, &data, &size),
              status::invalidParameter);
    EXPECT_EQ(CardReadFile(two.data(), nullptr, name("cardid"), 1, &data, &size),
              status::invalidParameter);
    EXPECT_EQ(CardReadFile(two.data(), nullptr, name("cardid"), 0, nullptr, &size),
              status::invalidParameter);
    EXPECT_EQ(CardReadFile(two.data(), nullptr, name("cardid"), 0, &data, nullptr),
              status::invalidParameter);
    EXPECT_EQ(CardReadFile(two.data(), nullptr, name(""), 0, &data, &size),
              status::invalidParameter);
    EXPECT_EQ(log.file(), LogLines(6, {"CardReadFile", "Entering the function"}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(CardReadFileTest, RefusesAnotherDirectoryThanMscp) {
    for (const char* directory : {"other", "", "mscp ", "mscpmscpmscp"}) {
        EXPECT_EQ(read(two, directory, "kxc00").status, status::directoryNotFound) << directory;
        EXPECT_EQ(log.file().back(), exitLine("CardReadFile", status::directoryNotFound));
    }
}

TEST_F(CardReadFileTest, RefusesUnknownNamesInBothDirectories) {
    EXPECT_EQ(read(two, nullptr, "nothing").status, status::fileNotFound);
    EXPECT_EQ(log.file().back(), exitLine("CardReadFile", status::fileNotFound));
    EXPECT_EQ(read(two, "mscp", "kxc01").status, status::fileNotFound);
    EXPECT_EQ(log.file().back(), exitLine("CardReadFile", status::fileNotFound));
}

TEST_F(CardReadFileTest, HasTheCertificatesInMscpOnlyAndCardidInTheRootOnly) {
    EXPECT_EQ(read(two, nullptr, "kxc00").status, status::fileNotFound);
    EXPECT_EQ(read(two, "mscp", "cardid").status, status::fileNotFound);
    EXPECT_EQ(read(two, nullptr, "msroots").status, status::fileNotFound);
}

TEST_F(CardReadFileTest, HasKsc02OnlyWithASecondSigningKey) {
    EXPECT_EQ(read(two, "mscp", "ksc02").status, status::fileNotFound);
    EXPECT_EQ(log.file().back(), exitLine("CardReadFile", status::fileNotFound));
}

TEST_F(CardReadFileTest, FailsForMsrootsWithoutALine) {
    EXPECT_EQ(read(two, "mscp", "MsRoots").status, status::unexpected);
    const LogLines lines = log.file();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].message,
              "function parameters, pszDirectoryName:'mscp', pszFileName:'MsRoots' dwFlags:'0'");
}

TEST_F(CardReadFileTest, LeavesTheSizeAfterAFailedAllocation) {
    PBYTE data = nullptr;
    DWORD size = 0;
    PlatformRecord::failAllocation(1);
    EXPECT_EQ(CardReadFile(two.data(), nullptr, name("cardid"), 0, &data, &size), 8);
    EXPECT_EQ(size, 16);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(log.file().back(), exitLine("CardReadFile", status::notEnoughMemory));
}

TEST_F(CardReadFileTest, LeavesTheBufferOfAnEmptyMapWithTheCaller) {
    two.context->containers.clear();
    PBYTE data = nullptr;
    DWORD size = 77;
    EXPECT_EQ(CardReadFile(two.data(), name("mscp"), name("cmapfile"), 0, &data, &size),
              status::unexpected);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(PlatformRecord::liveAllocations(), 1);
    EXPECT_EQ(log.file().back(), exitLine("CardReadFile", status::unexpected));
    two.data()->pfnCspFree(data);
}

TEST_F(CardReadFileTest, WorksWithoutAContextHandle) {
    two.data()->hSCardCtx = 0;
    EXPECT_EQ(read(two, nullptr, "cardid").status, 0);
}

class CardEnumFilesTest : public VirtualFilesTest {};

TEST_F(CardEnumFilesTest, ListsTheRootIn24Bytes) {
    EXPECT_EQ(list(two, nullptr).content, text("cardapps\0cardcf\0cardid\0", 24));
    EXPECT_EQ(log.file(), (LogLines{{"CardEnumFiles", "Entering the function"}}));
}

TEST_F(CardEnumFilesTest, Lists22BytesOnATwoCertificateCard) {
    EXPECT_EQ(list(two, "mscp").content, text("cmapfile\0kxc00\0ksc01\0", 22));
}

TEST_F(CardEnumFilesTest, Lists28BytesOnAThreeCertificateCard) {
    EXPECT_EQ(list(three, "MSCP").content, text("cmapfile\0kxc00\0ksc01\0ksc02\0", 28));
}

TEST_F(CardEnumFilesTest, TellsADirectoryNameThatIsTooLongFromAnUnknownOne) {
    EXPECT_EQ(list(two, "ninechars").status, status::invalidParameter);
    EXPECT_EQ(list(two, "eightchr").status, status::directoryNotFound);
    EXPECT_EQ(list(two, "x").status, status::directoryNotFound);
    EXPECT_EQ(list(two, "").status, status::invalidParameter);
}

TEST_F(CardEnumFilesTest, RefusesBadArguments) {
    LPSTR names = nullptr;
    DWORD size = 0;
    EXPECT_EQ(CardEnumFiles(two.data(), nullptr, &names, &size, 1), status::invalidParameter);
    EXPECT_EQ(CardEnumFiles(nullptr, nullptr, &names, &size, 0), status::invalidParameter);
    EXPECT_EQ(CardEnumFiles(two.data(), nullptr, nullptr, &size, 0), status::invalidParameter);
    EXPECT_EQ(CardEnumFiles(two.data(), nullptr, &names, nullptr, 0), status::invalidParameter);
}

TEST_F(CardEnumFilesTest, LeavesTheCallersFieldsWhenItRefuses) {
    LPSTR names = name("before");
    DWORD size = 77;
    EXPECT_EQ(CardEnumFiles(two.data(), name("other"), &names, &size, 0),
              status::directoryNotFound);
    EXPECT_STREQ(names, "before");
    EXPECT_EQ(size, 77);
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(CardEnumFilesTest, WorksWithoutAContextHandle) {
    two.data()->hSCardCtx = 0;
    EXPECT_EQ(list(two, "mscp").status, 0);
}

TEST_F(CardEnumFilesTest, HasNoExitLineAlsoWhenTheAllocationFails) {
    PlatformRecord::failAllocation(1);
    EXPECT_EQ(list(two, nullptr).status, 8);
    EXPECT_EQ(log.file(), (LogLines{{"CardEnumFiles", "Entering the function"}}));
}

class CardGetFileInfoTest : public VirtualFilesTest {
protected:
    DWORD info(AcquiredCard& of, const char* directory, const char* file) {
        record = {0, 77, InvalidAc};
        return CardGetFileInfo(of.data(), name(directory), name(file), &record);
    }
    CARD_FILE_INFO record{};
};

TEST_F(CardGetFileInfoTest, TellsSizeAndConditionOfTheRootFiles) {
    EXPECT_EQ(info(two, nullptr, "cardcf"), 0);
    EXPECT_EQ(record.cbFileSize, 6);
    EXPECT_EQ(record.AccessCondition, EveryoneReadUserWriteAc);
    EXPECT_EQ(info(two, nullptr, "CardId"), 0);
    EXPECT_EQ(record.cbFileSize, 16);
    EXPECT_EQ(record.AccessCondition, EveryoneReadAdminWriteAc);
    EXPECT_EQ(info(two, nullptr, "cardapps"), 0);
    EXPECT_EQ(record.cbFileSize, 8);
    EXPECT_EQ(record.AccessCondition, EveryoneReadAdminWriteAc);
    EXPECT_EQ(log.file(), LogLines(3, {"CardGetFileInfo", "Entering the function"}));
}

TEST_F(CardGetFileInfoTest, TellsTheTrueSizeOfTheMapAndAFixedOneOfCertificates) {
    EXPECT_EQ(info(three, "mscp", "cmapfile"), 0);
    EXPECT_EQ(record.cbFileSize, 258);
    EXPECT_EQ(record.AccessCondition, EveryoneReadUserWriteAc);
    for (const char* file : {"kxc00", "ksc01", "ksc02"}) {
        EXPECT_EQ(info(three, "mscp", file), 0);
        EXPECT_EQ(record.cbFileSize, 20) << file;
        EXPECT_EQ(record.AccessCondition, EveryoneReadUserWriteAc);
    }
    EXPECT_EQ(info(two, "mscp", "ksc02"), status::fileNotFound);
}

TEST_F(CardGetFileInfoTest, ComparesNamesWithoutRegardToCase) {
    EXPECT_EQ(info(two, "MSCP", "KXC00"), 0);
    EXPECT_EQ(record.cbFileSize, 20);
}

TEST_F(CardGetFileInfoTest, TakesAnEmptyDirectoryNameForAnUnknownOne) {
    EXPECT_EQ(info(two, "", "cardid"), status::directoryNotFound);
}

TEST_F(CardGetFileInfoTest, KnowsTheFilesOfADirectoryInThatDirectoryOnly) {
    EXPECT_EQ(info(two, nullptr, "kxc00"), status::fileNotFound);
    EXPECT_EQ(info(two, "mscp", "cardid"), status::fileNotFound);
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(CardGetFileInfoTest, WorksWithoutAContextHandle) {
    two.data()->hSCardCtx = 0;
    EXPECT_EQ(info(two, "mscp", "cmapfile"), 0);
}

TEST_F(CardGetFileInfoTest, SetsTheVersionToThatOfTheCardsRecord) {
    EXPECT_EQ(info(two, nullptr, "cardcf"), 0);
    EXPECT_EQ(record.dwVersion, 7);
    record = {1, 77, InvalidAc};
    EXPECT_EQ(CardGetFileInfo(two.data(), nullptr, name("cardcf"), &record), 0);
    EXPECT_EQ(record.dwVersion, 7);
}

TEST_F(CardGetFileInfoTest, ChangesTheRecordBeforeAnUnknownNameIsRefused) {
    EXPECT_EQ(info(two, nullptr, "nothing"), status::fileNotFound);
    EXPECT_EQ(record.dwVersion, 7);
    EXPECT_EQ(record.AccessCondition, EveryoneReadUserWriteAc);
    EXPECT_EQ(record.cbFileSize, 77);
    EXPECT_EQ(info(two, "other", "kxc00"), status::directoryNotFound);
    EXPECT_EQ(record.dwVersion, 7);
    EXPECT_EQ(info(two, "mscp", "msroots"), status::fileNotFound);
}

TEST_F(CardGetFileInfoTest, RefusesNullsInOrder) {
    EXPECT_EQ(CardGetFileInfo(nullptr, nullptr, nullptr, nullptr), status::invalidParameter);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_251: pCardData is NULL"}}));
    EXPECT_EQ(CardGetFileInfo(two.data(), nullptr, nullptr, nullptr), status::invalidParameter);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_252: pszFileName is NULL or empty"}}));
    EXPECT_EQ(CardGetFileInfo(two.data(), nullptr, name(""), nullptr), status::invalidParameter);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_252: pszFileName is NULL or empty"}}));
    EXPECT_EQ(CardGetFileInfo(two.data(), nullptr, name("cardid"), nullptr),
              status::invalidParameter);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_253: pCardFileInfo is NULL"}}));
}

TEST_F(CardGetFileInfoTest, RefusesARecordOfVersionTwoUnchanged) {
    record = {2, 77, InvalidAc};
    EXPECT_EQ(CardGetFileInfo(two.data(), nullptr, name("cardid"), &record),
              status::revisionMismatch);
    EXPECT_EQ(record.dwVersion, 2);
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "CMR_260: pCardFileInfo version 2 not supported"}}));
}

}  // namespace
}  // namespace KelmoraID
