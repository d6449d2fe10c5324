#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pcsclite_double/pcsclite_double.h"
#include "platform/win32.h"

namespace {

constexpr SCARDCONTEXT theContext = 0x7FEDCBA9;
constexpr SCARDHANDLE theCard = 0x6ABCDEF0;

// The library under test, over the double, which is loaded first: whoever asks for its name then
// gets it. The test program has calls of the same names, so these are reached by pointers.
class Libraries {
public:
    Libraries() {
        double_ = dlopen(PCSCLITE_DOUBLE, RTLD_NOW | RTLD_LOCAL);
        library_ = dlopen(WINSCARD_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    }
    bool loaded() const { return double_ != nullptr && library_ != nullptr; }
    PcscliteDouble& state() const {
        return *reinterpret_cast<PcscliteDoubleState>(dlsym(double_, "pcscliteDouble"))();
    }
    template <typename Call>
    Call* find(Call&, const char* name) const {
        return reinterpret_cast<Call*>(dlsym(library_, name));
    }

private:
    void* double_;
    void* library_;
};

const Libraries& libraries() {
    static const Libraries libraries;
    return libraries;
}

#define CALL(name) libraries().find(::name, #name)

class Winscard : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(libraries().loaded()) << dlerror();
        lite() = PcscliteDouble();
    }
    static PcscliteDouble& lite() { return libraries().state(); }
    static void readers(const std::string& list) {
        static std::string kept;
        kept = list;
        lite().readers = kept.data();
        lite().readersSize = kept.size();
    }
};

TEST_F(Winscard, ExportsTheProtocolRecordsOf8Bytes) {
    const auto* t0 = libraries().find(g_rgSCardT0Pci, "g_rgSCardT0Pci");
    const auto* t1 = libraries().find(g_rgSCardT1Pci, "g_rgSCardT1Pci");
    ASSERT_NE(t0, nullptr);
    ASSERT_NE(t1, nullptr);
    EXPECT_EQ(t0->dwProtocol, 1U);
    EXPECT_EQ(t0->cbPciLength, 8U);
    EXPECT_EQ(t1->dwProtocol, 2U);
    EXPECT_EQ(t1->cbPciLength, 8U);
}

TEST_F(Winscard, EstablishesAndReleasesAContext) {
    SCARDCONTEXT context = 0;
    EXPECT_EQ(CALL(SCardEstablishContext)(SCARD_SCOPE_USER, nullptr, nullptr, &context), 0);
    EXPECT_EQ(context, theContext);
    EXPECT_EQ(CALL(SCardReleaseContext)(context), 0);
    EXPECT_EQ(lite().context, theContext);
}

TEST_F(Winscard, GivesTheCodesIn32Bits) {
    lite().code = 0x8010001D;
    SCARDCONTEXT context = 0;
    EXPECT_EQ(CALL(SCardEstablishContext)(SCARD_SCOPE_USER, nullptr, nullptr, &context),
              SCARD_E_NO_SERVICE);
    lite().code = 0x80100068;
    EXPECT_EQ(CALL(SCardBeginTransaction)(theCard), SCARD_W_RESET_CARD);
    EXPECT_EQ(lite().card, theCard);
}

TEST_F(Winscard, ListsReadersIn16BitUnits) {
    readers(std::string("L\xC3\xA4ser 00\0\xF0\x9F\x82\xA1\0\0", 16));
    const std::u16string expected(u"L\u00E4ser 00\0\U0001F0A1\0\0", 13);
    DWORD length = 0;
    EXPECT_EQ(CALL(SCardListReadersW)(theContext, nullptr, nullptr, &length), 0);
    EXPECT_EQ(length, expected.size());
    EXPECT_EQ(lite().context, theContext);
    std::u16string list(length, u'#');
    EXPECT_EQ(CALL(SCardListReadersW)(theContext, nullptr, list.data(), &length), 0);
    EXPECT_EQ(list, expected);
    length = 12;
    EXPECT_EQ(CALL(SCardListReadersW)(theContext, nullptr, list.data(), &length),
              SCARD_E_INSUFFICIENT_BUFFER);
    EXPECT_EQ(length, 13U);
}

TEST_F(Winscard, TellsThatThereIsNoReader) {
    lite().code = 0x8010002E;
    DWORD length = 7;
    EXPECT_EQ(CALL(SCardListReadersW)(theContext, nullptr, nullptr, &length),
              SCARD_E_NO_READERS_AVAILABLE);
    EXPECT_EQ(length, 7U);
}

