#include "channel/reader_context.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "support/log_capture.h"
#include "support/platform_calls.h"

namespace KelmoraID {
namespace {

using testing::LogCapture;
using testing::LogLines;
using testing::platformCalls;
using testing::PlatformCallsGuard;
using Names = std::vector<WideString>;

constexpr SCARDCONTEXT someContext = 0xC0DE;

class ReaderContextTest : public ::testing::Test {
protected:
    ReaderContextTest() {
        platformCalls().SCardEstablishContext = [](DWORD scope, LPCVOID first, LPCVOID second,
                                                   LPSCARDCONTEXT context) -> LONG {
            EXPECT_EQ(scope, 0U);
            EXPECT_EQ(first, nullptr);
            EXPECT_EQ(second, nullptr);
            *context = someContext;
            return 0;
        };
        platformCalls().SCardReleaseContext = [this](SCARDCONTEXT context) -> LONG {
            released.push_back(context);
            return releaseCode;
        };
        platformCalls().SCardListReadersW = [this](SCARDCONTEXT context, LPCWSTR groups,
                                                   LPWSTR readers, LPDWORD length) -> LONG {
            EXPECT_EQ(context, someContext);
            EXPECT_EQ(groups, nullptr);
            if (readers == nullptr) {
                *length = static_cast<DWORD>(multiString.size());
                return lengthCode;
            }
            EXPECT_EQ(*length, multiString.size());
            if (fillCode == 0) std::copy(multiString.begin(), multiString.end(), readers);
            return fillCode;
        };
    }

    void setReaders(const Names& names) {
        multiString.clear();
        for (const WideString& name : names) multiString += name + WCHAR{};
        multiString += WCHAR{};
    }

