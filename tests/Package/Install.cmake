# Installs the build folder BUILD into a new PREFIX and checks that the package is complete.
file(REMOVE_RECURSE "${PREFIX}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}" COMMAND_ERROR_IS_FATAL ANY
    OUTPUT_QUIET)

set(expected
    CHANGELOG.md
    LICENSE
    README.md
    bin/TVN_Agent_x86.dll
    bin/TVN_Agent_x86.pdb
    bin/torvane-doctor.exe
    docs/host-guide.md
    docs/troubleshooting.md
    include/Torvane/Agent.h
    include/Torvane/Load.h
    lib/TVN_Agent_x86.lib
    lib/libTVN_Agent_x86.dll.a
    lib/cmake/TorvaneAgent/PatchEntry.c
    lib/cmake/TorvaneAgent/PatchExports.cmake
    lib/cmake/TorvaneAgent/TorvaneAgentConfig.cmake
    lib/cmake/TorvaneAgent/TorvaneAgentConfigVersion.cmake
    lib/cmake/TorvaneAgent/TorvaneAgentHost.cmake
    licenses/README.md
    licenses/libgcc.txt
    licenses/libstdc++.txt
    licenses/mingw-w64.txt
    licenses/xxHash.txt
    samples/Build.cmake
    samples/CMakeLists.txt
    samples/LiveReload/Host.cpp)
foreach(file IN LISTS expected)
    if(NOT EXISTS "${PREFIX}/${file}")
        message(SEND_ERROR "${file} is missing")
    endif()
endforeach()
if(NOT EXISTS "${PREFIX}/licenses/Zydis.txt" AND NOT EXISTS "${PREFIX}/licenses/XED.txt")
    message(SEND_ERROR "The licence of the instruction decoder is missing")
endif()

# No file of the package may contain the path of the build folder.
file(GLOB_RECURSE texts "${PREFIX}/*.cmake" "${PREFIX}/*.h")
foreach(text IN LISTS texts)
    file(READ "${text}" content)
    string(FIND "${content}" "${BUILD}" place)
    if(NOT place EQUAL -1)
        message(SEND_ERROR "${text} names the build folder")
    endif()
endforeach()
