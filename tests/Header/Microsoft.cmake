# The headers that hosts and Bridges include, compiled as clang-cl compiles them: Microsoft's ABI and dialect, all warnings
# as errors. MinGW's headers replace those of the Windows SDK (see MicrosoftPlatform.h). Hosts are also linked as Microsoft's
# linker does it, and run.
if(NOT TORVANE_PLATFORM_HEADERS)
    return() # MinGW's folders are known for the toolchain file of the cross compiler alone
endif()

set(machine $<IF:$<STREQUAL:${TORVANE_ARCHITECTURE},x86>,X86,AMD64>)
set(compiler "${CMAKE_C_COMPILER}" --driver-mode=cl --target=${CMAKE_SYSTEM_PROCESSOR}-pc-windows-msvc
    -fgnuc-version=12.2.0 -D_${machine}_ -D_UCRT -D__USE_MINGW_ANSI_STDIO=0 -D__STRICT_ANSI__ -D__declspec=__declspec
    /clang:-idirafter "/clang:${TORVANE_PLATFORM_HEADERS}" "/FI${CMAKE_CURRENT_SOURCE_DIR}/MicrosoftPlatform.h")
set(warnings /W4 /Wall /WX /permissive- -Wpedantic
    -Wno-c++98-compat -Wno-c++98-compat-pedantic -Wno-padded -Wno-declaration-after-statement)

# torvane_add_microsoft_test(name standard argument...): compiles for this architecture.
function(torvane_add_microsoft_test name standard)
    add_test(NAME Header.${name}.${TORVANE_ARCHITECTURE}.${standard}
        COMMAND ${compiler} ${warnings} /clang:-std=${standard} ${ARGN})
endfunction()

foreach(standard c99 c11 c17 c++11 c++14 c++17 c++20)
    string(REGEX REPLACE "[0-9]+" "" suffix "${standard}")
    string(REPLACE "++" "pp" suffix "${suffix}")
    torvane_add_microsoft_test(MicrosoftHost ${standard} "/I${PROJECT_SOURCE_DIR}/include" /Zs
        "${CMAKE_CURRENT_SOURCE_DIR}/UseHeader.${suffix}" "${CMAKE_CURRENT_SOURCE_DIR}/UseLoadHeader.${suffix}")
endforeach()

if(TARGET TorvaneBridge)
    foreach(set HEADER_SET HEADER_SET_agentHeaders)
        get_target_property(headers TorvaneBridge ${set})
        string(REGEX REPLACE "([^;]+);?" "#include \"\\1\"\n" headers "${headers}")
        string(APPEND includes "${headers}")
    endforeach()
    set(source "${CMAKE_CURRENT_BINARY_DIR}/UseBridgeHeaders.cpp")
    file(GENERATE OUTPUT "${source}" CONTENT "${includes}")
    list(TRANSFORM TORVANE_CXX_HEADERS PREPEND /imsvc OUTPUT_VARIABLE cxxHeaders)
    foreach(standard c++17 c++20)
        torvane_add_microsoft_test(MicrosoftBridge ${standard} -Wno-exit-time-destructors ${cxxHeaders}
            "/I${PROJECT_SOURCE_DIR}" "/I${PROJECT_SOURCE_DIR}/src" /Zs "${source}")
    endforeach()
    return()
endif()

find_program(TORVANE_LLD_LINK NAMES lld-link lld-link-14 REQUIRED)
list(JOIN compiler "|" compilerText)
foreach(host Linked.c Loaded.cpp)
    cmake_path(GET host STEM name)
    add_test(NAME Header.MicrosoftLinker.${name}
        COMMAND "${CMAKE_COMMAND}" "-DCOMPILER=${compilerText}|/I${PROJECT_SOURCE_DIR}/include"
                "-DSOURCE=${PROJECT_SOURCE_DIR}/tests/Package/Consumer/${host}" "-DLINKER=${TORVANE_LLD_LINK}"
                "-DLIBRARIES=${TORVANE_BIN_DIR}/TVN_Agent_x86.lib|${TORVANE_PLATFORM_LIBRARIES}/libkernel32.a|${TORVANE_PLATFORM_LIBRARIES}/libucrt.a"
                "-DAGENT=$<TARGET_FILE:TorvaneAgent>" "-DFOLDER=${CMAKE_CURRENT_BINARY_DIR}/${name}"
                "-DEXPECTED=version ${PROJECT_VERSION}|status 1|done|"
                "-DRUNNER=${CMAKE_CROSSCOMPILING_EMULATOR}"
                -P "${CMAKE_CURRENT_SOURCE_DIR}/RunMicrosoftHost.cmake")
    set_tests_properties(Header.MicrosoftLinker.${name} PROPERTIES TIMEOUT 600)
endforeach()