    PlatformCallsGuard guard;
    LogCapture log;
    std::vector<SCARDCONTEXT> released;
    WideString multiString;
    LONG lengthCode = 0;
    LONG fillCode = 0;
    LONG releaseCode = 0;
};

TEST_F(ReaderContextTest, BeginsWithoutAContextAndReleasesNone) {
    {
        const ReaderContext context;
        EXPECT_EQ(context.getContext(), 0U);
        EXPECT_FALSE(context.isEstablished());
        EXPECT_EQ(context.readerNames(), Names{});
    }
    EXPECT_EQ(released, std::vector<SCARDCONTEXT>{});
}

TEST_F(ReaderContextTest, EstablishesAContextOfTheUserAndReleasesItAtItsEnd) {
    {
        ReaderContext context;
        EXPECT_EQ(context.establish(), 0);
        EXPECT_EQ(context.getContext(), someContext);
        EXPECT_TRUE(context.isEstablished());
        EXPECT_EQ(released, std::vector<SCARDCONTEXT>{});
    }
    EXPECT_EQ(released, std::vector<SCARDCONTEXT>{someContext});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(ReaderContextTest, IgnoresAFailingRelease) {
    releaseCode = SCARD_E_INVALID_HANDLE;
    {
        ReaderContext context;
        context.establish();
    }
    EXPECT_EQ(released.size(), 1U);
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(ReaderContextTest, ReportsAFailureToEstablishAsASignedNumber) {
    platformCalls().SCardEstablishContext = [](DWORD, LPCVOID, LPCVOID,
                                               LPSCARDCONTEXT context) -> LONG {
        *context = 0x77;  // What a failing call leaves is not taken.
        return SCARD_E_NO_SERVICE;
    };
    {
        ReaderContext context;
        EXPECT_EQ(context.establish(), SCARD_E_NO_SERVICE);
        EXPECT_EQ(context.getContext(), 0u);
        EXPECT_FALSE(context.isEstablished());
    }
    EXPECT_EQ(released, std::vector<SCARDCONTEXT>{});
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "Error establishing context: -2146435043"}}));
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(ReaderContextTest, MovesTheHandleAndLeavesTheReleaseWithTheSource) {
    {
        ReaderContext source;
        source.establish();
        const ReaderContext moved(std::move(source));
        EXPECT_EQ(moved.getContext(), someContext);
        EXPECT_FALSE(moved.isEstablished());
        EXPECT_EQ(source.getContext(), 0U);  // NOLINT(bugprone-use-after-move): what is tested.
        EXPECT_TRUE(source.isEstablished());
    }
    EXPECT_EQ(released, std::vector<SCARDCONTEXT>{0}) << "the moved handle is never released";
}

TEST_F(ReaderContextTest, MarksTheSourceOfAMoveEvenIfItHadNothing) {
    {
        ReaderContext source;
        const ReaderContext moved(std::move(source));
        EXPECT_FALSE(moved.isEstablished());
        EXPECT_TRUE(source.isEstablished());  // NOLINT(bugprone-use-after-move): what is tested.
    }
    EXPECT_EQ(released, std::vector<SCARDCONTEXT>{0});
}

TEST_F(ReaderContextTest, ListsTheReadersInThePlatformsOrderWhateverTheArgument) {
    ReaderContext context;
    context.establish();
    for (const bool argument : {false, true}) {
        setReaders({WIDE_TEXT("Second"), WIDE_TEXT("First")});
        EXPECT_EQ(context.listReaders(argument), 0);
        EXPECT_EQ(context.readerNames(), (Names{WIDE_TEXT("Second"), WIDE_TEXT("First")}));
        setReaders({WIDE_TEXT("Third")});
        EXPECT_EQ(context.listReaders(argument), 0);
        EXPECT_EQ(context.readerNames(), Names{WIDE_TEXT("Third")}) << "the list is made anew";
    }
}

TEST_F(ReaderContextTest, GivesThePlatformsCodeAndAnEmptyListWithoutReaders) {
    ReaderContext context;
    context.establish();
    setReaders({WIDE_TEXT("Gone")});
    context.listReaders(false);
    lengthCode = SCARD_E_NO_READERS_AVAILABLE;
    EXPECT_EQ(context.listReaders(false), SCARD_E_NO_READERS_AVAILABLE);
    EXPECT_EQ(context.readerNames(), Names{});
    Names found{WIDE_TEXT("left over")};
    context.findReaders(found, {});
    EXPECT_EQ(found, Names{});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(ReaderContextTest, TakesALengthOfZeroForAnEmptyListAndGivesTheCallsCode) {
    ReaderContext context;
    context.establish();
    EXPECT_EQ(context.listReaders(false), 0);
    EXPECT_EQ(context.readerNames(), Names{});
    EXPECT_EQ(platformCalls().counts["SCardListReadersW"], 1);
}

TEST_F(ReaderContextTest, DoesNotExamineTheSecondCodeOfTheListing) {
    ReaderContext context;
    context.establish();
    setReaders({WIDE_TEXT("Reader")});
    fillCode = SCARD_E_INSUFFICIENT_BUFFER;
    EXPECT_EQ(context.listReaders(false), 0);
    EXPECT_EQ(context.readerNames(), Names{});
}

TEST_F(ReaderContextTest, FindsEveryReaderForAnEmptyFilter) {
    ReaderContext context;
    context.establish();
    setReaders({WIDE_TEXT("Alpha 00"), WIDE_TEXT("Beta 00")});
    Names found{WIDE_TEXT("left over")};
    EXPECT_EQ(&context.findReaders(found, {}), &found);
    EXPECT_EQ(found, (Names{WIDE_TEXT("Alpha 00"), WIDE_TEXT("Beta 00")}));
}

TEST_F(ReaderContextTest, FindsTheReadersThatHoldTheFilterExactly) {
    ReaderContext context;
    context.establish();
    setReaders({WIDE_TEXT("Alpha 00"), WIDE_TEXT("Beta 00"), WIDE_TEXT("alpha 01")});
    Names found;
    EXPECT_EQ(context.findReaders(found, WIDE_TEXT("pha 0")),
              (Names{WIDE_TEXT("Alpha 00"), WIDE_TEXT("alpha 01")}));
    EXPECT_EQ(context.findReaders(found, WIDE_TEXT("alpha")), Names{WIDE_TEXT("alpha 01")});
    EXPECT_EQ(context.findReaders(found, WIDE_TEXT("Gamma")), Names{});
    EXPECT_EQ(log.output(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
