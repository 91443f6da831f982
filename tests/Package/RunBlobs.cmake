# Runs the installed blobs.exe on the installed recordings, in a new FOLDER.
file(REMOVE_RECURSE "${FOLDER}")
file(MAKE_DIRECTORY "${FOLDER}")

# run(status argument...): sets `output`, to which the runner adds the errors.
function(run status)
    execute_process(
        COMMAND "${RUNNER}" --prefix "${WINE_PREFIX}" "${PACKAGE}/bin/blobs.exe" ${ARGN}
        WORKING_DIRECTORY "${FOLDER}"
        OUTPUT_VARIABLE output RESULT_VARIABLE result TIMEOUT 120)
    if(NOT result EQUAL status)
        message(FATAL_ERROR "blobs ${ARGN} ended with ${result}: ${output}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect_match what text expression)
    if(NOT text MATCHES "${expression}")
        message(SEND_ERROR "${what} lacks ${expression}:\n${text}")
    endif()
endfunction()

foreach(name reload crash)
    file(COPY "${PACKAGE}/samples/recordings/${name}.jsonl" DESTINATION "${FOLDER}")
endforeach()
run(0 list reload.jsonl)
string(REGEX MATCHALL "\n" lines "${output}")
list(LENGTH lines count)
if(NOT count EQUAL 53)
    message(SEND_ERROR "The list has ${count} lines")
endif()
expect_match("The list" "${output}" "\n    15      0.989462  <-    PatchLoaded   ")
run(0 show reload.jsonl 20)
expect_match("The Blob" "${output}" "\n000028  e9 6b f9 4f 0a   ")

run(0 trace crash.jsonl --output crash.json)
file(READ "${FOLDER}/crash.json" trace)
string(JSON unit ERROR_VARIABLE fault GET "${trace}" displayTimeUnit)
if(NOT unit STREQUAL "ms")
    message(SEND_ERROR "The trace isn't one: ${fault}")
endif()
expect_match("The trace" "${trace}" "\"exception 0xC0000094 \\(EXCEPTION_INT_DIVIDE_BY_ZERO\\)\"")
run(0 html reload.jsonl --output reload.html)
file(READ "${FOLDER}/reload.html" page)
expect_match("The page" "${page}" "^<!DOCTYPE html>.*<title>reload.jsonl</title>.*</html>\n$")

run(1 html reload.jsonl --output reload.html)
expect_match("The refusal" "${output}" "^blobs: reload.html can't be written: it exists already")
file(READ "${FOLDER}/reload.html" again)
if(NOT again STREQUAL page)
    message(SEND_ERROR "A page was replaced")
endif()
