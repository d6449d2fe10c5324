# Suites: a test program is one test of ctest, started once, with Wine in front of it in a cross build.
# What it says of each of its tests goes to test-results/NAME.xml, by which tools/run_tests.py counts.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
add_custom_target(unit_programs)
add_custom_target(test_programs)
# What a script puts ahead of a program of this build: Wine, or nothing.
list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " KELMORA_LAUNCHER)
file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/test-results")

# use_shared_prefix(NAME): the test starts programs in the Wine prefix of its architecture. One test at a
# time does: all drivers of a prefix write into one log file, and a suite that reads it would find the
# lines of another program there.
function(use_shared_prefix name)
    if(CMAKE_CROSSCOMPILING)
        set_tests_properties(${name} PROPERTIES RESOURCE_LOCK wine_prefix)
    endif()
endfunction()

# add_suite(NAME LABEL TARGET [SHARDS number] [CONFIGURATIONS name]): all tests of a GoogleTest program; in so
# many starts of it, where one alone would keep a core waiting; with a configuration only where ctest is asked
# for that.
function(add_suite name label target)
    cmake_parse_arguments(PARSE_ARGV 3 suite "" "SHARDS;CONFIGURATIONS" "")
    file(RELATIVE_PATH results "${CMAKE_CURRENT_BINARY_DIR}" "${CMAKE_BINARY_DIR}/test-results")
    set(shards 1 ${suite_SHARDS})
    list(GET shards -1 shards)
    foreach(shard RANGE 1 ${shards})
        set(test ${name})
        math(EXPR index "${shard} - 1")
        if(shards GREATER 1)
            set(test ${name}.${shard})
        endif()
        add_test(NAME ${test}
                 COMMAND ${target} "--gtest_output=xml:${results}/${test}.xml" --gtest_brief=1
                 CONFIGURATIONS ${suite_CONFIGURATIONS}
                 WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
        # 77 is how tools/run_in_wine.sh says that the machine does not allow it, and why. tests/system/wine
        # sees that nothing else counts as that.
        set_tests_properties(${test} PROPERTIES LABELS ${label} TIMEOUT 600 SKIP_RETURN_CODE 77
            ENVIRONMENT "GTEST_TOTAL_SHARDS=${shards};GTEST_SHARD_INDEX=${index}")
        use_shared_prefix(${test})
    endforeach()
    add_dependencies(test_programs ${target})
    if(label STREQUAL "unit")
        add_dependencies(unit_programs ${target})
    endif()
endfunction()

# add_script(NAME LABEL SCRIPT ARGUMENT...): a Python program. Its results are counted by the lines that
# unittest writes, or by those that begin with "ok - " or "not ok - "; without such it is one test.
function(add_script name label script)
    add_test(NAME ${name} COMMAND "${Python3_EXECUTABLE}" -B "${script}" ${ARGN}
             WORKING_DIRECTORY "${CMAKE_SOURCE_DIR}")
    set_tests_properties(${name} PROPERTIES LABELS ${label} TIMEOUT 900)
endfunction()
