# What the benchmarks measure against, and what they measure with: from the distribution's source packages, built like
# the Agent, and from its packages of headers.

set(TORVANE_RIVALS_DIR "${CMAKE_SOURCE_DIR}/build/rivals" CACHE PATH "Sources of rivals, fetched if they are missing")

function(torvane_fetch_rival package witness)
    execute_process(
        COMMAND "${PROJECT_SOURCE_DIR}/cmake/fetch-source" ${package} "${TORVANE_RIVALS_DIR}/${package}" "${witness}"
        COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# Every rival compiles alike: optimized as the Agent, its warnings off.
function(torvane_add_rival target)
    add_library(${target} STATIC EXCLUDE_FROM_ALL ${ARGN})
    target_compile_options(${target} PRIVATE -w -fno-exceptions $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>)
    set_target_properties(${target} PROPERTIES ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
endfunction()

torvane_fetch_rival(benchmark src/benchmark.cc)
file(GLOB benchmarkSources "${TORVANE_RIVALS_DIR}/benchmark/src/*.cc")
list(FILTER benchmarkSources EXCLUDE REGEX "benchmark_main")
torvane_add_rival(Benchmark ${benchmarkSources}
    "${PROJECT_SOURCE_DIR}/cmake/googletest/Threads.cpp" Support/StandardLibrary.cpp)
target_include_directories(Benchmark SYSTEM PUBLIC "${TORVANE_RIVALS_DIR}/benchmark/include")
target_compile_definitions(Benchmark PUBLIC BENCHMARK_STATIC_DEFINE HAVE_STD_REGEX HAVE_STEADY_CLOCK)
target_compile_options(Benchmark PUBLIC
    $<$<COMPILE_LANGUAGE:CXX>:-include$<SEMICOLON>${CMAKE_CURRENT_SOURCE_DIR}/Support/StandardLibrary.h>)
target_link_libraries(Benchmark PUBLIC Torvane::CppLibrary shlwapi)

torvane_fetch_rival(mimalloc src/static.c)
torvane_add_rival(MiMalloc "${TORVANE_RIVALS_DIR}/mimalloc/src/static.c")
target_include_directories(MiMalloc SYSTEM PUBLIC "${TORVANE_RIVALS_DIR}/mimalloc/include")
target_link_libraries(MiMalloc PUBLIC psapi shell32 user32 advapi32 bcrypt)

# Packages of headers. They are copied, since the folder that they come from holds the host's headers as well and must
# stay off the cross compiler's path.
add_library(JsonRivals INTERFACE)
foreach(header rapidjson/document.h nlohmann/json.hpp)
    string(MAKE_C_IDENTIFIER "TORVANE_FOLDER_OF_${header}" variable)
    find_path(${variable} "${header}" PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    get_filename_component(folder "${header}" DIRECTORY)
    file(COPY "${${variable}}/${folder}" DESTINATION "${CMAKE_CURRENT_BINARY_DIR}/headers")
endforeach()
target_include_directories(JsonRivals SYSTEM INTERFACE "${CMAKE_CURRENT_BINARY_DIR}/headers")

# What the sets need.
torvane_fetch_rival(abseil absl/container/internal/raw_hash_set.cc)
set(abseil "${TORVANE_RIVALS_DIR}/abseil")
torvane_add_rival(Abseil
    "${abseil}/absl/base/internal/raw_logging.cc"
    "${abseil}/absl/base/internal/throw_delegate.cc"
    "${abseil}/absl/container/internal/raw_hash_set.cc"
    "${abseil}/absl/hash/internal/city.cc"
    "${abseil}/absl/hash/internal/hash.cc"
    "${abseil}/absl/hash/internal/low_level_hash.cc"
    "${abseil}/absl/numeric/int128.cc")
target_include_directories(Abseil SYSTEM PUBLIC "${abseil}")
target_link_libraries(Abseil PUBLIC Torvane::CppLibrary)
