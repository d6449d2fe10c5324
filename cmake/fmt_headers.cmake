# {fmt}, header-only, from the machine's package. Its headers are copied, since the machine's include
# folder itself must not stand on a cross compiler's path.
find_path(FMT_INCLUDE_DIR fmt/format.h PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
set(KELMORA_THIRD_PARTY "${CMAKE_SOURCE_DIR}/build/third_party")
file(COPY "${FMT_INCLUDE_DIR}/fmt" DESTINATION "${KELMORA_THIRD_PARTY}")
add_library(fmt_headers INTERFACE)
target_include_directories(fmt_headers SYSTEM INTERFACE "${KELMORA_THIRD_PARTY}")
# Without the thousands separator's locale: it would pull the C++ locale machinery into the library.
target_compile_definitions(fmt_headers INTERFACE FMT_HEADER_ONLY FMT_STATIC_THOUSANDS_SEPARATOR=',')
