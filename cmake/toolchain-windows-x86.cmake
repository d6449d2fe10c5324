# The x86 Windows build.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(wine_architecture x86)
include("${CMAKE_CURRENT_LIST_DIR}/toolchain-windows-gcc.cmake")
