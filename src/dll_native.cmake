# libkelmora-id-minidriver.so: the same code over the stand-in platform in posix/.
target_link_libraries(kelmora_driver PUBLIC posix)

add_library(minidriver SHARED frame/dll_main.cpp frame/exported_function.cpp
            "${CMAKE_SOURCE_DIR}/posix/fixed_paths.cpp" "${CMAKE_SOURCE_DIR}/posix/library_load.cpp")
target_link_libraries(minidriver PRIVATE kelmora_warnings kelmora_driver winscard)
# Not by the precompiled header, which holds for names that stay inside.
set_source_files_properties(frame/exported_function.cpp PROPERTIES COMPILE_OPTIONS
                            -fvisibility=default SKIP_PRECOMPILE_HEADERS ON)
target_link_options(minidriver PRIVATE -Wl,--gc-sections -Wl,-z,relro,-z,now
    "-Wl,--version-script=${CMAKE_SOURCE_DIR}/posix/exports.map")
if(NOT KELMORA_SANITIZERS)
    # A call that nothing implements fails here and not where the library is loaded. The sanitizers'
    # own names come from the program alone.
    target_link_options(minidriver PRIVATE -Wl,-z,defs)
endif()
set_target_properties(minidriver PROPERTIES OUTPUT_NAME kelmora-id-minidriver
                      LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}"
                      BUILD_RPATH "$ORIGIN" BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "$ORIGIN")
