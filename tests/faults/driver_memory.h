// The memory of the driver: what operator new gives while the driver runs, counted, made to fail,
// and looked at when it is given back. Program-wide, so that a program links it or not; memory that
// the tests and the stand-in platform take is none of it.
#pragma once

#include <cstddef>
#include <functional>

#include "platform/win32.h"

namespace faults {

/// The driver runs from here to the end of this object: put around each call of an entry point.
class InsideDriver {
public:
    InsideDriver();
    ~InsideDriver();
    InsideDriver(const InsideDriver&) = delete;
    InsideDriver& operator=(const InsideDriver&) = delete;

private:
    bool before_;
};

/// The driver has called the platform, until the end of this object.
class OutsideDriver {
public:
    OutsideDriver();
    ~OutsideDriver();
    OutsideDriver(const OutsideDriver&) = delete;
    OutsideDriver& operator=(const OutsideDriver&) = delete;

private:
    bool before_;
};

/// The same by hand, for calls that begin and end in different functions.
bool isInsideDriver();
void setInsideDriver(bool isInside);

/// Lets the n-th allocation (from 1) from now on fail; 0 for none. A count of the allocations
/// begins anew.
void failDriverAllocation(long n);
/// How many there were since.
long driverAllocations();
/// Whether the one that was to fail has been asked for.
bool driverAllocationFailed();

/// What the driver has taken and not given back.
struct Held {
    std::size_t blocks = 0;
    std::size_t bytes = 0;
};
Held heldByDriver();
/// Forgets what is held so far: from here on it is nobody's.
void forgetHeld();

/// Is shown each block of the driver's as it is given back, while it can still be read.
extern std::function<void(const void* block, std::size_t size)> onGivenBack;

}  // namespace faults
