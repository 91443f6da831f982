# What the Agent's sources need of a compiler and a linker for 32-bit Windows; refuses others.
#
# - GNU C++ with assembly in AT&T syntax (Hooks.cpp, ThreadState.h, StructuredExceptionTest.cpp) and attributes (CheckedFormat.h):
#   Microsoft's compiler and clang-cl don't read it.
# - Native thread-local storage: a log call may neither allocate nor lock. GCC emulates it for this target.
# - A definition file, a PDB and -Xlink for further options of the linker: lld as a MinGW linker.
#
# 64-bit and native code has no such needs: GNU C++ is enough.
if(NOT TORVANE_ARCHITECTURE STREQUAL x86)
    return()
endif()
set(use "see cmake/toolchain-windows-x86.cmake; hosts and patches can be built with any compiler against its package")
if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang$" OR NOT MINGW)
    message(FATAL_ERROR "The Torvane Agent's sources need clang for i686-w64-windows-gnu, not ${CMAKE_CXX_COMPILER_ID}: ${use}.")
endif()
include(CheckLinkerFlag)
check_linker_flag(CXX "-Wl,-Xlink=-natvis:" TORVANE_LINKER_IS_LLD)
if(NOT TORVANE_LINKER_IS_LLD)
    message(FATAL_ERROR "The Torvane Agent's sources need lld as the linker: ${use}.")
endif()
