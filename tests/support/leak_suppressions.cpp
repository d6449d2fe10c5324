#include "support/leak_suppressions.h"

const char* __lsan_default_suppressions() {
    return THROWN_POINTERS;
}
