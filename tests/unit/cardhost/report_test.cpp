// The page of a logon, and what it is made of.
#include <gmock/gmock.h>

#include <fmt/format.h>

#include <algorithm>
#include <tuple>

#include "doctor/log_explanation.h"
#include "driver_log.h"
#include "recording/parser.h"
#include "report_page.h"
#include "report_words.h"
#include "tlv.h"

namespace cardhost {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

recording::Conversation conversation(const std::string& body) {
    return recording::parse("conversation 1\nATR 3B 00\nprotocol T=1\n" + body + "end\n");
}

std::size_t countOf(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++count;
    }
    return count;
}

TEST(ReportPage, HasAnArrowForEachWay) {
    ReportPage page;
    page.conversation = conversation(
        "CardAcquireContext\n  > 00 A4 00 00\n  < 90 00 in 2 ms\n  > 00 B0 00 00 05\n  < 6A 82\n"
        "  = 0x00000000 in 3 ms\nCardSignData with container 0\n  > 00 2A 9E 9A\n"
        "  < failed 0x80100069\n  = 0x8010001F in 1 ms\nCardDeleteContext\n");
    const std::string html = htmlOf(page);
    EXPECT_EQ(countOf(html, "class=\"arrow right platform"), 3u);
    EXPECT_EQ(countOf(html, "class=\"arrow left platform"), 2u);
    EXPECT_EQ(countOf(html, "class=\"arrow right card"), 3u);
    EXPECT_EQ(countOf(html, "class=\"arrow left card"), 3u);
    // The card's failure, and the call that it ended; what the first call came through is none.
    EXPECT_EQ(countOf(html, " bad\"></i>"), 2u);
    EXPECT_EQ(countOf(html, " trial\"></i>"), 1u);
    EXPECT_THAT(html, HasSubstr("file not found"));
    EXPECT_THAT(html, HasSubstr("SCARD_W_REMOVED_CARD"));
    EXPECT_THAT(html, HasSubstr("SCARD_E_UNEXPECTED"));
    EXPECT_THAT(html, HasSubstr("has not come back"));
    EXPECT_THAT(html, HasSubstr("The card signs"));
    // What failed is open at once.
    EXPECT_THAT(html, HasSubstr("<details class=\"call\" open><summary class=\"row\"><span "
                                "class=\"lanes\"><i class=\"arrow right platform up\"></i><i "
                                "class=\"arrow left platform down bad\">"));
}

TEST(ReportPage, ShowsWhatComesFromOutsideAsText) {
    ReportPage page;
    const std::string markup = "<script>a('\"&')</script>";
    const std::string safe = "&lt;script&gt;a(&#39;&quot;&amp;&#39;)&lt;/script&gt;";
    page.title = page.outcome = markup;
    page.found = {{markup, {{markup, markup}}}};
    page.conversation = conversation("");
    page.conversation.entries = {recording::Call{markup}, recording::LogLine{markup},
                                 recording::Result{0, recording::Duration(9)}};
    const recording::Bytes text{0x30, 0x05, 0x0C, 0x03, '<', 'b', '>', 0x90, 0x00};
    page.conversation.entries.push_back(
        recording::Exchange{recording::WrittenCommand(text), {text, 0, {}}, 0});
    const std::string html = htmlOf(page);
    EXPECT_THAT(html, Not(HasSubstr("<script")));
    EXPECT_THAT(html, HasSubstr("&lt;b&gt;"));
    // Title twice, outcome, heading, label, value; the call in the diagram, the strip and the list;
    // the line of the log.
    EXPECT_EQ(countOf(html, safe), 10u);
}

TEST(ReportPage, HoldsNothingThatIsNoText) {
    ReportPage page;
    // The last one but one turns the direction of writing.
    page.title = std::string("a\0b\x1B\xFF\xC3\xA4\xE2\x80\xAE\xE2\x82", 12);
    const std::string html = htmlOf(page);
    EXPECT_THAT(html, HasSubstr("<h1>a?b?\?\xC3\xA4?\?\?</h1>"));
}

TEST(ReportPage, NamesTagsByWhereTheyStand) {
    ReportPage page;
    page.conversation = conversation(
        "  > 00 A4 00 00\n  < 6F 04 83 02 50 32 90 00\n"
        "  > 00 B0 00 00\n  < 30 0B 02 01 01 80 06 46 49 4E 45 49 44 90 00\n");
    const std::string html = htmlOf(page);
    EXPECT_EQ(countOf(html, "<code>83</code> file identifier <code>50 32</code>"), 1u);
    EXPECT_EQ(countOf(html, "<code>80</code> [0] FINEID"), 1u);
}

