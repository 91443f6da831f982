# A sample is a host and a Bridge of its own in one folder, where the Agent finds its Bridge.

# The Bridge that the host's Agent spawns; its sources register a scenario.
function(torvane_add_sample_bridge name)
    add_executable(${name}Bridge ${ARGN} "${PROJECT_SOURCE_DIR}/bridge/Main.cpp")
    target_link_libraries(${name}Bridge PRIVATE Torvane::Bridge)
    set_target_properties(${name}Bridge PROPERTIES
        OUTPUT_NAME TVN_Agent_Bridge_x64
        RUNTIME_OUTPUT_DIRECTORY "${TORVANE_BIN_DIR}/${name}")
endfunction()

# The host, with the Agent beside it.
function(torvane_add_sample_host name)
    add_executable(${name} ${ARGN})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
    target_link_libraries(${name} PRIVATE Torvane::TestFlags)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${TORVANE_BIN_DIR}/${name}")
    add_custom_command(TARGET ${name} POST_BUILD
        COMMAND "${CMAKE_COMMAND}" -E copy_if_different "$<TARGET_FILE:Agent>" "${TORVANE_BIN_DIR}/${name}"
        VERBATIM)
    add_dependencies(${name} Agent)
endfunction()

# A test that the script demo of the current folder comes to a good end with these arguments.
function(torvane_add_sample_demo name)
    if(NOT TORVANE_BUILD_TESTS)
        return()
    endif()
    string(JOIN "" options ${ARGN})
    add_test(NAME ${name}.Demo${options} COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/demo" ${ARGN})
    set_tests_properties(${name}.Demo${options} PROPERTIES
        ENVIRONMENT "TORVANE_BIN_DIR=${TORVANE_BIN_DIR};TORVANE_BUILD_DIR=${CMAKE_BINARY_DIR};\
WINEPREFIX=${TORVANE_WINE_PREFIX};WINEDEBUG=-all;WINEDLLOVERRIDES=mscoree,mshtml,winemenubuilder.exe="
        RESOURCE_LOCK ${name}
        TIMEOUT 300)
endfunction()
