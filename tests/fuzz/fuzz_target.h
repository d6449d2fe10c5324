// What a fuzz target is: one function over bytes. libFuzzer calls it in the preset "fuzz"; in every
// sanitized build replay_main.cpp calls it for each file of the corpus.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
/// Standard output goes nowhere: the product's lines on it would be most of a run.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace fuzz {

/// Ends the program, and so the run with a finding, unless the condition holds.
void require(bool condition, const char* what);

/// Reads all of the bytes, so that the address sanitizer sees whether they are there.
void readAll(const void* bytes, std::size_t size);

}  // namespace fuzz
