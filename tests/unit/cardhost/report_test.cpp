// The page of a logon, and what it is made of.
#include <gmock/gmock.h>

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
    EXPECT_EQ(countOf(html, " bad\"></i>"), 3u);
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

TEST(ReportPage, MasksPins) {
    ReportPage page;
    page.conversation = conversation("  > 00 20 00 11 02 ** **\n  < 90 00\n");
    EXPECT_THAT(htmlOf(page), HasSubstr("<code>00 20 00 11 02 ** **</code>"));
}

TEST(ReportWords, OfTagsAndValues) {
    EXPECT_EQ(nameOfTag(0x6F), "file control information");
    EXPECT_EQ(nameOfTag(0x99), "");
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

TEST(DriverLog, TellsOfTheLastLogon) {
    const auto conversation = lastLogonIn(
        "rubbish\n"
        "[2026-01-01 10:00:00] [CardAcquireContext] Entering the function\n"
        "[2026-01-01 10:00:00] [CardAcquireContext] Exiting the function, with status code: "
        "'0x00000000'\n"
        "[2026-01-01 10:00:00] [CardAcquireContext] Entering the function\r\n"
        "[2026-01-01 10:00:00] [AdAttributeService] No AD service address found.\n"
        "[2026-01-01 10:00:00] [CardAcquireContext] Exiting the function, with status code: "
        "'0x00000000'\n"
        "[2026-01-01 10:00:00] [CardSignData] Entering the function\n"
        "cut\n"
        "[2026-01-01 10:00:00] [CardSignData] Exiting the function, with status code: "
        "'0x8010006a'\n"
        "[2026-01-01 10:00:00] [CardReadFile] Exiting the function, with status code: "
        "'0x00000000'\n");
    const std::vector<recording::Entry> expected{
        recording::Call{"CardAcquireContext"},
        recording::LogLine{
            "[2026-01-01 10:00:00] [AdAttributeService] No AD service address found."},
        recording::Result{0, {}},
        recording::Call{"CardSignData"},
        recording::Result{0x8010006A, {}},
        recording::LogLine{"[2026-01-01 10:00:00] [CardReadFile] Exiting the function, with status "
                           "code: '0x00000000'"}};
    EXPECT_EQ(conversation.entries, expected);
    EXPECT_TRUE(lastLogonIn("").entries.empty());
    EXPECT_TRUE(lastLogonIn("[] [] \n[\n]\n] [ ] \n").entries.empty());
}

}  // namespace
}  // namespace cardhost
