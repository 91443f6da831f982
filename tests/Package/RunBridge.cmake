# Installs the Bridge kit from BUILD into PREFIX, builds the Bridge of the project SOURCE with it, and runs HOST with
# that Bridge and the library AGENT beside it. With TORVANE_SOURCE the project takes the kit from there, with
# ARGUMENTS, separated by |, for its configuration, and nothing is installed.
set(folder "${COPY}/host")
file(REMOVE_RECURSE "${folder}")
if(TORVANE_SOURCE)
    string(REPLACE "|" ";" kit "-DTORVANE_SOURCE=${TORVANE_SOURCE}|${ARGUMENTS}")
else()
    if(NOT EXISTS "${BUILD}/cmake_install.cmake")
        message(FATAL_ERROR "The Bridge kit isn't built: build the preset windows-x64 first")
    endif()
    file(REMOVE_RECURSE "${PREFIX}")
    execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}" COMMAND_ERROR_IS_FATAL ANY
        OUTPUT_QUIET)
    foreach(file
            bin/blobs.exe
            docs/protocol.md
            docs/recording.md
            docs/recording.png
            include/Agent/Protocol/Blob.h
            include/Agent/Protocol/ExceptionCodes.h
            include/Agent/Protocol/Names.h
            include/bridge/Bridge.h
            lib/cmake/TorvaneBridge/TorvaneBridgeConfig.cmake
            licenses/libgcc.txt
            licenses/libstdc++.txt
            licenses/mingw-w64.txt
            licenses/nlohmann-json.txt)
        if(NOT EXISTS "${PREFIX}/${file}")
            message(SEND_ERROR "${file} is missing")
        endif()
    endforeach()
    # What a Bridge doesn't include stays here.
    foreach(header Deadline.h Inbox.h ScopedLock.h ThreadGuard.h Recording/BlobDecoder.h Recording/BlobLayout.h
            Recording/Encoding.h Recording/FieldTable.h Recording/RecordingLines.h)
        if(EXISTS "${PREFIX}/include/bridge/${header}")
            message(SEND_ERROR "bridge/${header} is installed")
        endif()
    endforeach()
    set(kit "-DTorvaneBridge_DIR=${PREFIX}/lib/cmake/TorvaneBridge")
endif()
file(COPY "${SOURCE}/" DESTINATION "${COPY}/source")
execute_process(
    COMMAND "${CMAKE_COMMAND}" -S "${COPY}/source" -B "${COPY}/build" -G Ninja
            "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}" -DCMAKE_BUILD_TYPE=RelWithDebInfo
            ${kit} "-DHOST_FOLDER=${folder}"
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${COPY}/build" COMMAND_ERROR_IS_FATAL ANY)

file(COPY "${HOST}" "${AGENT}" DESTINATION "${folder}")
file(COPY "${PREFERENCES}" DESTINATION "${folder}/../../Broker") # a busy machine can take longer to start a Bridge
cmake_path(GET HOST FILENAME host)
set(notes "${folder}/notes.txt")
string(REPLACE "/" "\\" windowsNotes "Z:${notes}")
execute_process(
    COMMAND "${CMAKE_COMMAND}" -E env "TORVANE_NOTES=${windowsNotes}"
            "${RUNNER}" --prefix "${WINE_PREFIX}" "${folder}/${host}"
    OUTPUT_VARIABLE output RESULT_VARIABLE result TIMEOUT 120)
message("${output}")
if(NOT result EQUAL 0)
    message(FATAL_ERROR "The host ended with ${result}")
endif()

# The Bridge ends by itself, after the host. A message that the host logs right before its end may not arrive.
foreach(try RANGE 600)
    set(text "")
    if(EXISTS "${notes}")
        file(READ "${notes}" text)
    endif()
    if(text MATCHES "end")
        break()
    endif()
    execute_process(COMMAND "${CMAKE_COMMAND}" -E sleep 0.1)
endforeach()
string(REPLACE "\r" "" text "${text}")
if(NOT text MATCHES "^module ${host}\n(log a message for the Broker's log\n)?end\n$")
    message(FATAL_ERROR "The Bridge's notes:\n${text}")
endif()
