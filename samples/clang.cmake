# Toolchain: clang and lld, with the headers and libraries of MinGW-w64's GCC for TORVANE_TRIPLE.
include("${CMAKE_CURRENT_LIST_DIR}/gcc.cmake") # says where they are
foreach(file libgcc.a libkernel32.a)
    execute_process(COMMAND "${TORVANE_CXX}" -print-file-name=${file} OUTPUT_VARIABLE path
        OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    cmake_path(NORMAL_PATH path)
    cmake_path(GET path PARENT_PATH folder_${file})
endforeach()
set(folder "${folder_libgcc.a}")
cmake_path(GET folder_libkernel32.a PARENT_PATH platform)

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
string(REPLACE "-mingw32" "-windows-gnu" target "${TORVANE_TRIPLE}")
foreach(language C CXX ASM)
    set(CMAKE_${language}_COMPILER_TARGET ${target})
    set(CMAKE_${language}_FLAGS_INIT "-nostdlibinc -idirafter ${platform}/include -Wno-unused-command-line-argument")
endforeach()
set(cxxHeaders "${folder}/include/c++")
string(PREPEND CMAKE_CXX_FLAGS_INIT "-isystem ${cxxHeaders} -isystem ${cxxHeaders}/${TORVANE_TRIPLE} ")
foreach(kind EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld -static -B${folder} -L${folder} -L${folder_libkernel32.a}")
endforeach()
