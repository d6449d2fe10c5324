# Where ccache is installed, builds of this tree share what they compile, whatever their folder below
# build/ is called: a second build of the same sources costs seconds.
# It goes by the list of headers that the compiler writes anyway: no run of the preprocessor ahead.
find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env
        "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}" CCACHE_NOHASHDIR=1
        CCACHE_SLOPPINESS=pch_defines,time_macros CCACHE_DEPEND=1 "${CCACHE_PROGRAM}")
    set(CMAKE_C_COMPILER_LAUNCHER "${CMAKE_CXX_COMPILER_LAUNCHER}")
endif()
