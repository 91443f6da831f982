# Installs what is built in BUILD into a new PREFIX, and sees that all of the package is there.
#   EXPECTED   files of the package, with | between them
file(REMOVE_RECURSE "${PREFIX}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}" COMMAND_ERROR_IS_FATAL ANY
    OUTPUT_QUIET)

string(REPLACE "|" ";" expected "${EXPECTED}")
foreach(file IN LISTS expected)
    if(NOT EXISTS "${PREFIX}/${file}")
        message(SEND_ERROR "${file} is missing")
    endif()
endforeach()

# Nothing in the package may lead back to where it was built.
file(GLOB_RECURSE texts "${PREFIX}/*.cmake" "${PREFIX}/*.h")
foreach(text IN LISTS texts)
    file(READ "${text}" content)
    string(FIND "${content}" "${BUILD}" place)
    if(NOT place EQUAL -1)
        message(SEND_ERROR "${text} names the build folder")
    endif()
endforeach()
