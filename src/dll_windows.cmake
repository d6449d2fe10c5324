# kelmora-id-minidriver.dll: one export, imports from system DLLs only; loaded by name, never linked.
include(windows_module)
configure_file(platform/windows/version.rc.in "${CMAKE_CURRENT_BINARY_DIR}/version.rc" @ONLY)
set(exports "${CMAKE_CURRENT_SOURCE_DIR}/platform/windows/exports.def")
target_link_libraries(kelmora_driver INTERFACE winscard crypt32 advapi32 bcrypt winhttp ole32 user32)
# Names and lines for debuggers: they go to a file beside the DLL, nothing of them stays in it.
target_compile_options(kelmora_driver PRIVATE -g1 ${KELMORA_STACK_PROTECTION})

add_library(minidriver MODULE frame/dll_main.cpp frame/exported_function.cpp
            platform/windows/exception_memory.cpp platform/windows/fixed_paths.cpp
            platform/windows/load_configuration.cpp
            platform/windows/stack_guard.cpp platform/windows/terminate.cpp
            "${CMAKE_CURRENT_BINARY_DIR}/version.rc")
target_compile_options(minidriver PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-g1>
                       $<$<COMPILE_LANGUAGE:CXX>:${KELMORA_STACK_PROTECTION}>)
# The same once more with all that a debugger wants, and a map of what was taken from where: kept for
# crash dumps and the bill of materials, never installed.
add_library(minidriver_debug MODULE EXCLUDE_FROM_ALL $<TARGET_OBJECTS:minidriver>)
foreach(target IN ITEMS minidriver minidriver_debug)
    target_link_libraries(${target} PRIVATE kelmora_warnings kelmora_driver)
    set_target_properties(${target} PROPERTIES PREFIX "" OUTPUT_NAME kelmora-id-minidriver
                          LINKER_LANGUAGE CXX
                          LINK_DEPENDS "${exports}" LINK_OPTIONS "${exports}")
endforeach()
target_link_options(minidriver PRIVATE -s)
set_target_properties(minidriver PROPERTIES LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
# Under the same name, which stands in the file too: every other byte of the two is the same.
target_link_options(minidriver_debug PRIVATE
                    "--Xlink=-map:${CMAKE_BINARY_DIR}/debug/kelmora-id-minidriver.map")
set_target_properties(minidriver_debug PROPERTIES LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/debug")
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    include(forwarder_windows.cmake)
endif()
