# The test library and the functions that make tests of sources.

torvane_find_parts(googletest)
if(googletest_FOUND)
    add_library(TorvaneGoogleTest INTERFACE)
    target_link_libraries(TorvaneGoogleTest INTERFACE GTest::gtest_main Torvane::CppLibrary)
else()
    set(googletest "${googletest_SOURCE_DIR}/googletest")
    add_library(TorvaneGoogleTest STATIC EXCLUDE_FROM_ALL
        "${googletest}/src/gtest-all.cc" "${googletest}/src/gtest_main.cc")
    target_include_directories(TorvaneGoogleTest SYSTEM PUBLIC "${googletest}/include")
    target_include_directories(TorvaneGoogleTest PRIVATE "${googletest}")
    target_compile_options(TorvaneGoogleTest PRIVATE -fno-exceptions $<IF:$<BOOL:${WIN32}>,-fno-rtti,-fshort-wchar>)
    target_link_libraries(TorvaneGoogleTest PUBLIC Torvane::CppLibrary)
    set_target_properties(TorvaneGoogleTest PROPERTIES ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
endif()
if(TORVANE_ARCHITECTURE STREQUAL x86)
    target_sources(TorvaneGoogleTest INTERFACE "${CMAKE_CURRENT_SOURCE_DIR}/tests/Support/ThreadNameHandler.cpp")
endif()
add_library(Torvane::GoogleTest ALIAS TorvaneGoogleTest)

# torvane_precompile_test_headers(target): for programs of many sources, most of whose time goes into these headers.
function(torvane_precompile_test_headers target)
    target_precompile_headers(${target} PRIVATE <gtest/gtest.h> <string> <vector>)
    if(WIN32)
        target_precompile_headers(${target} PRIVATE <windows.h>)
    endif()
endfunction()

# torvane_add_test_suites(target prefix)
# Each suite of a GoogleTest program becomes a test <prefix>.<suite>. Each of its tests has a time limit.
function(torvane_add_test_suites target prefix)
    target_sources(${target} PRIVATE "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../tests/Support/TestLimit.cpp")
    set(script "${CMAKE_CURRENT_BINARY_DIR}/${target}Suites.cmake")
    file(GENERATE OUTPUT "${script}" CONTENT "\
set(program [[$<TARGET_FILE:${target}>]])
set(command [[${CMAKE_CROSSCOMPILING_EMULATOR};$<TARGET_FILE:${target}>]])
set(list [[${CMAKE_CURRENT_BINARY_DIR}/${target}Suites.txt]])
set(prefix ${prefix})
set(timeout 600)
include([[${CMAKE_CURRENT_FUNCTION_LIST_DIR}/TorvaneTestSuites.cmake]])
")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${script}")
endfunction()

# torvane_add_integration_tests(target [PROPERTIES name value...])
# Each test of a GoogleTest program becomes a test of its own, in a process of its own.
function(torvane_add_integration_tests target)
    include(GoogleTest)
    cmake_parse_arguments(PARSE_ARGV 1 argument "" "" "PROPERTIES")
    gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
        PROPERTIES TIMEOUT 900 ${argument_PROPERTIES})
endfunction()
