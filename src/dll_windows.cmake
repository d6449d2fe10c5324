# kelmora-id-minidriver.dll: one export, imports from system DLLs only.
configure_file(platform/windows/version.rc.in "${CMAKE_CURRENT_BINARY_DIR}/version.rc" @ONLY)
add_library(minidriver SHARED frame/dll_main.cpp frame/exported_function.cpp
            platform/windows/fixed_paths.cpp
            platform/windows/exports.def "${CMAKE_CURRENT_BINARY_DIR}/version.rc")
target_link_libraries(minidriver PRIVATE kelmora_warnings kelmora_driver)
target_link_libraries(kelmora_driver INTERFACE winscard crypt32 advapi32 bcrypt winhttp ole32 user32)
target_link_options(minidriver PRIVATE -static -Wl,--gc-sections -Wl,--enable-stdcall-fixup
                    -Wl,--exclude-all-symbols $<$<CONFIG:Release>:-s>)
set_target_properties(minidriver PROPERTIES OUTPUT_NAME kelmora-id-minidriver PREFIX ""
                      RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
