# CLI11, header-only, from the machine's package; copied for the reason told in fmt.cmake.
find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
file(COPY "${CLI11_INCLUDE_DIR}/CLI" DESTINATION "${CMAKE_BINARY_DIR}/third_party_cli11")
add_library(cli11_headers INTERFACE)
target_include_directories(cli11_headers SYSTEM INTERFACE "${CMAKE_BINARY_DIR}/third_party_cli11")