TEST_F(Winscard, ConnectsToAReaderByItsUtf8Name) {
    lite().protocol = 2;
    SCARDHANDLE card = 0;
    DWORD protocol = 0;
    EXPECT_EQ(
        CALL(SCardConnectW)(theContext, u"L\u00E4ser 00", SCARD_SHARE_SHARED, 3, &card, &protocol),
        0);
    EXPECT_STREQ(lite().reader, "L\xC3\xA4ser 00");
    EXPECT_EQ(lite().share, 2U);
    EXPECT_EQ(lite().protocols, 3U);
    EXPECT_EQ(card, theCard);
    EXPECT_EQ(protocol, 2U);
}

TEST_F(Winscard, PassesDispositionsOn) {
    DWORD protocol = 0;
    EXPECT_EQ(CALL(SCardReconnect)(theCard, 2, 1, 1, &protocol), 0);
    EXPECT_EQ(lite().disposition, 1U);
    EXPECT_EQ(CALL(SCardDisconnect)(theCard, 2), 0);
    EXPECT_EQ(lite().disposition, 2U);
    EXPECT_EQ(CALL(SCardEndTransaction)(theCard, 1), 0);
    EXPECT_EQ(lite().disposition, 1U);
    EXPECT_EQ(lite().card, theCard);
}

TEST_F(Winscard, TellsTheFurthestStateAlone) {
    const struct {
        unsigned long lite;
        DWORD ours;
    } rows[] = {{0x00, 0}, {0x01, 0}, {0x02, 1},        {0x04, 2},
                {0x0C, 3}, {0x14, 4}, {0x04 | 0x20, 5}, {0x00050054, 6}};
    for (const auto& row : rows) {
        lite().state = row.lite;
        DWORD state = 99;
        EXPECT_EQ(CALL(SCardStatusW)(theCard, nullptr, nullptr, &state, nullptr, nullptr, nullptr),
                  0);
        EXPECT_EQ(state, row.ours) << row.lite;
    }
}

TEST_F(Winscard, TellsTheProtocolAlone) {
    lite().protocol = 1;
    DWORD protocol = 0;
    EXPECT_EQ(CALL(SCardStatusW)(theCard, nullptr, nullptr, nullptr, &protocol, nullptr, nullptr),
              0);
    EXPECT_EQ(protocol, 1U);
}

TEST_F(Winscard, TellsTheAtr) {
    std::vector<BYTE> atr(4);
    auto length = static_cast<DWORD>(atr.size());
    const auto status = [&] {
        return CALL(SCardStatusW)(theCard, nullptr, nullptr, nullptr, nullptr, atr.data(), &length);
    };
    EXPECT_EQ(status(), 0);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(atr, (std::vector<BYTE>{0x3B, 0x7F, 0x96, 0x00}));
    length = 2;
    EXPECT_EQ(status(), SCARD_E_INSUFFICIENT_BUFFER);
    EXPECT_EQ(length, 3U);
}

TEST_F(Winscard, TransmitsACommandAndItsReply) {
    lite().protocol = 2;
    lite().reply[0] = 0x90;
    lite().replyLength = 2;
    const SCARD_IO_REQUEST send = {2, 8};
    SCARD_IO_REQUEST receive = {0, 0};
    const BYTE command[] = {0x00, 0xA4, 0x04, 0x00};
    BYTE reply[258] = {};
    DWORD length = sizeof(reply);
    EXPECT_EQ(CALL(SCardTransmit)(theCard, &send, command, 4, &receive, reply, &length), 0);
    EXPECT_EQ(lite().card, theCard);
    EXPECT_EQ(lite().pciProtocol, 2U);
    EXPECT_EQ(lite().pciLength, 16U);
    EXPECT_EQ(lite().sentLength, 4U);
    EXPECT_EQ(lite().sent[1], 0xA4);
    EXPECT_EQ(lite().room, 258U);
    EXPECT_EQ(length, 2U);
    EXPECT_EQ(reply[0], 0x90);
    EXPECT_EQ(receive.dwProtocol, 2U);
    EXPECT_EQ(receive.cbPciLength, 8U);
    length = 1;
    EXPECT_EQ(CALL(SCardTransmit)(theCard, &send, command, 4, nullptr, reply, &length),
              SCARD_E_INSUFFICIENT_BUFFER);
    EXPECT_EQ(length, 2U);
}

TEST_F(Winscard, NamesTheServiceNoMoreRoomThanItTakes) {
    const SCARD_IO_REQUEST send = {1, 8};
    const BYTE command[] = {0x00, 0xB0, 0x00, 0x00};
    std::vector<BYTE> reply(100000);
    auto length = static_cast<DWORD>(reply.size());
    EXPECT_EQ(CALL(SCardTransmit)(theCard, &send, command, 4, nullptr, reply.data(), &length), 0);
    EXPECT_EQ(lite().room, 65548U);
}

}  // namespace
