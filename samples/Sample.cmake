# Builds and tests samples. Each is in a folder of its own, where the Agent finds its Bridge.

# torvane_add_sample_host(name folder source...): the target TorvaneSample<name>, a host with the Agent's library beside it.
function(torvane_add_sample_host name folder)
    set(target TorvaneSample${name})
    add_executable(${target} ${ARGN})
    target_include_directories(${target} PRIVATE "${samplesRoot}")
    target_link_libraries(${target} PRIVATE Torvane::TestFlags)
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME ${name}
        RUNTIME_OUTPUT_DIRECTORY "${folder}")
    torvane_add_sample_version(${target} "Torvane sample ${name}")
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND "${CMAKE_COMMAND}" -E copy_if_different "$<TARGET_FILE:TorvaneAgent::TorvaneAgent>" "${folder}"
        VERBATIM)
    add_dependencies(${target} TorvaneAgent::TorvaneAgent)
    torvane_add_to_demo(${target})
endfunction()

# torvane_add_sample_bridge(name folder source...): the target TorvaneSample<name>Bridge, the Bridge for it.
function(torvane_add_sample_bridge name folder)
    set(target TorvaneSample${name}Bridge)
    add_executable(${target} ${ARGN})
    target_include_directories(${target} PRIVATE "${samplesRoot}")
    target_link_libraries(${target} PRIVATE Torvane::Bridge Torvane::TestFlags)
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME TVN_Agent_Bridge_x64
        RUNTIME_OUTPUT_DIRECTORY "${folder}")
    torvane_add_sample_version(${target} "Torvane sample ${name}: its Bridge")
    torvane_add_to_demo(${target})
endfunction()

# An installed package has no template of a version resource.
function(torvane_add_sample_version target description)
    if(COMMAND torvane_add_version_resource)
        torvane_add_version_resource(${target} "${description}")
    endif()
endfunction()

# The target that ./dev demo builds is not part of an installed package.
function(torvane_add_to_demo target)
    if(TARGET TorvaneDemo)
        add_dependencies(TorvaneDemo ${target})
    endif()
endfunction()

# torvane_add_sample_test(name [argument...]): runs the host, and compares what it prints with the file expected.txt
# beside its source. The arguments are further ones for RunSample.cmake. Through Wine only.
function(torvane_add_sample_test name)
    if(TORVANE_BUILD_TESTS AND NOT CMAKE_HOST_WIN32)
        add_test(NAME ${name}.Sample
            COMMAND "${CMAKE_COMMAND}" "-DPROGRAM=$<TARGET_FILE:TorvaneSample${name}>"
                    "-DRUNNER=${PROJECT_SOURCE_DIR}/cmake/run-in-wine" "-DWINE_PREFIX=${TORVANE_WINE_PREFIX}"
                    "-DEXPECTED=${CMAKE_CURRENT_SOURCE_DIR}/expected.txt" ${ARGN}
                    -P "${PROJECT_SOURCE_DIR}/samples/RunSample.cmake")
        set_tests_properties(${name}.Sample PROPERTIES TIMEOUT 300)
    endif()
endfunction()

# torvane_add_sample_demo(name [argument...]): a test that the script demo of the current folder succeeds.
function(torvane_add_sample_demo name)
    if(NOT TORVANE_BUILD_TESTS OR CMAKE_HOST_WIN32)
        return()
    endif()
    string(JOIN "" options ${ARGN})
    add_test(NAME ${name}.Demo${options} COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/demo" ${ARGN})
    set_tests_properties(${name}.Demo${options} PROPERTIES
        ENVIRONMENT "TORVANE_BIN_DIR=${TORVANE_BIN_DIR};TORVANE_BUILD_DIR=${CMAKE_BINARY_DIR};\
WINEPREFIX=${TORVANE_WINE_PREFIX};WINEDEBUG=-all;WINEDLLOVERRIDES=mscoree,mshtml,winemenubuilder.exe,winedbg.exe="
        RESOURCE_LOCK ${name}
        TIMEOUT 300)
endfunction()
