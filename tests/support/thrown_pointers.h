// Errors that are thrown as pointers: nobody frees them, and the leak checker is told of each when
// it is thrown. So everything else that leaks still fails a test, and tests count how many these
// are.
#pragma once

namespace KelmoraID::testing {

/// How many objects the code of this program has thrown as pointers so far.
int thrownPointers();
/// Where set, is given each of them as it is thrown. It must not throw, nor allocate.
extern void (*onThrownPointer)(void* error);

}  // namespace KelmoraID::testing
