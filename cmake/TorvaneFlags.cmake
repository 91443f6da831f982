# Interface targets that say how code is compiled.
#   Torvane::Flags       product code: include folders, language subset, warnings
#   Torvane::TestFlags   tests and tools: the same include folders, warnings without -Wconversion
#   Torvane::CppLibrary  whatever uses the C++ library on Windows links this as well
#   Torvane::Json        <nlohmann/json.hpp>, for tools and tests

include(TorvaneDependencies)

option(TORVANE_WARNINGS_AS_ERRORS "Let warnings fail the build" ${PROJECT_IS_TOP_LEVEL})

add_library(TorvaneCommonFlags INTERFACE)
target_include_directories(TorvaneCommonFlags INTERFACE
    "${CMAKE_CURRENT_SOURCE_DIR}/src" "${CMAKE_CURRENT_SOURCE_DIR}/include")
torvane_find_parts(xxhash)
if(xxhash_FOUND)
    target_link_libraries(TorvaneCommonFlags INTERFACE xxHash::xxhash)
else()
    target_include_directories(TorvaneCommonFlags SYSTEM INTERFACE "${xxhash_SOURCE_DIR}")
endif()
target_compile_options(TorvaneCommonFlags INTERFACE
    -Wall -Wextra $<$<BOOL:${TORVANE_WARNINGS_AS_ERRORS}>:-Werror>
    -fno-omit-frame-pointer "-ffile-prefix-map=${CMAKE_CURRENT_SOURCE_DIR}/=")
if(WIN32)
    target_compile_definitions(TorvaneCommonFlags INTERFACE WIN32_LEAN_AND_MEAN NOMINMAX)
    # Assembly would bring debug sections of another kind into the image.
    target_compile_options(TorvaneCommonFlags INTERFACE $<$<COMPILE_LANGUAGE:ASM>:-g0>)
else()
    # As wide as on Windows. Nothing may call the host's own wide functions then.
    target_compile_options(TorvaneCommonFlags INTERFACE -fshort-wchar)
    # A <windows.h> with the records of the image format, for the native tests of the image reader.
    target_include_directories(TorvaneCommonFlags INTERFACE "${CMAKE_CURRENT_SOURCE_DIR}/tests/Support/Native/include")
endif()

# No type information on Windows, where tests derive from the image's classes. Natively the sanitizer of
# virtual calls needs it.
if(WIN32)
    target_compile_options(TorvaneCommonFlags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>)
endif()
target_compile_options(TorvaneCommonFlags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions>)

add_library(TorvaneFlags INTERFACE)
target_link_libraries(TorvaneFlags INTERFACE TorvaneCommonFlags)
target_compile_options(TorvaneFlags INTERFACE
    -Wconversion $<$<COMPILE_LANGUAGE:CXX>:-fno-threadsafe-statics>)
add_library(Torvane::Flags ALIAS TorvaneFlags)

add_library(TorvaneTestFlags INTERFACE)
target_link_libraries(TorvaneTestFlags INTERFACE TorvaneCommonFlags)
target_include_directories(TorvaneTestFlags INTERFACE "${CMAKE_CURRENT_SOURCE_DIR}")
add_library(Torvane::TestFlags ALIAS TorvaneTestFlags)

# The toolchain file says which library that is, if the compiler isn't to add its own.
add_library(TorvaneCppLibrary INTERFACE)
target_link_libraries(TorvaneCppLibrary INTERFACE ${TORVANE_CXX_LIBRARY})
foreach(option IN LISTS TORVANE_CXX_LIBRARY_OPTIONS)
    target_compile_options(TorvaneCppLibrary INTERFACE $<BUILD_INTERFACE:$<$<COMPILE_LANGUAGE:CXX>:${option}>>)
endforeach()
set_target_properties(TorvaneCppLibrary PROPERTIES EXPORT_NAME CppLibrary)
add_library(Torvane::CppLibrary ALIAS TorvaneCppLibrary)

# Not for hosts, who may build the Agent as a part of their own project.
if(NOT TORVANE_ARCHITECTURE STREQUAL x86 OR TORVANE_BUILD_BENCHMARKS)
    torvane_find_parts(nlohmann_json)
    add_library(TorvaneJson INTERFACE)
    if(nlohmann_json_FOUND)
        target_link_libraries(TorvaneJson INTERFACE nlohmann_json::nlohmann_json)
    else()
        target_include_directories(TorvaneJson SYSTEM INTERFACE "${nlohmann_json_SOURCE_DIR}/include")
    endif()
    add_library(Torvane::Json ALIAS TorvaneJson)
endif()

# For all code, the test library included.
set(TORVANE_SANITIZERS "" CACHE STRING "Sanitizers that all code is built with, separated by commas; with them, fuzzers too")
if(TORVANE_SANITIZERS)
    add_compile_options(-fsanitize=${TORVANE_SANITIZERS} -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${TORVANE_SANITIZERS})
endif()
option(TORVANE_COVERAGE "Count how often code is executed; the target TorvaneCoverage runs the tests and reports" OFF)
if(TORVANE_COVERAGE)
    add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
    add_link_options(-fprofile-instr-generate)
endif()
