# machine_headers(TARGET PACKAGE IMPORTED HEADER): a header-only library from the machine's package. A cross
# build takes a copy of its folder, below the build folder: the machine's include folder itself must not
# stand on a cross compiler's path.
function(machine_headers target package imported header)
    if(NOT CMAKE_CROSSCOMPILING)
        find_package(${package} REQUIRED)
        set_target_properties(${imported} PROPERTIES IMPORTED_GLOBAL ON)
        add_library(${target} ALIAS ${imported})
        return()
    endif()
    copy_machine_headers(${header} copied)
    add_library(${target} INTERFACE)
    target_include_directories(${target} SYSTEM INTERFACE "${copied}")
endfunction()

# copy_machine_headers(HEADER VARIABLE): the folder below which the copy stands, into VARIABLE.
function(copy_machine_headers header variable)
    cmake_path(GET header PARENT_PATH folder)
    find_path(${folder}_INCLUDE_DIR ${header} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    set(copied "${CMAKE_BINARY_DIR}/third_party/${folder}")
    file(COPY "${${folder}_INCLUDE_DIR}/${folder}" DESTINATION "${copied}")
    set(${variable} "${copied}" PARENT_SCOPE)
endfunction()
