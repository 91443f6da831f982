# Puts the PACKAGES into one folder, as the zip has them, builds the samples from there for both architectures, and runs
# some of them.
set(package "${FOLDER}/package")
file(REMOVE_RECURSE "${package}")
string(REPLACE "|" ";" folders "${PACKAGES}")
foreach(folder IN LISTS folders)
    file(COPY "${folder}/" DESTINATION "${package}")
endforeach()

foreach(architecture x64 x86)
    set(build "${FOLDER}/build-${architecture}")
    # The toolchain files don't add the C++ library.
    execute_process(
        COMMAND "${CMAKE_COMMAND}" -S "${package}/samples" -B "${build}" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
                "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAINS}/toolchain-windows-${architecture}.cmake"
                "-DCMAKE_CXX_STANDARD_LIBRARIES=-lstdc++ -lgcc_eh"
                "-DTORVANE_BIN_DIR=${FOLDER}/bin"
        COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND "${CMAKE_COMMAND}" --build "${build}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()

foreach(sample FrameLoop Modules PlainC)
    set(PROGRAM "${FOLDER}/bin/samples/${sample}/${sample}.exe")
    set(EXPECTED "${package}/samples/${sample}/expected.txt")
    include("${package}/samples/RunSample.cmake")
endforeach()
set(PROGRAM "${FOLDER}/bin/samples/Complete/Complete.exe")
set(EXPECTED "${package}/samples/Complete/expected.txt")
set(LOG "${FOLDER}/bin/samples/Complete/complete.log")
set(EXPECTED_LOG "${package}/samples/Complete/expected-log.txt")
include("${package}/samples/RunSample.cmake")
unset(LOG)
foreach(sample LiveReload Crash Restart)
    foreach(program ${sample} TVN_Agent_Bridge_x64)
        if(NOT EXISTS "${FOLDER}/bin/${sample}/${program}.exe")
            message(SEND_ERROR "${program}.exe of ${sample} was not built")
        endif()
    endforeach()
endforeach()

# The installed default Bridge serves a host like one that was built from the same source.
set(folder "${FOLDER}/bin/samples/PlainC")
file(REMOVE "${folder}/TVN_Agent_Bridge_x64.exe")
file(COPY "${package}/bin/TVN_Agent_Bridge_x64.exe" DESTINATION "${folder}")
set(PROGRAM "${folder}/PlainC.exe")
set(EXPECTED "${package}/samples/PlainC/expected.txt")
include("${package}/samples/RunSample.cmake")
