# libkelmora-id-minidriver.so: the same code over the stand-in platform.
find_package(PkgConfig REQUIRED)
pkg_check_modules(PCSCLITE REQUIRED IMPORTED_TARGET libpcsclite)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)

# The stand-in platform but for what is chosen at link time: the fixed paths, what stands behind the
# card seam, and the loader's call.
file(GLOB platform_sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/platform/posix/*.cpp")
list(FILTER platform_sources EXCLUDE REGEX
     "/(winscard_pcsclite|fixed_paths|library_load)\\.cpp$")
if(platform_sources)
    add_library(kelmora_platform STATIC ${platform_sources})
    target_include_directories(kelmora_platform PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}")
    target_link_libraries(kelmora_platform PUBLIC botan PkgConfig::CURL ${CMAKE_DL_LIBS}
                          PRIVATE kelmora_warnings)
    # Of a member of the group of archives, so that it stands behind all of it on the linker's line.
    target_link_libraries(kelmora_diag INTERFACE kelmora_platform)
endif()

if(EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/platform/posix/winscard_pcsclite.cpp")
    # The card seam as a library of its own, like winscard.dll on Windows: whoever loads another
    # library of this name first decides what stands behind it.
    add_library(winscard SHARED platform/posix/winscard_pcsclite.cpp platform/posix/utf_text.cpp)
    target_include_directories(winscard PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}")
    # Only the header of PC/SC lite: its library has the same names and is loaded apart.
    target_include_directories(winscard SYSTEM PRIVATE ${PCSCLITE_INCLUDE_DIRS})
    target_link_libraries(winscard PRIVATE kelmora_warnings ${CMAKE_DL_LIBS})
    target_compile_options(winscard PRIVATE -fvisibility=default)
    target_link_options(winscard PRIVATE
        "-Wl,--version-script=${CMAKE_CURRENT_SOURCE_DIR}/platform/posix/winscard.map")
    set_target_properties(winscard PROPERTIES OUTPUT_NAME kelmora-winscard
                          LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")

    add_library(minidriver SHARED frame/dll_main.cpp platform/posix/fixed_paths.cpp
                platform/posix/library_load.cpp)
    # The group by itself: behind kelmora_subsystems the card seam would stand ahead of its callers.
    target_link_libraries(minidriver PRIVATE kelmora_warnings
                          "$<LINK_GROUP:RESCAN,${KELMORA_LIBRARY_GROUP}>" kelmora_platform winscard)
    # The export stands in an archive, hidden like all of it, and nothing here calls it.
    set_source_files_properties(frame/acquisition.cpp PROPERTIES COMPILE_OPTIONS
                                -fvisibility=default)
    target_link_options(minidriver PRIVATE -Wl,--gc-sections -Wl,-z,relro,-z,now
        -Wl,--undefined=CardAcquireContext
        "-Wl,--version-script=${CMAKE_CURRENT_SOURCE_DIR}/platform/posix/exports.map")
    if(NOT KELMORA_SANITIZERS)
        # A call that nothing implements fails here and not where the library is loaded. The
        # sanitizers' own names come from the program alone.
        target_link_options(minidriver PRIVATE -Wl,-z,defs)
    endif()
    set_target_properties(minidriver PROPERTIES OUTPUT_NAME kelmora-id-minidriver
                          LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}"
                          BUILD_RPATH "$ORIGIN" BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "$ORIGIN")
endif()
