// Writes the seeds of the corpus: the virtual cards' real files and certificates, for the programs
// of the hostile cards and callers one input for each generation and kind of deed, library files.
//
//     make_corpus FOLDER            (the target fuzz_corpus: FOLDER is tests/fuzz/corpus)
//     make_corpus --check FOLDER    fails unless FOLDER has them as they would be written
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "hostile_card.h"
#include "tests/support/pe_file.h"
#include "virtual_card/pkcs15_files.h"

namespace {

using fuzz::AtEnd;
using fuzz::Bytes;
using fuzz::Deed;

std::filesystem::path corpus;
bool isCheck = false;
int seeds = 0;
int differing = 0;

void write(const std::string& target, const std::string& name, const Bytes& content) {
    const auto folder = corpus / target;
    ++seeds;
    if (isCheck) {
        std::ifstream file(folder / name, std::ios::binary);
        const std::vector<char> kept{std::istreambuf_iterator<char>(file), {}};
        if (!file || Bytes(kept.begin(), kept.end()) != content) {
            std::printf("%s/%s is not as it would be written\n", target.c_str(), name.c_str());
            ++differing;
        }
        return;
    }
    std::filesystem::create_directories(folder);
    std::ofstream file(folder / name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(content.data()),
               static_cast<std::streamsize>(content.size()));
}

void write(const std::string& target, const std::string& name, const std::string& content) {
    write(target, name, Bytes(content.begin(), content.end()));
}

Bytes operator+(Bytes left, const Bytes& right) {
    virtual_card::append(left, right);
    return left;
}

Bytes longBlock(const Bytes& content) {
    return Bytes{static_cast<std::uint8_t>(content.size() >> 8),
                 static_cast<std::uint8_t>(content.size())} +
           content;
}

Bytes step(Deed deed, const Bytes& arguments = {}) {
    return Bytes{static_cast<std::uint8_t>(deed)} + arguments;
}

Bytes card(std::size_t generation, AtEnd atEnd) {
    return {static_cast<std::uint8_t>(generation), static_cast<std::uint8_t>(atEnd)};
}

template <typename Visit>
void visitFiles(const virtual_card::File& file, const Visit& visit) {
    if (!file.isDirectory && !file.content.empty()) visit(file);
    for (const auto& child : file.children) visitFiles(*child, visit);
}

bool isCertificate(const Bytes& content) {
    return content.size() > 400;  // Directories and EF.CIAInfo are far smaller.
}

std::string hexName(std::uint16_t identifier) {
    char text[5];
    std::snprintf(text, sizeof(text), "%04x", identifier);
    return text;
}

// Steps that stand for each kind of deed once, after so many honest answers.
struct NamedSteps {
    const char* name;
    Bytes steps;
};
const NamedSteps deeds[] = {
    {"change", step(Deed::ChangeByte, {0, 1, 0x80})},
    {"warning", step(Deed::OtherStatus, {0x62, 0x82})},
    {"refusal", step(Deed::OtherStatus, {0x6A, 0x82})},
    {"wrong-length", step(Deed::OtherStatus, {0x6C, 0x20})},
    {"no-reply", step(Deed::OwnReply, {0})},
    {"one-byte", step(Deed::OwnReply, {1, 0x90})},
    {"more-waiting", step(Deed::MoreWaiting, {2, 0x62, 0x00, 0x00})},
    {"reset", step(Deed::Fail, {12, 0, 0, 0, 0, 0})},
    {"failure-with-bytes", step(Deed::Fail, {3, 2, 0x90, 0x00, 0, 0, 0, 2})},
    {"failure-with-length", step(Deed::Fail, {3, 0, 0xFF, 0xFF, 0xFF, 0xFF})},
    {"length-too-large", step(Deed::ClaimLength, {0xFF, 0xFF, 0xFF, 0xFF})},
    {"length-of-one-more", step(Deed::ClaimLength, {0, 0, 2, 1})},
    {"length-none", step(Deed::ClaimLength, {0, 0, 0, 0})},
    {"cut", step(Deed::Cut, {3})},
    {"lost", step(Deed::LoseReply, {13})},
    {"huge-file", step(Deed::StateSize, {0xFF, 0xFF, 0xFF, 0xFF})},
    {"largest-file", step(Deed::StateSize, {0, 1, 0, 0})},
    {"empty-file", step(Deed::StateSize, {0, 0, 0, 0})},
};

void writeFiles() {
    for (std::size_t at = 0; at < virtual_card::generations().size(); ++at) {
        const virtual_card::Generation& generation = virtual_card::generations()[at];
        const std::string type = "type" + std::to_string(generation.cardType);
        virtual_card::FileSystem files;
        makeFiles(generation, files);
        visitFiles(files.root(), [&](const virtual_card::File& file) {
            const std::string name = type + "-" + hexName(file.identifier);
            if (isCertificate(file.content)) {
                write("fuzz_certificate", name, Bytes{0xFF} + file.content);
                return;
            }
            write("fuzz_tlv_scan", name, file.content);
            const Bytes served = step(Deed::ServeFile, longBlock(file.content));
            for (std::uint8_t operation = 0; operation < 4; ++operation) {
                // Only where the file is read at all.
                const bool isInfo = file.identifier == 0x5032;
                if (isInfo != (operation == 0)) continue;
                write("fuzz_card_directories", name + "-operation" + std::to_string(operation),
                      Bytes{operation, 1} + card(at, AtEnd::Honest) + served);
            }
        });
        const Bytes select{0x00, 0xA4, 0x02, 0x04, 0x02, 0x50, 0x32, 0x00};
        virtual_card::VirtualCard virtualCard(generation);
        write("fuzz_tlv_scan", type + "-control-parameters", virtualCard.transmit(select));
    }
}

// Calls as the table of entry_point_calls.cpp numbers them.
const Bytes verifyUser{0, 0, 0, 0, 0, 0, 0, 0};
const Bytes verifySignature{0, 0, 1, 1, 0, 0, 0, 0};

Bytes signCall(std::uint8_t container, std::uint8_t algorithm) {
    // No flags, SHA-256, SSL3's field of the salt, 32 bytes.
    Bytes call{1, 0, 0, 2, 0, 0, 2};
    call.insert(call.end(), 32, 0x5A);
    return call + Bytes{0, 0, container, 0, algorithm, 2, 0, 0};
}

Bytes pssCall() {
    Bytes call{1, 0, 2, 2, 0, 0, 2};
    call.insert(call.end(), 32, 0x5A);
    return call + Bytes{0, 0, 0, 0, 0, 3, 0, 0};
}

Bytes decryptCall(bool isLong) {
    return Bytes{2, 0, 0, static_cast<std::uint8_t>(isLong ? 0 : 1), 0, 0, 0, 0, 0, 0, 0};
}

Bytes agreeCall() {
    return Bytes{3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
}

Bytes deriveCall(bool isLengthOnly) {
    const Bytes prepend = longBlock({0xAA, 0xBB}) + Bytes{1};
    const Bytes append = longBlock({0xCC}) + Bytes{2};
    const Bytes hashAndVersion{2, 1, 0, 0};
    const Bytes flags = isLengthOnly ? Bytes{1, 0x80, 0x20, 0, 0, 0} : Bytes{0};
    return Bytes{4, 0, 2, 2} + prepend + append + hashAndVersion + flags + Bytes(4, 0);
}

Bytes questions() {
    Bytes all;
    for (std::uint8_t name = 0; name < 13; ++name) all = all + Bytes{6, name, 64, 0, 1, 0, 0};
    for (std::uint8_t index = 0; index < 3; ++index) {
        for (std::uint8_t name = 13; name < 16; ++name) {
            all = all + Bytes{8, name, 64, 0, index, 0, 0, 0, 0};
        }
        all = all + Bytes{9, 0, index, 0, 0, 0};
    }
    for (std::uint8_t file = 0; file < 8; ++file) {
        all = all + Bytes{10, static_cast<std::uint8_t>(file < 3 ? 0 : 1), file, 0, 0, 0, 0};
    }
    return all + Bytes{11, 0, 0, 0, 0} + Bytes{11, 1, 0, 0, 0} + Bytes{12, 1, 3, 0, 0, 0};
}

const NamedSteps callLists[] = {
    {"signatures",
     verifyUser + signCall(0, 2) + pssCall() + verifySignature + signCall(1, 2) + signCall(2, 3)},
    {"decryptions", verifyUser + decryptCall(false) + decryptCall(true)},
    {"agreements",
     verifyUser + agreeCall() + deriveCall(true) + deriveCall(false) + Bytes{5, 0, 0, 0}},
    {"questions", questions()},
    {"settings", Bytes{7, 0, 6, 'a', 0, 'b', 0, 'c', 0, 0, 1, 0} +
                     Bytes{7, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 0}},
    {"refusals", Bytes{15} + Bytes(64, 0)},
    {"wrong-pin", Bytes{0, 0, 3, 0, 0, 0, 0, 0} + Bytes{0, 0, 3, 1, 0, 0, 0, 0}},
};

// The record's fields wrong, one after the other, by the bits of fuzz_caller.cpp.
void writeBrokenRecords(std::size_t generation, const std::string& type) {
    const virtual_card::VirtualCard card(virtual_card::generations()[generation]);
    const Bytes first{static_cast<std::uint8_t>(generation), 0xC0};
    const auto block = [](Bytes atr) {
        atr.insert(atr.begin(), static_cast<std::uint8_t>(atr.size()));
        return atr;
    };
    write("fuzz_caller", type + "-longer-atr", first + block(card.atr() + Bytes{0x42}) + Bytes{2});
    if (generation != 0) return;
    for (int bit = 0; bit < 8; ++bit) {
        const auto choice = static_cast<std::uint8_t>(1 << bit | 2);
        write("fuzz_caller", "broken-record-" + std::to_string(bit),
              first + block(card.atr()) + Bytes{choice, 0, 0, 0, 6});
    }
    write("fuzz_caller", "no-atr", first + block(card.atr()) + Bytes{0});
    write("fuzz_caller", "empty-atr", first + Bytes{0, 2});
    write("fuzz_caller", "unknown-atr", first + block({0x3B, 0x00}) + Bytes{2});
    write("fuzz_caller", "huge-atr", first + block(Bytes(200, 0x3B)) + Bytes{2});
}

void writeConversations() {
    for (std::size_t at = 0; at < virtual_card::generations().size(); ++at) {
        const std::string type = "type" + std::to_string(virtual_card::generations()[at].cardType);
        writeBrokenRecords(at, type);
        for (const NamedSteps& list : callLists) {
            write("fuzz_caller", type + "-" + list.name,
                  Bytes{static_cast<std::uint8_t>(at), 0} + list.steps);
            write("fuzz_acquisition", type + "-" + list.name,
                  longBlock(list.steps) + card(at, AtEnd::Honest));
        }
    }
    std::size_t generation = 0;
    for (const NamedSteps& deed : deeds) {
        // Early, so that what is selected is hurt, and later, where files are read. The generations
        // take turns.
        for (const int after : {0, 4, 9}) {
            const Bytes steps =
                step(Deed::HonestRun, {static_cast<std::uint8_t>(after)}) + deed.steps;
            const std::string name = std::string(deed.name) + "-after" + std::to_string(after);
            write("fuzz_acquisition", name,
                  longBlock(verifyUser + signCall(0, 2)) + card(generation % 6, AtEnd::Honest) +
                      steps);
            write("fuzz_card_directories", name,
                  Bytes{static_cast<std::uint8_t>(generation % 7), 1} +
                      card(generation % 6, AtEnd::FromTheStart) + steps);
            ++generation;
        }
    }
    // The first card's answer to PSO: DECIPHER, which is its 49th.
    for (const auto& [name, message] :
         {NamedSteps{"decrypted", {'t', 'e', 'x', 't'}}, NamedSteps{"decrypted-to-nothing", {}}}) {
        const auto length = static_cast<std::uint8_t>(message.size());
        write("fuzz_acquisition", name,
              longBlock(verifyUser + decryptCall(false)) + card(0, AtEnd::Honest) +
                  step(Deed::HonestRun, {47}) + step(Deed::OwnData, Bytes{length} + message));
    }
    // A card that says for ever that there is more, with and without a byte of data.
    for (const bool hasData : {false, true}) {
        write("fuzz_card_directories", std::string("endless-") + (hasData ? "bytes" : "nothing"),
              Bytes{4, 1} + card(2, AtEnd::ForEver) +
                  step(Deed::MoreWaiting, (hasData ? Bytes{1, 0x55} : Bytes{0}) + Bytes{0x01}));
    }
}

void writeTexts() {
    const std::string target = "fuzz_service_address";
    write(target, "two", std::string("http://host:80;https://service.example:8443/path"));
    write(target, "no-number", std::string("http://host:x;https://host:99999999999;http://h:0"));
    write(target, "not-the-form", std::string("ftp://host:1;http:host:1;http://:1;http://a:b:1;;"));
    write("fuzz_texts", "ascii", std::string(" \t0123456789abcdefABCDEF;;x; \r\n"));
    write("fuzz_texts", "utf-8", std::string("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x94\x91"));
    write("fuzz_texts", "not-utf-8", std::string("\xC3\xED\xA0\x80\xF5\x80\xFF\xC0\x80"));
    write("fuzz_texts", "list", Bytes{'a', 0, 'b', 0, 0, 0, 'c', 0, 0, 0, 0, 0});
    const Bytes text{'h', 0, 't', 0, 0, 0};
    const Bytes value = Bytes{6} + text;
    write("fuzz_registry", "found", Bytes{0, 0} + value + Bytes{0, 0} + value);
    write("fuzz_registry", "larger", Bytes{1, 1, 0, 0x08, 0} + Bytes{0, 0} + value);
    write("fuzz_registry", "huge", Bytes{1, 2, 0, 0xFF, 0xFF, 0xFF, 0xFF} + Bytes{1, 3, 0});
    write("fuzz_registry", "odd-length", Bytes{0, 1} + value + Bytes{0, 5} + Bytes{0, 2, 0});
    write("fuzz_registry", "missing", Bytes{2, 0, 0, 3, 0, 0});
    const std::string reply = "fuzz_service_reply";
    // Behind the head: 3 bytes, read whole, and the end.
    const Bytes head(6, 0);
    write(reply, "short", Bytes{0} + head + Bytes{0, 0, 3, 0, 3, 'o', 'k', '.'} + Bytes{0, 0, 0});
    write(reply, "too-large", Bytes{0} + head + Bytes{0, 0x0F, 0xA1});
    write(reply, "claims-more", Bytes{0} + head + Bytes{0, 0, 1, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0});
    write(reply, "for-ever", Bytes{0} + head + Bytes{0, 0, 1, 0, 1, 'x', 0, 0, 1, 0, 1, 'y'});
    for (std::uint8_t failing = 1; failing < 9; ++failing) {
        write(reply, "failure-" + std::to_string(failing), Bytes{failing});
    }
    Bytes forEver;
    for (int call = 0; call < 64; ++call) forEver = forEver + Bytes{1, 3, 0};
    write("fuzz_registry", "more-for-ever", forEver);
}

Bytes wideText(const std::string& text) {
    Bytes units{static_cast<std::uint8_t>(text.size())};
    for (const char letter : text) units = units + Bytes{0, static_cast<std::uint8_t>(letter)};
    return units;
}

// Each call loads the library to see whether it is there, changes the folder, asks for the window
// in front, loads it again, takes the function and shows the dialog until it is left: the answers
// in this order.
void writeDialogs() {
    const Bytes available(5, 0);
    const Bytes noTerminator = Bytes{0xC0} + Bytes(13, '7');
    const NamedSteps answers[] = {
        {"entered", available + Bytes{5}},
        {"wrong-then-entered", available + Bytes{3, 5}},
        {"wrong-then-left", available + Bytes{3, 0}},
        {"too-short-then-left", available + Bytes{4, 0}},
        {"no-terminator", available + noTerminator},
        {"blocked", available + Bytes(10, 3)},
        {"no-library", {0xF0}},
        {"no-folder", {0, 0xF0}},
        {"no-window", {0, 0, 0xF0}},
        {"window-without-a-name", {0, 0, 0xF1}},
        {"window-of-the-logon", {0, 0, 0xE0}},
        {"window-that-is-no-text", {0, 0, 0xE8}},
        {"library-goes", {0, 0, 0, 0xF0}},
        {"no-function", {0, 0, 0, 0, 0xF0}},
    };
    const Bytes companion = wideText("C:\\Kelmora\\app.exe");
    const Bytes call = Bytes{0x10} + wideText("Pay");
    std::uint8_t generation = 0;
    for (const NamedSteps& answer : answers) {
        write("fuzz_dialog", answer.name,
              Bytes{generation} + longBlock(companion + answer.steps) + call);
        generation = static_cast<std::uint8_t>((generation + 1) % 6);
    }
    write("fuzz_dialog", "no-companion", Bytes{0} + longBlock({0}) + Bytes{0});
    write("fuzz_dialog", "companion-without-folder",
          Bytes{1} + longBlock(wideText("app.exe")) + Bytes{0});
    write("fuzz_dialog", "other-pins",
          Bytes{2} + longBlock(companion) + Bytes{0x20, 0x21, 0x01, 0x02, 0x04, 0x08});
}

void writeLibraries() {
    using KelmoraID::testing::PeFile;
    PeFile x86(0x014C, false);
    x86.addExports({"CardAcquireContext", "DllMain"});
    write("fuzz_doctor", "library-x86", x86.bytes);
    PeFile both(0xAA64, true);
    both.addExports({"CardAcquireContext"});
    both.addLoadConfiguration(0x140, 6);
    both.setDirectory(4, 0x700, 0x80);
    write("fuzz_doctor", "library-arm64x", both.bytes);
}

}  // namespace

int main(int argc, char** argv) {
    isCheck = argc == 3 && argv[1] == std::string("--check");
    if (argc != 2 && !isCheck) {
        std::fprintf(stderr, "usage: make_corpus [--check] FOLDER\n");
        return 2;
    }
    corpus = argv[argc - 1];
    writeFiles();
    writeConversations();
    writeTexts();
    writeDialogs();
    writeLibraries();
    std::printf("%d seeds, %d differing\n", seeds, differing);
    return differing == 0 ? 0 : 1;
}