TEST(ReportPage, IsRedOnlyWhereACallFailed) {
    const auto page = [](const char* status) {
        ReportPage page;
        page.conversation =
            conversation(fmt::format("CardReadFile\n  > 00 B0 00 00 05\n  < 6A 82\n{}", status));
        return htmlOf(page);
    };
    EXPECT_THAT(page("  = 0x00000000\n"), HasSubstr("<span class=\"dim\">file not found"));
    EXPECT_THAT(page("  = 0x8010001F\n"), HasSubstr("<span class=\"badtext\">file not found"));
    EXPECT_THAT(page(""), HasSubstr("<span class=\"badtext\">file not found"));
}

TEST(ReportPage, MasksPins) {
    ReportPage page;
    page.conversation = conversation("  > 00 20 00 11 02 ** **\n  < 90 00\n");
    EXPECT_THAT(htmlOf(page), HasSubstr("<code>00 20 00 11 02 ** **</code>"));
}

TEST(ReportWords, OfTagsAndValues) {
    EXPECT_EQ(nameOfTag(0x6F), "file control information");
    EXPECT_EQ(nameOfTag(0x5A), "");
    // What a tag of its own context says is told by where it stands.
    EXPECT_EQ(nameOfTag(0x80), "[0]");
    EXPECT_EQ(nameOfTag(0xA1), "[1]");
    EXPECT_EQ(nameOfTag(0x80, true), "size");
    EXPECT_EQ(nameOfTag(0x85, true), "[5]");
    EXPECT_EQ(textOfValue(0x80, Bytes{'F', 'I'}), "FI");
    EXPECT_EQ(textOfValue(0x80, Bytes{'F'}), "") << "may as well be a number";
    EXPECT_EQ(textOfValue(0x80, Bytes{'F', 0}), "");
    const Bytes commonName{0x55, 0x04, 0x03};
    const Bytes rsa{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
    EXPECT_EQ(textOfValue(0x06, commonName), "2.5.4.3");
    EXPECT_EQ(textOfValue(0x06, rsa), "1.2.840.113549.1.1.1");
    EXPECT_EQ(textOfValue(0x06, Bytes(20, 0xFF)), "");
    EXPECT_EQ(textOfValue(0x0C, Bytes{'a'}), "a");
    EXPECT_EQ(textOfValue(0x04, Bytes{'a'}), "");
    EXPECT_THAT(meaningOfCall("CardSignData with container 0"), HasSubstr("signs"));
    EXPECT_EQ(meaningOfCall("CardSomething"), "");
}

TEST(Tlv, ReadsWholeAndCutElements) {
    const Bytes whole{0x7F, 0x41, 0x81, 0x02, 0xAA, 0xBB, 0x05, 0x00};
    const auto element = readTlv(whole);
    ASSERT_TRUE(element);
    EXPECT_EQ(element->tag, 0x7F41u);
    EXPECT_TRUE(element->isConstructed());
    EXPECT_TRUE(element->isWhole);
    EXPECT_EQ(element->size(), 6u);
    EXPECT_TRUE(isTlv(whole));
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const bool isFirstAlone = size == element->size();
        EXPECT_EQ(isTlv(ByteView(whole).first(size)), isFirstAlone) << size;
    }
    const auto cut = readTlv(ByteView(whole).first(5));
    ASSERT_TRUE(cut);
    EXPECT_FALSE(cut->isWhole);
    EXPECT_EQ(cut->value.size(), 1u);
    for (const Bytes& bad : {Bytes{}, Bytes{0x30}, Bytes{0x00, 0x00}, Bytes{0xFF, 0x00},
                             Bytes{0x30, 0x80}, Bytes{0x30, 0x84, 1, 1, 1, 1, 1}, Bytes{0x1F, 0xFF},
                             Bytes{0x1F, 0xFF, 0xFF, 0xFF, 0x01}, Bytes{0x30, 0x82, 0x01}}) {
        EXPECT_FALSE(readTlv(bad));
    }
}

/// Lines of one second of the driver's log.
std::string logged(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += "[2026-01-01 10:00:00] " + line + "\n";
    return text;
}

