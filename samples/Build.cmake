# Builds the hosts of an unpacked package, 32-bit, and their Bridges, 64-bit, into FOLDER/bin:
#
#   cmake [-DCOMPILER=clang] [-DFOLDER=folder] -P samples/Build.cmake
#
# COMPILER is gcc, MinGW-w64's GCC as i686-w64-mingw32-g++ and x86_64-w64-mingw32-g++, or clang, which takes headers and
# libraries of GCC and links with lld. FOLDER is samples-build in the current folder, unless it is given.
cmake_minimum_required(VERSION 3.25)
if(NOT DEFINED COMPILER)
    set(COMPILER gcc)
elseif(NOT COMPILER MATCHES "^(gcc|clang)$")
    message(FATAL_ERROR "COMPILER is gcc or clang, not ${COMPILER}")
endif()
if(NOT DEFINED FOLDER)
    set(FOLDER samples-build)
endif()
cmake_path(ABSOLUTE_PATH FOLDER NORMALIZE)

# build(architecture triple): both go into the same folder for programs.
function(build architecture triple)
    execute_process(
        COMMAND "${CMAKE_COMMAND}" -S "${CMAKE_CURRENT_LIST_DIR}" -B "${FOLDER}/${architecture}" -G Ninja
                -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DTORVANE_TRIPLE=${triple}"
                "-DCMAKE_TOOLCHAIN_FILE=${CMAKE_CURRENT_LIST_DIR}/${COMPILER}.cmake" "-DTORVANE_BIN_DIR=${FOLDER}/bin"
        COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND "${CMAKE_COMMAND}" --build "${FOLDER}/${architecture}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

build(x86 i686-w64-mingw32)
build(x64 x86_64-w64-mingw32)
message("The programs are in ${FOLDER}/bin")
