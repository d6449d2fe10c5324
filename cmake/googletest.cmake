# GoogleTest from the machine's sources, built with this build's own compiler and options.
set(INSTALL_GTEST OFF)
set(gtest_force_shared_crt ON)
add_subdirectory(/usr/src/googletest "${CMAKE_BINARY_DIR}/third_party/googletest" EXCLUDE_FROM_ALL
                 SYSTEM)
