# On ARM64 Windows one System32 and one registry entry serve ARM64 processes and emulated x64 ones: the
# file of the registered name has two views, one for each, and either hands the export on to the DLL of
# that architecture, under names of their own beside it. No code of ours is in it.
find_program(KELMORA_LLD_LINK NAMES lld-link-22 REQUIRED)
set(source "${CMAKE_CURRENT_SOURCE_DIR}/platform/windows/forwarder")
set(forwarder "${CMAKE_BINARY_DIR}/forwarder/kelmora-id-minidriver.dll")
set(objects)
foreach(view IN ITEMS aarch64 arm64ec)
    set(object "${CMAKE_CURRENT_BINARY_DIR}/forwarder_${view}.obj")
    add_custom_command(OUTPUT "${object}"
        COMMAND "${CMAKE_CXX_COMPILER}" --target=${view}-w64-windows-gnu -std=c++20 -Os -Wall -Wextra
                -Wpedantic -Werror "-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=" -c
                "${source}/load_configuration.cpp" -o "${object}"
        DEPENDS "${source}/load_configuration.cpp" VERBATIM)
    list(APPEND objects "${object}")
endforeach()
set(resource "${CMAKE_CURRENT_BINARY_DIR}/forwarder.res")
add_custom_command(OUTPUT "${resource}"
    COMMAND "${CMAKE_RC_COMPILER}" --target=aarch64-w64-mingw32
            "-I${KELMORA_ARM64_RUNTIME}/aarch64-w64-mingw32/include" -O res
            "${CMAKE_CURRENT_BINARY_DIR}/version.rc" "${resource}"
    DEPENDS "${CMAKE_CURRENT_BINARY_DIR}/version.rc" VERBATIM)
add_custom_command(OUTPUT "${forwarder}"
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${CMAKE_BINARY_DIR}/forwarder"
    COMMAND "${KELMORA_LLD_LINK}" /dll /noentry /machine:arm64x "/defarm64native:${source}/arm64.def"
            "/def:${source}/x64.def" ${objects} "${resource}" /dependentloadflag:0x800 /dynamicbase
            /nxcompat /highentropyva /Brepro /build-id /release "/out:${forwarder}" /noimplib
    DEPENDS ${objects} "${resource}" "${source}/arm64.def" "${source}/x64.def" VERBATIM)
add_custom_target(forwarder ALL DEPENDS "${forwarder}")
