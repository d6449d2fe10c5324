# GoogleTest from the machine's sources, built with this build's own compiler and options.
set(INSTALL_GTEST OFF)
set(gtest_force_shared_crt ON)
add_subdirectory(/usr/src/googletest "${CMAKE_BINARY_DIR}/third_party/googletest" EXCLUDE_FROM_ALL
                 SYSTEM)
if(WIN32)
    # Optimised it would take three times as long to compile, and it is no part of what is tested.
    target_compile_options(gtest PRIVATE -O0)
    target_compile_options(gmock PRIVATE -O0)
endif()
