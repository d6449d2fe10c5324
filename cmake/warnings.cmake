# The warnings of all our own code: linked as a target, so that no library's sources get them.
add_library(kelmora_warnings INTERFACE)
target_compile_options(kelmora_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Werror
    # Statuses are unsigned and the platform's status constants signed: GCC leaves this warning out
    # of -Wconversion for C++, clang does not.
    $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>
    # GCC 12 sees an empty std::optional's vector freed where none is, once optimising (its bug 80635).
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>
    # Meant for headers: GCC takes a source file for one where several are compiled as one.
    $<$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>:-Wno-subobject-linkage>)
