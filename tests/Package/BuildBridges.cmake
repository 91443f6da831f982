# Puts the PACKAGES into one folder, as the zip has them, builds the samples' Bridges from there with the compilers C_COMPILER
# and CXX_COMPILER of MinGW, and runs the complete one with the host, its library and its patch that are in HOST_FOLDER.
set(package "${FOLDER}/package")
file(REMOVE_RECURSE "${FOLDER}")
string(REPLACE "|" ";" folders "${PACKAGES}")
foreach(folder IN LISTS folders)
    file(COPY "${folder}/" DESTINATION "${package}")
endforeach()

execute_process(
    COMMAND "${CMAKE_COMMAND}" -S "${package}/samples" -B "${FOLDER}/build" -G Ninja -DCMAKE_BUILD_TYPE=Release
            -DCMAKE_SYSTEM_NAME=Windows "-DCMAKE_C_COMPILER=${C_COMPILER}" "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}"
            "-DTORVANE_BIN_DIR=${FOLDER}/bin"
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${FOLDER}/build" COMMAND_ERROR_IS_FATAL ANY)

# A Bridge that imports a library of the compiler would end before its `main`, without a message to anybody.
file(GLOB_RECURSE bridges "${FOLDER}/bin/*/TVN_Agent_Bridge_x64.exe")
list(LENGTH bridges count)
if(count LESS 6)
    message(SEND_ERROR "Only ${count} Bridges were built")
endif()
foreach(bridge IN LISTS bridges)
    execute_process(COMMAND "${OBJDUMP}" -p "${bridge}" OUTPUT_VARIABLE headers COMMAND_ERROR_IS_FATAL ANY)
    if(NOT headers MATCHES "DLL Name: KERNEL32.dll" OR headers MATCHES "DLL Name: (lib[^\n]*)")
        message(SEND_ERROR "${bridge} imports ${CMAKE_MATCH_1}")
    endif()
endforeach()

set(folder "${FOLDER}/run/agent/x86")
file(COPY "${HOST_FOLDER}/" DESTINATION "${folder}")
file(REMOVE "${folder}/TVN_Agent_Bridge_x64.exe")
file(COPY "${FOLDER}/bin/samples/Complete/TVN_Agent_Bridge_x64.exe" DESTINATION "${folder}")
file(COPY "${PREFERENCES}" DESTINATION "${FOLDER}/run/Broker") # a busy machine can take longer to start a Bridge
set(PROGRAM "${folder}/Complete.exe")
set(EXPECTED "${package}/samples/Complete/expected.txt")
set(LOG "${folder}/complete.log")
set(EXPECTED_LOG "${package}/samples/Complete/expected-log.txt")
include("${package}/samples/RunSample.cmake")
