# Exit codes of a Bridge that fails, and the status that its host reports.
#   HOST                the sample PlainC, with the default Bridge beside it
#   RUNNER, WINE_PREFIX cmake/run-in-wine and the prefix for it
#   FOLDER              for the recordings, created anew
cmake_path(GET HOST PARENT_PATH hostFolder)
set(bridge "${hostFolder}/TVN_Agent_Bridge_x64.exe")
if(NOT EXISTS "${bridge}")
    message(FATAL_ERROR "${bridge} is missing: build the preset windows-x64 first")
endif()
file(REMOVE_RECURSE "${FOLDER}")
file(MAKE_DIRECTORY "${FOLDER}")
string(REPLACE "/" "\\" windowsFolder "Z:${FOLDER}")

# run(recording program argument...): sets `result` and `output`.
function(run recording)
    execute_process(
        COMMAND "${CMAKE_COMMAND}" -E env "TORVANE_BRIDGE_RECORDING=${recording}" "${RUNNER}" --prefix "${WINE_PREFIX}" ${ARGN}
        OUTPUT_VARIABLE output RESULT_VARIABLE result TIMEOUT 120)
    string(REPLACE "\r" "" output "${output}")
    set(output "${output}" PARENT_SCOPE)
    set(result "${result}" PARENT_SCOPE)
endfunction()

function(expect what actual expected)
    if(NOT actual STREQUAL expected)
        message(SEND_ERROR "${what}: ${actual} instead of ${expected}")
    endif()
endfunction()

run("" "${bridge}")
expect("A Bridge without a host" "${result}" 64)
foreach(recording "${windowsFolder}\\missing\\r.jsonl" "${windowsFolder}\\a*b.jsonl" "${windowsFolder}\\")
    run("${recording}" "${bridge}" 4)
    expect("A Bridge that can't make ${recording}" "${result}" 73)
endforeach()

# A host without the preferences that set a long limit for the connection.
set(folderOfImpatient "${FOLDER}/host/impatient/x86")
cmake_path(GET HOST FILENAME hostName)
file(COPY "${hostFolder}/" DESTINATION "${folderOfImpatient}")
run("${windowsFolder}\\missing\\r.jsonl" "${folderOfImpatient}/${hostName}")
expect("What the host of such a Bridge says" "${output}" "host  connection status 1\nhost  ended\n")
expect("How the host of such a Bridge ends" "${result}" 1)
file(GLOB left "${FOLDER}/*")
expect("What is left" "${left}" "${FOLDER}/host")

# With a place for it, the same host has a connection.
run("${windowsFolder}\\r.jsonl" "${HOST}")
expect("What a recorded host says" "${output}" "host  connection status 0\nhost  ended\n")
expect("How a recorded host ends" "${result}" 0)
if(NOT EXISTS "${FOLDER}/r.jsonl")
    message(SEND_ERROR "There is no recording of it")
endif()
