// The scan of data objects, over any bytes: what it finds by tag is what a walk finds.
#include "bytes/tlv_scan.h"
#include "fuzz_target.h"

using KelmoraID::ByteVector;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // A vector of the very size, so that a read beyond its end is seen.
    const ByteVector all(data, data + size);
    ByteVector rest = all;
    ByteVector value{0x55};
    BYTE tag = 0;
    int seen[256] = {};
    for (;;) {
        const ByteVector before = rest;
        if (!KelmoraID::readNextElement(rest, tag, value)) {
            fuzz::require(rest == before, "bytes that are no element stay");
            break;
        }
        fuzz::require(before.size() >= rest.size() + value.size() + 2, "an element has a header");
        fuzz::require(before.front() == tag, "an element begins with its tag");
        ++seen[tag];
        ByteVector found;
        fuzz::require(KelmoraID::findElement(all, tag, found, seen[tag]) && found == value,
                      "an element is found by its tag and its place");
        if (seen[tag] > 200) break;  // Finding each costs the square of their number.
    }
    for (int wanted = 0; wanted < 256; ++wanted) {
        if (seen[wanted] > 200) continue;
        ByteVector found{0x55};
        const bool isThere =
            KelmoraID::findElement(all, static_cast<BYTE>(wanted), found, seen[wanted] + 1);
        fuzz::require((isThere && seen[tag] > 200) || (!isThere && found.empty()),
                      "nothing is found beyond the last element");
    }
    return 0;
}
