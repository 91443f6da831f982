# Replaces, in an installed package, what the samples use of the project.
include_guard()
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(TORVANE_ARCHITECTURE x86)
    find_package(TorvaneAgent CONFIG REQUIRED PATHS "${CMAKE_CURRENT_LIST_DIR}/../lib/cmake/TorvaneAgent" NO_DEFAULT_PATH
        NO_CMAKE_FIND_ROOT_PATH)
else()
    set(TORVANE_ARCHITECTURE x64)
    find_package(TorvaneBridge CONFIG REQUIRED PATHS "${CMAKE_CURRENT_LIST_DIR}/../lib/cmake/TorvaneBridge" NO_DEFAULT_PATH
        NO_CMAKE_FIND_ROOT_PATH)
    add_library(Torvane::Bridge ALIAS TorvaneBridge::TorvaneBridge)
endif()
set(TORVANE_BIN_DIR "${CMAKE_BINARY_DIR}/bin" CACHE PATH "Folder for the programs of both architectures")
set(TORVANE_BUILD_TESTS OFF)
set(CMAKE_CXX_STANDARD 17)

add_library(TorvaneSampleFlags INTERFACE)
target_compile_definitions(TorvaneSampleFlags INTERFACE WIN32_LEAN_AND_MEAN NOMINMAX)
if(MINGW)
    # Without exceptions, as the rest is built here; with frame pointers no changed function is shorter than a jump.
    target_compile_options(TorvaneSampleFlags INTERFACE
        $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions> -fno-omit-frame-pointer)
    # A host or a patch that needs a library of the compiler wouldn't start, or be loaded, where it isn't installed.
    target_link_options(TorvaneSampleFlags INTERFACE -static)
endif()
if(TORVANE_ARCHITECTURE STREQUAL x86)
    target_link_libraries(TorvaneSampleFlags INTERFACE TorvaneAgent::TorvaneAgent)
endif()
add_library(Torvane::TestFlags ALIAS TorvaneSampleFlags)
add_library(Torvane::CppLibrary ALIAS TorvaneSampleFlags)
