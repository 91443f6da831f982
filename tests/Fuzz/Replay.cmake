# Has a fuzzer run its seeds and its corpus, each input once. Run with -DFUZZER, -DSEEDS, -DARCHIVE and -DCORPUS, the
# folder that the archive was unpacked into.

execute_process(COMMAND "${CMAKE_COMMAND}" -E tar tf "${ARCHIVE}" OUTPUT_VARIABLE list COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" archived "${list}")
file(GLOB corpus "${CORPUS}/*")
file(GLOB seeds "${SEEDS}/*")
list(LENGTH archived archivedCount)
list(LENGTH corpus corpusCount)
if(NOT seeds)
    message(FATAL_ERROR "${SEEDS} is empty")
endif()
if(archivedCount EQUAL 0 OR NOT corpusCount EQUAL archivedCount)
    message(FATAL_ERROR "${CORPUS} has ${corpusCount} inputs, its archive ${archivedCount}")
endif()

set(inputs ${seeds} ${corpus})
list(LENGTH inputs count)
execute_process(COMMAND "${FUZZER}" -timeout=60 ${inputs}
    OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
string(REGEX MATCHALL "\nExecuted " executed "${output}")
list(LENGTH executed executedCount)
if(NOT result EQUAL 0 OR NOT executedCount EQUAL count)
    message(FATAL_ERROR "${output}\n${executedCount} of ${count} inputs passed, result ${result}")
endif()
message("${count} inputs passed")
