# What every Windows binary of this build is compiled and linked with, for hardening and for equal
# bytes from equal sources: no folder of the building machine and no moment of the build in a file.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
add_link_options(-Wl,--no-insert-timestamp -Wl,--dynamicbase -Wl,--nxcompat)
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    add_link_options(-Wl,--high-entropy-va)
endif()
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    # For the programs of the tests: Wine's own printf functions for ARM64 crash. They go without the
    # protection of the stack, which this toolchain has no library for; the DLL brings its own.
    add_compile_definitions(__USE_MINGW_ANSI_STDIO=1)
    # Variables of a thread lie behind register x18, which Wine for ARM64 does not keep across its own calls.
    add_compile_options(-femulated-tls)
    set(KELMORA_STACK_PROTECTION -fstack-protector-strong)
    set(KELMORA_MAP "-Wl,--Xlink=-map:")
else()
    add_compile_options(-fstack-protector-strong)
    add_compile_definitions($<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
    add_link_options(-fstack-protector-strong)
    set(KELMORA_STACK_PROTECTION)
    set(KELMORA_MAP "-Wl,-Map=")
endif()
