// The scan of data objects, over any bytes: what it finds by tag is what a walk finds.
#include "bytes/tlv_scan.h"
#include "fuzz_target.h"

using KelmoraID::ByteVector;

namespace {

// Finding each element costs the square of their number.
constexpr int mostFound = 16;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // A vector of the very size, so that a read beyond its end is seen.
    const ByteVector all(data, data + size);
    ByteVector rest = all;
    ByteVector value{0x55};
    BYTE tag = 0;
    int seen[256] = {};
    for (;;) {
        const std::size_t before = rest.size();
        if (!KelmoraID::readNextElement(rest, tag, value)) {
            fuzz::require(rest.size() == before, "bytes that are no element stay");
            break;
        }
        fuzz::require(before >= rest.size() + value.size() + 2, "an element has a header");
        fuzz::require(all[size - before] == tag, "an element begins with its tag");
        if (++seen[tag] > mostFound) continue;
        ByteVector found;
        fuzz::require(KelmoraID::findElement(all, tag, found, seen[tag]) && found == value,
                      "an element is found by its tag and its place");
    }
    // One more of the tag that the input begins with, and the first of a tag that it has not.
    if (size == 0) return 0;
    for (const BYTE wanted : {data[0], data[size - 1]}) {
        ByteVector found{0x55};
        fuzz::require(
            !KelmoraID::findElement(all, wanted, found, seen[wanted] + 1) && found.empty(),
            "nothing is found beyond the last element");
    }
    return 0;
}
