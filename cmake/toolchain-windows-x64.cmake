# The x64 Windows build.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(wine_architecture x64)
include("${CMAKE_CURRENT_LIST_DIR}/toolchain-windows-gcc.cmake")
