# The zip holds each file that the installations in the folders INSTALLED have put down, byte for byte.
include("${MAKE_PACKAGE}")
set(unpacked "${OUTPUT}/unpacked")
file(REMOVE_RECURSE "${unpacked}")
file(ARCHIVE_EXTRACT INPUT "${OUTPUT}/TorvaneAgent-${VERSION}-windows.zip" DESTINATION "${unpacked}")
string(REPLACE "|" ";" installed "${INSTALLED}")
foreach(folder IN LISTS installed)
    file(GLOB_RECURSE files RELATIVE "${folder}" "${folder}/*")
    if(NOT files)
        message(SEND_ERROR "Nothing is installed in ${folder}")
    endif()
    foreach(file IN LISTS files)
        execute_process(
            COMMAND "${CMAKE_COMMAND}" -E compare_files
                    "${folder}/${file}" "${unpacked}/TorvaneAgent-${VERSION}-windows/${file}"
            RESULT_VARIABLE result)
        if(NOT result EQUAL 0)
            message(SEND_ERROR "${file} is missing from the zip, or another one")
        endif()
    endforeach()
endforeach()
