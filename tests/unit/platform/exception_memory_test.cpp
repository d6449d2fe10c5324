// Exceptions where there is no memory, thrown with the driver's own allocation of them, which is
// linked into this program. On Windows too: the header ahead of an exception is another one on each
// platform.
#include <cxxabi.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <set>

namespace {

bool outOfMemory = false;
char* lastBlock = nullptr;

// As many as there is a place for in the reserve.
constexpr int reserved = 64;

// The first exception of a thread takes memory of the library's own, for its record of the thread;
// and on x86 the first of a process for its table of frames.
void throwFirst() {
    try {
        throw 0;
    } catch (int) {
    }
}

// Throws so many exceptions, each while the one before is being handled, and returns how many
// places they were thrown in.
void throwNested(int depth, std::set<const int*>& places) {
    try {
        throw depth;
    } catch (const int& thrown) {
        if (depth > 1) throwNested(depth - 1, places);
        outOfMemory = false;
        EXPECT_EQ(thrown, depth);
        places.insert(&thrown);
    }
}

std::size_t placesOf(int exceptions) {
    std::set<const int*> places;
    throwFirst();
    outOfMemory = true;
    throwNested(exceptions, places);
    return places.size();
}

}  // namespace

extern "C" {

void* __real_malloc(std::size_t bytes);

void* __wrap_malloc(std::size_t bytes) {
    return outOfMemory ? nullptr : lastBlock = static_cast<char*>(__real_malloc(bytes));
}

}  // extern "C"

TEST(ExceptionMemory, TheLibrarysHeaderLiesWithinTheBlock) {
    throwFirst();
    // The library's record of a thread begins with the header of what is being handled.
    auto* const* handled = reinterpret_cast<char**>(abi::__cxa_get_globals());
    try {
        throw 7;
    } catch (const int& thrown) {
        const char* block = lastBlock;
        const char* header = *handled;
        // Ahead of it stands the count of holders.
        EXPECT_GE(header, block + sizeof(int));
        EXPECT_LT(header, reinterpret_cast<const char*>(&thrown));
        EXPECT_EQ(thrown, 7);
    }
}

TEST(ExceptionMemory, WithoutMemoryTheReserveTakesThem) {
    for (int round = 0; round < 3; ++round)
        EXPECT_EQ(placesOf(reserved), static_cast<std::size_t>(reserved));
}

#if GTEST_HAS_DEATH_TEST
namespace {

void sayWhenTerminated() {
    std::set_terminate([] {
        outOfMemory = false;
        std::fputs("terminated", stderr);
        std::_Exit(1);
    });
}

}  // namespace

TEST(ExceptionMemoryDeathTest, BeyondTheReserveTheProcessEnds) {
    EXPECT_DEATH(
        {
            sayWhenTerminated();
            placesOf(reserved + 1);
        },
        "terminated");
}

TEST(ExceptionMemoryDeathTest, AnObjectBeyondAReservedBlockEndsTheProcess) {
    struct Large {
        char bytes[1024];
    };
    EXPECT_DEATH(
        {
            sayWhenTerminated();
            throwFirst();
            outOfMemory = true;
            throw Large();
        },
        "terminated");
}
#endif
