# Makes a test of each suite of a GoogleTest program, so that ctest names the one that fails without a process for every
# test. Included by ctest before it runs anything, from a script of torvane_add_test_suites, with these set:
#   program   the program
#   command   how it is run: the program, after the emulator if there is one
#   list      file that keeps its list of tests; made again when the program is newer
#   prefix    of the tests' names: <prefix>.<suite>
#   timeout   of each test, in seconds
if(NOT EXISTS "${program}")
    add_test("${prefix}.NOT_BUILT" "${program}-is-missing")
    return()
endif()

if("${program}" IS_NEWER_THAN "${list}")
    execute_process(COMMAND ${command} --gtest_list_tests
        OUTPUT_VARIABLE output RESULT_VARIABLE result TIMEOUT 120)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${program} doesn't list its tests: ${result}\n${output}")
    endif()
    file(WRITE "${list}" "${output}")
endif()

file(STRINGS "${list}" suites REGEX "^[A-Za-z0-9_/]+\\.")
if(NOT suites)
    message(FATAL_ERROR "${program} has no tests")
endif()
foreach(suite IN LISTS suites)
    string(REGEX REPLACE "\\..*" "" suite "${suite}")
    add_test("${prefix}.${suite}" ${command} "--gtest_filter=${suite}.*")
    set_tests_properties("${prefix}.${suite}" PROPERTIES TIMEOUT "${timeout}")
endforeach()
