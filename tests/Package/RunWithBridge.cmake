# Builds the project BRIDGE_SOURCE in the folder BRIDGE_COPY, and runs the hosts of RunConsumer.cmake with its Bridge.
#   BRIDGE_ARGUMENTS, BRIDGE_TOOLCHAIN   for the project's configuration
file(COPY "${BRIDGE_SOURCE}/" DESTINATION "${BRIDGE_COPY}/source")
execute_process(
    COMMAND "${CMAKE_COMMAND}" -S "${BRIDGE_COPY}/source" -B "${BRIDGE_COPY}/build" -G Ninja
            "-DCMAKE_TOOLCHAIN_FILE=${BRIDGE_TOOLCHAIN}" -DCMAKE_BUILD_TYPE=RelWithDebInfo "${BRIDGE_ARGUMENTS}"
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${BRIDGE_COPY}/build" COMMAND_ERROR_IS_FATAL ANY)
set(BRIDGE "${BRIDGE_COPY}/build/bin/TVN_Agent_Bridge_x64.exe")
include("${CMAKE_CURRENT_LIST_DIR}/RunConsumer.cmake")
