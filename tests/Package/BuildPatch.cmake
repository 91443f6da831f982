# Builds a patch with torvane_add_patch from an unpacked package: PACKAGE, SOURCE, FOLDER, COMPILER (gcc or clang), RUNNER and
# WINE_PREFIX. The host isn't built again for it, though its source has changed.
file(REMOVE_RECURSE "${FOLDER}/source" "${FOLDER}/build/changes")
file(COPY "${SOURCE}/" DESTINATION "${FOLDER}/source")
set(build "${FOLDER}/build")
execute_process(
    COMMAND "${CMAKE_COMMAND}" -S "${FOLDER}/source" -B "${build}" -G Ninja -DCMAKE_BUILD_TYPE=Debug
            "-DCMAKE_TOOLCHAIN_FILE=${PACKAGE}/samples/${COMPILER}.cmake" -DTORVANE_TRIPLE=i686-w64-mingw32
            "-DTorvaneAgent_DIR=${PACKAGE}/lib/cmake/TorvaneAgent"
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${build}" COMMAND_ERROR_IS_FATAL ANY)
file(TIMESTAMP "${build}/Host.exe" before "%s")
if(EXISTS "${build}/changes/Patch.dll" OR NOT IS_DIRECTORY "${build}/changes")
    message(SEND_ERROR "The patch is built with the host, or its folder isn't there")
endif()

execute_process(COMMAND "${CMAKE_COMMAND}" -E sleep 1.1)
file(READ "${FOLDER}/source/Changed.cpp" text)
string(REPLACE "+ counter" "- counter" text "${text}")
file(WRITE "${FOLDER}/source/Changed.cpp" "${text}")
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${build}" --target Patch COMMAND_ERROR_IS_FATAL ANY)
file(TIMESTAMP "${build}/Host.exe" after "%s")
if(NOT before STREQUAL after)
    message(SEND_ERROR "The host was built for the patch")
endif()
file(READ "${build}/Patch.def" exports)
if(NOT exports STREQUAL "EXPORTS\n    Change\n")
    message(SEND_ERROR "The patch exports something else: ${exports}")
endif()

# The host's counter is 6 and then 7, and the library's calls are counted in the host.
execute_process(COMMAND "${RUNNER}" --prefix "${WINE_PREFIX}" "${build}/Host.exe" changes/Patch.dll
    WORKING_DIRECTORY "${build}" OUTPUT_VARIABLE output RESULT_VARIABLE result TIMEOUT 120)
string(REPLACE "\r" "" output "${output}")
if(NOT result EQUAL 0 OR NOT output STREQUAL "1201\n2\n")
    message(FATAL_ERROR "The host ended with ${result} and printed:\n${output}")
endif()
