# Botan 2: the machine's package for native builds; for a cross build a static one of Debian's sources,
# which tools/build_botan.sh makes on first use and keeps in build/cache, or in KELMORA_CACHE.
add_library(botan INTERFACE)
if(CMAKE_CROSSCOMPILING)
    set(KELMORA_BOTAN_PREFIX "" CACHE PATH "A static Botan for this target; empty: made on first use")
    if(NOT EXISTS "${KELMORA_BOTAN_PREFIX}/libbotan-2.a")
        message(STATUS "Looking for Botan for ${CMAKE_SYSTEM_PROCESSOR} (the first time it is built)")
        execute_process(COMMAND "${CMAKE_SOURCE_DIR}/tools/build_botan.sh" ${CMAKE_SYSTEM_PROCESSOR}
                        OUTPUT_VARIABLE botan_prefix OUTPUT_STRIP_TRAILING_WHITESPACE
                        COMMAND_ERROR_IS_FATAL ANY)
        set_property(CACHE KELMORA_BOTAN_PREFIX PROPERTY VALUE "${botan_prefix}")
    endif()
    target_include_directories(botan SYSTEM INTERFACE "${KELMORA_BOTAN_PREFIX}/build/include")
    target_link_libraries(botan INTERFACE "${KELMORA_BOTAN_PREFIX}/libbotan-2.a" ws2_32 crypt32)
else()
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(BOTAN REQUIRED IMPORTED_TARGET botan-2)
    target_link_libraries(botan INTERFACE PkgConfig::BOTAN)
endif()
