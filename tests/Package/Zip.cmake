# The zip holds each file that an installation puts down, byte for byte.
include("${MAKE_PACKAGE}")
set(unpacked "${OUTPUT}/unpacked")
file(REMOVE_RECURSE "${unpacked}")
file(ARCHIVE_EXTRACT INPUT "${OUTPUT}/TorvaneAgent-${VERSION}-windows.zip" DESTINATION "${unpacked}")
file(GLOB_RECURSE files RELATIVE "${INSTALLED}" "${INSTALLED}/*")
list(LENGTH files count)
if(count LESS 20)
    message(SEND_ERROR "Only ${count} files are installed")
endif()
foreach(file IN LISTS files)
    execute_process(
        COMMAND "${CMAKE_COMMAND}" -E compare_files
                "${INSTALLED}/${file}" "${unpacked}/TorvaneAgent-${VERSION}-windows/${file}"
        RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(SEND_ERROR "${file} is missing from the zip, or another one")
    endif()
endforeach()
