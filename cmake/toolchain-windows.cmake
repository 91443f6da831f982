# Common part of the cross toolchains: clang and lld with MinGW's headers, import libraries and C++ library.
# Included with TORVANE_TRIPLE set (i686-w64-mingw32 or x86_64-w64-mingw32).
#
# 32-bit code, the Agent's, uses the universal C runtime. 64-bit programs are Bridges and tools, which use the C++
# library, and with it the C runtime that the packaged one is built for, msvcrt.dll.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_VERSION 10.0)

string(REPLACE "-mingw32" "-windows-gnu" target "${TORVANE_TRIPLE}")
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_ASM_COMPILER clang)
set(CMAKE_C_COMPILER_TARGET ${target})
set(CMAKE_CXX_COMPILER_TARGET ${target})
set(CMAKE_ASM_COMPILER_TARGET ${target})
set(CMAKE_RC_COMPILER ${TORVANE_TRIPLE}-windres)

# MinGW's compiler of posix threads knows where its headers and libraries are.
find_program(TORVANE_MINGW NAMES ${TORVANE_TRIPLE}-g++-posix ${TORVANE_TRIPLE}-g++)
if(NOT TORVANE_MINGW)
    message(FATAL_ERROR "No MinGW compiler for ${TORVANE_TRIPLE} is installed")
endif()
foreach(file libgcc.a libkernel32.a)
    execute_process(COMMAND "${TORVANE_MINGW}" -print-file-name=${file} OUTPUT_VARIABLE path
        OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    cmake_path(NORMAL_PATH path)
    cmake_path(GET path PARENT_PATH folder_${file})
endforeach()
set(gccFolder "${folder_libgcc.a}")
set(platformLibraries "${folder_libkernel32.a}")
cmake_path(GET platformLibraries PARENT_PATH platformFolder)

# The compiler's own search list ends in the host's headers, so the whole list is given here.
set(platform "-nostdlibinc -idirafter ${platformFolder}/include")
if(TORVANE_TRIPLE MATCHES "^i686")
    # Floating point by SSE2, which every supported Windows has, and not by the x87 with its excess precision.
    string(APPEND platform " -march=pentium4 -D_UCRT -D__MSVCRT_VERSION__=0xE00 -D__USE_MINGW_ANSI_STDIO=0")
    # Named here, it takes the place of the old runtime among the libraries that the compiler adds by itself.
    set(runtime " -lucrt")
else()
    set(runtime "")
endif()
string(APPEND platform " -D_WIN32_WINNT=0x0A00")
set(TORVANE_PLATFORM_HEADERS "${platformFolder}/include")
set(TORVANE_PLATFORM_LIBRARIES "${platformLibraries}")
set(TORVANE_CXX_HEADERS "${gccFolder}/include/c++" "${gccFolder}/include/c++/${TORVANE_TRIPLE}")
list(TRANSFORM TORVANE_CXX_HEADERS PREPEND "-isystem " OUTPUT_VARIABLE cxxHeaders)
list(JOIN cxxHeaders " " cxxHeaders)
set(CMAKE_C_FLAGS_INIT "${platform}")
set(CMAKE_CXX_FLAGS_INIT "${cxxHeaders} ${platform}")

# Without the C++ library: what needs it links the target Torvane::CppLibrary. It is built with the headers of the older C
# runtime, whose mbstate_t, a part of each file stream, is smaller than the universal one's. Code that uses the library needs
# the same; it can link either runtime.
set(TORVANE_CXX_LIBRARY -lstdc++ -lgcc_eh -lwinpthread)
set(TORVANE_CXX_LIBRARY_OPTIONS -U_UCRT -U__MSVCRT_VERSION__)
string(CONCAT linking
    "-fuse-ld=lld -static -nostdlib++${runtime} -Wno-unused-command-line-argument"
    " -B${gccFolder} -L${gccFolder} -L${platformLibraries}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${linking}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${linking}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${linking}")
foreach(language C CXX)
    set(CMAKE_${language}_STANDARD_LIBRARIES "" CACHE STRING "")
endforeach()

foreach(language C CXX)
    set(CMAKE_${language}_FLAGS_DEBUG_INIT "-O0 -g -gcodeview")
    set(CMAKE_${language}_FLAGS_RELWITHDEBINFO_INIT "-O2 -g -gcodeview -DNDEBUG")
endforeach()

set(CMAKE_FIND_ROOT_PATH "${platformFolder}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run-in-wine)
