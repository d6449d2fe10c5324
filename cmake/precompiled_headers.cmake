# precompile(TARGET [HEADER...]): the headers that most files of a target take, parsed once: those of the
# system and, for the sake of windows.h, platform/win32.h, so that no other change of ours compiles
# everything anew. A file still includes what it uses: clang-tidy reads each file without them, and
# CMAKE_DISABLE_PRECOMPILE_HEADERS builds without them. Where several files are compiled as one, nothing is
# precompiled: that would take longer than it saves.
function(precompile target)
    if(CMAKE_UNITY_BUILD)
        return()
    endif()
    set(headers <algorithm> <array> <cstddef> <cstdint> <cstdlib> <cstring> <filesystem> <fstream>
        <functional> <map> <memory> <optional> <span> <stdexcept> <string> <string_view> <utility> <vector>
        ${ARGN})
    list(TRANSFORM headers REPLACE "^([^<].*)$" "\"\\1\"")
    list(TRANSFORM headers PREPEND "#include ")
    list(JOIN headers "\n" text)
    # A precompiled header holds the path of the folder that it was made in. It gets the folder's name as
    # text too: so ccache never hands over one that was made elsewhere.
    set(header "${CMAKE_BINARY_DIR}/precompiled/${target}.h")
    file(CONFIGURE OUTPUT "${header}" @ONLY CONTENT
"// Made by cmake/precompiled_headers.cmake.
${text}
[[maybe_unused]] constexpr char precompiledIn[] = \"${CMAKE_BINARY_DIR}\";
")
    target_precompile_headers(${target} PRIVATE "${header}")
    # What ccache needs to keep a precompiled header, and what is compiled with it.
    target_compile_options(${target} PRIVATE
        $<$<COMPILE_LANG_AND_ID:CXX,Clang>:SHELL:-Xclang -fno-pch-timestamp>
        $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fpch-preprocess>)
endfunction()