// As the driver words them.
const std::string acquiring = "[CardAcquireContext] Entering the function";
const std::string reading = "[CardAcquireContext] Entering RegisterCard";
const std::string authenticating =
    "[CardAuthenticateEx] Entering the function, with parameters, PinId:'1' dwFlags:'0'";
const std::string signing =
    "[CardSignData] Entering the function, with parameters, bContainerIndex:'0' "
    "dwSigningFlags:'0x00000000', dwVersion:'2', dwKeySpec:'6' \n dwPaddingType:'0x00000000'";
const std::string releasing = "[CardDeleteContext] Entering the function";

std::string leaving(const std::string& call, const std::string& status) {
    return "[" + call + "] Exiting the function, with status code: '" + status + "'";
}

doctor::LogOutcome outcomeOfLog(const std::vector<std::string>& lines) {
    return doctor::outcomeOf(lastLogonIn(logged(lines)).acquisition);
}

TEST(DriverLog, TellsOfTheLastLogon) {
    const auto logon = lastLogonIn(
        "rubbish\n" + logged({acquiring, releasing, acquiring + "\r", reading}) + "cut\n" +
        logged({"[AdAttributeService] No AD service address found.", authenticating,
                "[CardGetProperty] Entering the function",
                "[CardGetProperty] with parameters wszProperty: 'PIN Information'",
                leaving("CardGetProperty", "0x00000000"),
                leaving("CardAuthenticateEx", "0x00000000"), signing,
                leaving("CardSignData", "0x8010006a"), leaving("CardReadFile", "0x00000000")}));
    const auto line = [](const std::string& text) {
        return recording::LogLine{"[2026-01-01 10:00:00] " + text};
    };
    const std::vector<recording::Entry> expected{
        recording::Call{"CardAcquireContext"},
        line(reading),
        line("[AdAttributeService] No AD service address found."),
        recording::Call{"CardAuthenticateEx"},
        recording::Result{0, {}},
        recording::Call{"CardGetProperty"},
        line("[CardGetProperty] with parameters wszProperty: 'PIN Information'"),
        recording::Result{0, {}},
        recording::Call{"CardSignData"},
        line(leaving("CardReadFile", "0x00000000")),
        recording::Result{0x8010006A, {}}};
    EXPECT_EQ(logon.conversation.entries, expected);
    EXPECT_TRUE(lastLogonIn("").conversation.entries.empty());
    EXPECT_TRUE(lastLogonIn("[] [] \n[\n]\n] [ ] \n").conversation.entries.empty());
}

TEST(DriverLog, OfAGoodLogonIsGood) {
    const auto outcome = outcomeOfLog({acquiring, reading, authenticating,
                                       leaving("CardAuthenticateEx", "0x00000000"), signing,
                                       leaving("CardSignData", "0x00000000"),
                                       // What Windows asks for in vain, as it does.
                                       "[CardGetProperty] Entering the function",
                                       leaving("CardGetProperty", "0x80100022"), releasing});
    EXPECT_EQ(outcome.verdict, doctor::Verdict::well) << outcome.text;
}

TEST(DriverLog, TellsOfAFailure) {
    for (const auto& [call, entering, status] :
         {std::tuple{"CardSignData", signing, "0x8010001f"},
          std::tuple{"CardSignData", signing, "0x8010006a"},
          std::tuple{"CardAuthenticateEx", authenticating, "0x8010006b' or '0x8010006c"},
          std::tuple{"CardRSADecrypt",
                     std::string("[CardRSADecrypt] Entering the function, with parameters, "
                                 "bContainerIndex:'0'"),
                     "0x8010001f"}}) {
        const auto outcome =
            outcomeOfLog({acquiring, reading, entering, leaving(call, status), releasing});
        EXPECT_EQ(outcome.verdict, doctor::Verdict::problem) << call;
        EXPECT_THAT(outcome.text, HasSubstr(std::string(call) + " ended with 0x80100"));
    }
    const auto message =
        outcomeOfLog({acquiring, reading, authenticating,
                      "[CardAuthenticateEx] Failed to verify PIN. Aborting...", releasing});
    EXPECT_NE(message.verdict, doctor::Verdict::well);
    EXPECT_THAT(outcomeOfLog({acquiring, "[DllMain] Started with reason code: 0"}).text,
                HasSubstr("The card was not acquired"));
}

