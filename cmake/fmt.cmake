# {fmt}, compiled once: the machine's library for native builds; for cross builds one made here of the
# same package's headers.
if(NOT CMAKE_CROSSCOMPILING)
    find_package(fmt REQUIRED)
    return()
endif()
copy_machine_headers(fmt/format.h fmt_headers)
add_library(fmt STATIC "${CMAKE_CURRENT_LIST_DIR}/fmt_library.cpp")
add_library(fmt::fmt ALIAS fmt)
target_include_directories(fmt SYSTEM PUBLIC "${fmt_headers}")
# Without the thousands separator's locale: it would pull the C++ locale machinery into the DLL. And
# without fractions: no text of ours holds one, and they would be a third of the DLL.
target_compile_definitions(fmt PUBLIC FMT_STATIC_THOUSANDS_SEPARATOR=','
                           FMT_USE_FLOAT=0 FMT_USE_DOUBLE=0 FMT_USE_LONG_DOUBLE=0)
target_compile_options(fmt PRIVATE -ffunction-sections -fdata-sections)
