# Compiles SOURCE for Microsoft's ABI, links it with LINKER to LIBRARIES, and runs it beside AGENT: its output has to be
# EXPECTED. Lists have | between their items. There is no Bridge, so that the status of the connection is that it has failed.
foreach(list COMPILER LIBRARIES RUNNER)
    string(REPLACE "|" ";" ${list} "${${list}}")
endforeach()
string(REPLACE "|" "\n" EXPECTED "${EXPECTED}")
file(REMOVE_RECURSE "${FOLDER}")
file(MAKE_DIRECTORY "${FOLDER}")
file(COPY "${AGENT}" DESTINATION "${FOLDER}")
execute_process(COMMAND ${COMPILER} /O2 /GS- /c "${SOURCE}" "/Fo${FOLDER}/Host.obj" COMMAND_ERROR_IS_FATAL ANY)
# Without Microsoft's start-up code, which hosts in C and hosts without static objects don't depend on. MinGW's import
# libraries don't list their exception handlers as Microsoft's do.
execute_process(
    COMMAND "${LINKER}" /nologo /nodefaultlib /safeseh:no /subsystem:console /entry:main "/out:${FOLDER}/Host.exe"
            "${FOLDER}/Host.obj" ${LIBRARIES}
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${RUNNER} "${FOLDER}/Host.exe" OUTPUT_VARIABLE output RESULT_VARIABLE result TIMEOUT 120)
string(REPLACE "\r" "" output "${output}")
if(NOT result EQUAL 0 OR NOT output STREQUAL EXPECTED)
    message(FATAL_ERROR "The host ended with ${result} and said:\n${output}")
endif()
