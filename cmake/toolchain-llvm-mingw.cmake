# LLVM-MinGW: clang, lld, compiler-rt, libc++ and MinGW's headers and libraries for the universal C runtime, in one folder. Used
# by the presets for Windows as the host system. Its programs have to be in the search path, or TORVANE_LLVM_MINGW names its
# folder. TORVANE_TRIPLE is i686-w64-mingw32 or x86_64-w64-mingw32.
set(TORVANE_LLVM_MINGW "" CACHE PATH "Folder of LLVM-MinGW, if its programs aren't in the search path")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TORVANE_TRIPLE TORVANE_LLVM_MINGW)

set(hints "")
if(TORVANE_LLVM_MINGW)
    set(hints HINTS "${TORVANE_LLVM_MINGW}/bin" NO_DEFAULT_PATH)
endif()
find_program(TORVANE_LLVM_MINGW_C NAMES ${TORVANE_TRIPLE}-clang ${hints} REQUIRED)
find_program(TORVANE_LLVM_MINGW_CXX NAMES ${TORVANE_TRIPLE}-clang++ ${hints} REQUIRED)
find_program(TORVANE_LLVM_MINGW_RC NAMES ${TORVANE_TRIPLE}-windres ${hints} REQUIRED)
cmake_path(GET TORVANE_LLVM_MINGW_C PARENT_PATH folder)
cmake_path(GET folder PARENT_PATH TORVANE_LLVM_MINGW_FOLDER)
set(CMAKE_C_COMPILER "${TORVANE_LLVM_MINGW_C}")
set(CMAKE_CXX_COMPILER "${TORVANE_LLVM_MINGW_CXX}")
set(CMAKE_ASM_COMPILER "${TORVANE_LLVM_MINGW_C}")
set(CMAKE_RC_COMPILER "${TORVANE_LLVM_MINGW_RC}")

set(platform "-D_WIN32_WINNT=0x0A00 -D__USE_MINGW_ANSI_STDIO=0")
if(TORVANE_TRIPLE MATCHES "^i686")
    string(APPEND platform " -march=pentium4") # floating point by SSE2, as in toolchain-windows.cmake
endif()
set(CMAKE_C_FLAGS_INIT "${platform}")
set(CMAKE_CXX_FLAGS_INIT "${platform}")

# Without the C++ library: what needs it links the target Torvane::CppLibrary.
set(TORVANE_CXX_LIBRARY -lc++ -lunwind)
foreach(type EXE SHARED MODULE)
    set(CMAKE_${type}_LINKER_FLAGS_INIT "-static -nostdlib++ -Wno-unused-command-line-argument")
endforeach()
foreach(language C CXX)
    set(CMAKE_${language}_STANDARD_LIBRARIES "" CACHE STRING "")
    set(CMAKE_${language}_FLAGS_DEBUG_INIT "-O0 -g -gcodeview")
    set(CMAKE_${language}_FLAGS_RELWITHDEBINFO_INIT "-O2 -g -gcodeview -DNDEBUG")
endforeach()

if(NOT CMAKE_HOST_WIN32)
    set(CMAKE_SYSTEM_NAME Windows)
    set(CMAKE_SYSTEM_VERSION 10.0)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run-in-wine)
    set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
    set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
    set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
    set(CMAKE_FIND_ROOT_PATH "${TORVANE_LLVM_MINGW_FOLDER}/${TORVANE_TRIPLE}")
endif()
