# How the DLL is linked: by lld with every part named here, the same on all three architectures. GNU ld
# cannot say in a file that its imports are looked for in System32 only, and GCC's driver takes no other
# linker for this target.
#
# A MODULE library of a folder that includes this file is linked so. Its own link options are lld's.
find_program(KELMORA_LLD NAMES ld.lld-22 REQUIRED)

function(compiler_file variable compiler name)
    execute_process(COMMAND "${compiler}" "-print-file-name=${name}" OUTPUT_VARIABLE file
                    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    if(NOT IS_ABSOLUTE "${file}")
        message(FATAL_ERROR "${compiler} has no ${name}")
    endif()
    set(${variable} "${file}" PARENT_SCOPE)
endfunction()

set(module_entry DllMainCRTStartup)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    set(module_emulation arm64pe)
    compiler_file(start "${CMAKE_CXX_COMPILER}" dllcrt2.o)
    set(module_first "${start}")
    set(module_last)
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-libgcc-file-name OUTPUT_VARIABLE builtins
                    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    set(module_runtime "-lc++ -lunwind -lmingw32 ${builtins} -lmoldname -lmingwex -lmsvcrt")
else()
    # The runtime of the -win32 compiler goes with objects of the -posix one, as long as these use no
    # threads of C++: without it the thread library comes in, and asks Windows for things such as
    # OpenProcess and SetThreadContext that have no place in a logon process.
    string(REPLACE "-posix" "-win32" module_compiler "${CMAKE_CXX_COMPILER}")
    compiler_file(start "${module_compiler}" dllcrt2.o)
    compiler_file(begin "${module_compiler}" crtbegin.o)
    compiler_file(end "${module_compiler}" crtend.o)
    compiler_file(runtime "${module_compiler}" libgcc_eh.a)
    get_filename_component(runtime_folder "${runtime}" DIRECTORY)
    set(module_first "${start} ${begin}")
    set(module_last "${end}")
    set(module_runtime
        "-L${runtime_folder} -lstdc++ -lssp -lmingw32 -lgcc_eh -lgcc -lmoldname -lmingwex -lmsvcrt")
    set(module_emulation i386pep)
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
        set(module_emulation i386pe)
        set(module_entry _DllMainCRTStartup@12)
    endif()
endif()
get_filename_component(module_libraries "${start}" DIRECTORY)

# 0x800: Windows looks for the imports in System32 only, not beside the program. -Brepro and the build
# id make the time stamp and the identity for crash dumps of the content; -release adds the checksum,
# which Windows compares in what a critical process such as lsass loads. Sections begin at whole pages of
# the file, so that they are mapped as they are: Wine would copy every byte otherwise.
string(CONCAT module_hardening "--dynamicbase --nxcompat --dependent-load-flag=0x800"
       " --subsystem=windows --build-id --Xlink=-merge:.buildid=.rdata --Xlink=-Brepro --Xlink=-release"
       " --file-alignment=4096")
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    string(APPEND module_hardening " --high-entropy-va")
else()
    # Exceptions of C++ go by tables here, not by handlers on the stack: none may be called.
    string(APPEND module_hardening " --no-seh")
endif()

string(CONCAT CMAKE_CXX_CREATE_SHARED_MODULE
    "\"${KELMORA_LLD}\" -m ${module_emulation} --shared -Bstatic -e ${module_entry} ${module_hardening}"
    " --gc-sections --icf=all --exclude-all-symbols -o <TARGET> ${module_first} <OBJECTS> <LINK_FLAGS>"
    " <LINK_LIBRARIES> -L${module_libraries} ${module_runtime} -lkernel32 ${module_last}")
# Libraries that CMake adds to every program of this platform; the module names its own.
set(CMAKE_CXX_STANDARD_LIBRARIES "")
