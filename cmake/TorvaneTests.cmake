# The test library and the functions that make tests of sources.

set(TORVANE_GOOGLETEST_DIR /usr/src/googletest/googletest CACHE PATH "GoogleTest's sources")
add_library(GoogleTest STATIC EXCLUDE_FROM_ALL
    "${TORVANE_GOOGLETEST_DIR}/src/gtest-all.cc" "${TORVANE_GOOGLETEST_DIR}/src/gtest_main.cc")
target_include_directories(GoogleTest SYSTEM PUBLIC "${TORVANE_GOOGLETEST_DIR}/include")
target_include_directories(GoogleTest PRIVATE "${TORVANE_GOOGLETEST_DIR}")
target_compile_options(GoogleTest PRIVATE -fno-exceptions $<IF:$<BOOL:${WIN32}>,-fno-rtti,-fshort-wchar>)
target_link_libraries(GoogleTest PUBLIC Torvane::CppLibrary)
if(TORVANE_ARCHITECTURE STREQUAL x86)
    target_sources(GoogleTest INTERFACE "${CMAKE_CURRENT_SOURCE_DIR}/tests/Support/ThreadNameHandler.cpp")
endif()
if(WIN32)
    set_target_properties(GoogleTest PROPERTIES ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
endif()
add_library(Torvane::GoogleTest ALIAS GoogleTest)

# All unit tests of this preset in one program, run as one test.
function(torvane_add_unit_tests)
    if(NOT TORVANE_UNIT_TEST_SOURCES OR TORVANE_ARCHITECTURE STREQUAL x64)
        return()
    endif()
    add_executable(UnitTests ${TORVANE_UNIT_TEST_SOURCES})
    target_link_libraries(UnitTests PRIVATE Torvane::TestFlags Torvane::GoogleTest)
    if(TORVANE_ARCHITECTURE STREQUAL x86)
        target_link_libraries(UnitTests PRIVATE AgentObjects)
    else()
        add_library(NativeObjects OBJECT ${TORVANE_NATIVE_SOURCES})
        target_link_libraries(NativeObjects PRIVATE Torvane::Flags Torvane::InstructionDecoder)
        target_include_directories(NativeObjects PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
        target_link_libraries(UnitTests PRIVATE NativeObjects)
    endif()
    add_test(NAME UnitTests COMMAND UnitTests)
    set_tests_properties(UnitTests PROPERTIES TIMEOUT 600)
endfunction()

# torvane_add_integration_tests(target [PROPERTIES name value...])
# Each test of a GoogleTest program becomes a test of its own, in a process of its own.
function(torvane_add_integration_tests target)
    include(GoogleTest)
    cmake_parse_arguments(PARSE_ARGV 1 argument "" "" "PROPERTIES")
    gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
        PROPERTIES TIMEOUT 900 ${argument_PROPERTIES})
endfunction()