TEST(DriverLog, OfAWrongPinThatWasPutRightIsNoFailure) {
    const auto outcome = outcomeOfLog({acquiring, reading, authenticating,
                                       leaving("CardAuthenticateEx", "0x8010006b' or '0x8010006c"),
                                       authenticating, leaving("CardAuthenticateEx", "0x00000000"),
                                       signing, leaving("CardSignData", "0x00000000"), releasing});
    EXPECT_EQ(outcome.verdict, doctor::Verdict::note);
    EXPECT_THAT(outcome.text, HasSubstr("a later call of it came back well"));
}

TEST(DriverLog, ThatBreaksOffIsNotComplete) {
    for (const std::vector<std::string>& lines :
         {std::vector{acquiring}, std::vector{acquiring, reading, authenticating},
          std::vector{acquiring, reading, signing, releasing}}) {
        const auto outcome = outcomeOfLog(lines);
        EXPECT_EQ(outcome.verdict, doctor::Verdict::note);
        EXPECT_THAT(outcome.text, HasSubstr("Not complete"));
    }
}

TEST(DriverLog, OfTwoProcessesDoesNotHideAFailure) {
    const auto logon =
        lastLogonIn(logged({acquiring, reading, signing, acquiring, reading, authenticating,
                            signing, leaving("CardAuthenticateEx", "0x00000000"),
                            leaving("CardSignData", "0x8010001f"), releasing, releasing}));
    EXPECT_TRUE(logon.acquisition.isMixed);
    const auto outcome = doctor::outcomeOf(logon.acquisition);
    EXPECT_EQ(outcome.verdict, doctor::Verdict::problem);
    EXPECT_THAT(outcome.text, HasSubstr("CardSignData ended with 0x8010001f"));
    EXPECT_EQ(std::count(logon.conversation.entries.begin(), logon.conversation.entries.end(),
                         recording::Entry(recording::Result{0x8010001F, {}})),
              1);
    // Of the first one only what it says after the second has begun.
    const auto late = outcomeOfLog({acquiring, reading, signing, acquiring, reading,
                                    leaving("CardSignData", "0x8010001f"), releasing, releasing});
    EXPECT_EQ(late.verdict, doctor::Verdict::problem);
    // What came back well may be the other one's.
    const auto other = outcomeOfLog({acquiring, reading, acquiring, reading, signing, signing,
                                     leaving("CardSignData", "0x8010001f"),
                                     leaving("CardSignData", "0x00000000"), releasing, releasing});
    EXPECT_EQ(other.verdict, doctor::Verdict::problem);
    const auto well = outcomeOfLog({acquiring, reading, acquiring, reading, releasing, releasing});
    EXPECT_EQ(well.verdict, doctor::Verdict::note);
}

TEST(DriverLog, OfVeryManyCallsKeepsTheLast) {
    std::string text = logged({acquiring, reading});
    for (int call = 0; call < 30'000; ++call) {
        text += logged({"[CardReadFile] Entering the function", "[CardReadFile] of some name",
                        leaving("CardReadFile", "0x00000000")});
    }
    text += logged({signing, leaving("CardSignData", "0x8010001f")});
    const auto logon = lastLogonIn(text);
    EXPECT_LT(logon.conversation.entries.size(), 5000u);
    EXPECT_GT(logon.droppedCalls, 20'000u);
    EXPECT_EQ(logon.conversation.entries.back(),
              recording::Entry(recording::Result{0x8010001F, {}}));
    // One call with lines without end.
    std::string lines = logged({acquiring, reading, signing});
    for (int line = 0; line < 30'000; ++line) lines += logged({"[CardSignData] again"});
    EXPECT_LT(lastLogonIn(lines).conversation.entries.size(), 5000u);
}

TEST(DriverLog, OnThePageSaysWhatIsNotComplete) {
    ReportPage page;
    page.isOfLog = true;
    page.mark = ReportPage::Mark::unclear;
    page.conversation = lastLogonIn(logged({acquiring, reading, signing})).conversation;
    const std::string html = htmlOf(page);
    EXPECT_THAT(html, HasSubstr("class=\"outcome unclear\""));
    EXPECT_EQ(countOf(html, "not complete"), 1u);
    EXPECT_EQ(countOf(html, "does not tell how it ended"), 1u);
}

}  // namespace
}  // namespace cardhost
