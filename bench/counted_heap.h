// The heap of this program, with what the driver takes of it told apart from all else.
#pragma once

#include <cstddef>

namespace bench {

/// While an object lives, what is taken from the heap by this thread counts (or, with false, does
/// not). They nest: within a call of the driver stands one of the card.
class Counting {
public:
    explicit Counting(bool counts);
    ~Counting();
    Counting(const Counting&) = delete;
    Counting& operator=(const Counting&) = delete;

private:
    bool before_;
};

/// Bytes held and the most that was held at a time, since the last reset; how often heap was taken.
struct Heap {
    long held = 0;
    long peak = 0;
    long allocations = 0;
};
Heap heap();
void resetHeap();

/// Counts bytes that something else holds for the driver.
void hold(long bytes);

}  // namespace bench
