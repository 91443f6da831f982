# Copies the project SOURCE to the folder COPY, builds it there, and runs its hosts. The build folder is kept between runs.
#   ARGUMENTS   for the project's configuration, with | between them
#   PREFERENCES file with a time-out for a busy machine
#   VERSION     the Agent's
string(REPLACE "|" ";" arguments "${ARGUMENTS}")
file(COPY "${SOURCE}/" DESTINATION "${COPY}/source")
execute_process(
    COMMAND "${CMAKE_COMMAND}" -S "${COPY}/source" -B "${COPY}/build" -G Ninja
            "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}" -DCMAKE_BUILD_TYPE=RelWithDebInfo ${arguments}
    COMMAND_ERROR_IS_FATAL ANY)
file(REMOVE_RECURSE "${COPY}/build/bin") # the library and the Bridge have to be copied again
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${COPY}/build" COMMAND_ERROR_IS_FATAL ANY)

# run_hosts(status): the status of the connection that both have to print.
function(run_hosts status)
    foreach(host Linked Loaded)
        execute_process(
            COMMAND "${RUNNER}" --prefix "${WINE_PREFIX}" "${COPY}/build/bin/${host}.exe"
            OUTPUT_VARIABLE output RESULT_VARIABLE result TIMEOUT 120)
        string(REPLACE "\r" "" output "${output}")
        if(NOT result EQUAL 0 OR NOT output STREQUAL "version ${VERSION}\nstatus ${status}\ndone\n")
            message(FATAL_ERROR "${host} ended with ${result} and said:\n${output}")
        endif()
        message("${host} says: ${output}")
    endforeach()
endfunction()

file(COPY "${PREFERENCES}" DESTINATION "${COPY}/Broker")
run_hosts(0)
file(REMOVE "${COPY}/build/bin/TVN_Agent_Bridge_x64.exe")
file(REMOVE_RECURSE "${COPY}/Broker")
run_hosts(1)

# The one that loads the library doesn't import it: without the library it starts, and says so by its exit code.
file(REMOVE_RECURSE "${COPY}/alone")
file(COPY "${COPY}/build/bin/Loaded.exe" DESTINATION "${COPY}/alone")
execute_process(COMMAND "${RUNNER}" --prefix "${WINE_PREFIX}" "${COPY}/alone/Loaded.exe"
    RESULT_VARIABLE result TIMEOUT 120)
if(NOT result EQUAL 1)
    message(FATAL_ERROR "Without the library Loaded ended with ${result}")
endif()
