# Builds the samples of the unpacked PACKAGE with its own command and COMPILER (gcc or clang), and runs those that compare their
# output.
file(REMOVE_RECURSE "${FOLDER}")
execute_process(
    COMMAND "${CMAKE_COMMAND}" "-DCOMPILER=${COMPILER}" "-DFOLDER=${FOLDER}" -P "${PACKAGE}/samples/Build.cmake"
    COMMAND_ERROR_IS_FATAL ANY)

# A program that imports a library of the compiler would end before its `main`, without a message to anybody.
set(hosts 0)
set(bridges 0)
file(GLOB_RECURSE programs "${FOLDER}/bin/*.exe" "${FOLDER}/bin/*.dll")
list(FILTER programs EXCLUDE REGEX "TVN_Agent_x86.dll$")
foreach(program IN LISTS programs)
    if(program MATCHES "/TVN_Agent_Bridge_x64.exe$")
        math(EXPR bridges "${bridges} + 1")
    else()
        math(EXPR hosts "${hosts} + 1")
    endif()
    execute_process(COMMAND "${OBJDUMP}" -p "${program}" OUTPUT_VARIABLE headers COMMAND_ERROR_IS_FATAL ANY)
    if(NOT headers MATCHES "DLL Name: KERNEL32.dll" OR headers MATCHES "DLL Name: (lib[^\n]*)")
        message(SEND_ERROR "${program} imports ${CMAKE_MATCH_1}")
    endif()
endforeach()
if(hosts LESS 12 OR bridges LESS 7)
    message(SEND_ERROR "Only ${hosts} programs and libraries of hosts and ${bridges} Bridges were built")
endif()

foreach(sample FrameLoop Modules PlainC)
    set(PROGRAM "${FOLDER}/bin/samples/${sample}/${sample}.exe")
    set(EXPECTED "${PACKAGE}/samples/${sample}/expected.txt")
    include("${PACKAGE}/samples/RunSample.cmake")
endforeach()
set(PROGRAM "${FOLDER}/bin/samples/Complete/Complete.exe")
set(EXPECTED "${PACKAGE}/samples/Complete/expected.txt")
set(LOG "${FOLDER}/bin/samples/Complete/complete.log")
set(EXPECTED_LOG "${PACKAGE}/samples/Complete/expected-log.txt")
include("${PACKAGE}/samples/RunSample.cmake")
unset(LOG)
foreach(sample LiveReload Crash Restart)
    if(NOT EXISTS "${FOLDER}/bin/${sample}/${sample}.exe")
        message(SEND_ERROR "${sample}.exe was not built")
    endif()
endforeach()

# Without a patch that can be loaded the frame loop ends at once, with the reason.
set(folder "${FOLDER}/bin/samples/FrameLoop")
file(WRITE "${folder}/Motion.dll" "no library")
execute_process(COMMAND "${RUNNER}" --prefix "${WINE_PREFIX}" "${folder}/FrameLoop.exe"
    OUTPUT_VARIABLE output RESULT_VARIABLE result TIMEOUT 60)
if(NOT result EQUAL 1 OR NOT output MATCHES "!! the reload has failed: [^\n]*the file isn't a 32-bit image" OR
        output MATCHES "reloaded")
    message(SEND_ERROR "Without a patch FrameLoop ended with ${result}: ${output}")
endif()

# The package's default Bridge serves a host like one that was built from the same source.
set(folder "${FOLDER}/bin/samples/PlainC")
file(REMOVE "${folder}/TVN_Agent_Bridge_x64.exe")
file(COPY "${PACKAGE}/bin/TVN_Agent_Bridge_x64.exe" DESTINATION "${folder}")
set(PROGRAM "${folder}/PlainC.exe")
set(EXPECTED "${PACKAGE}/samples/PlainC/expected.txt")
include("${PACKAGE}/samples/RunSample.cmake")
