# What the benchmarks measure against, and what they measure with, built like the Agent.
torvane_find_parts(abseil benchmark fmt mimalloc rapidjson spdlog)

# Every baseline is compiled as the Agent is, with warnings off.
function(torvane_add_baseline target)
    add_library(${target} STATIC EXCLUDE_FROM_ALL ${ARGN})
    target_compile_options(${target} PRIVATE -w -fno-exceptions $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>)
    set_target_properties(${target} PROPERTIES ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
endfunction()

file(GLOB benchmarkSources "${benchmark_SOURCE_DIR}/src/*.cc")
list(FILTER benchmarkSources EXCLUDE REGEX "benchmark_main")
torvane_add_baseline(Benchmark ${benchmarkSources})
target_include_directories(Benchmark SYSTEM PUBLIC "${benchmark_SOURCE_DIR}/include")
target_compile_definitions(Benchmark PUBLIC BENCHMARK_STATIC_DEFINE HAVE_STD_REGEX HAVE_STEADY_CLOCK)
target_link_libraries(Benchmark PUBLIC Torvane::CppLibrary shlwapi)

torvane_add_baseline(MiMalloc "${mimalloc_SOURCE_DIR}/src/static.c")
target_include_directories(MiMalloc SYSTEM PUBLIC "${mimalloc_SOURCE_DIR}/include")
target_link_libraries(MiMalloc PUBLIC psapi shell32 user32 advapi32 bcrypt)

add_library(BaselineHeaders INTERFACE)
foreach(part fmt rapidjson spdlog)
    target_include_directories(BaselineHeaders SYSTEM INTERFACE "${${part}_SOURCE_DIR}/include")
endforeach()
target_link_libraries(BaselineHeaders INTERFACE Torvane::CppLibrary Torvane::Json)
target_compile_definitions(BaselineHeaders INTERFACE
    SPDLOG_FMT_EXTERNAL SPDLOG_NO_EXCEPTIONS FMT_HEADER_ONLY FMT_EXCEPTIONS=0)

# What the sets need.
torvane_add_baseline(Abseil
    "${abseil_SOURCE_DIR}/absl/base/internal/raw_logging.cc"
    "${abseil_SOURCE_DIR}/absl/base/internal/throw_delegate.cc"
    "${abseil_SOURCE_DIR}/absl/container/internal/raw_hash_set.cc"
    "${abseil_SOURCE_DIR}/absl/hash/internal/city.cc"
    "${abseil_SOURCE_DIR}/absl/hash/internal/hash.cc"
    "${abseil_SOURCE_DIR}/absl/hash/internal/low_level_hash.cc"
    "${abseil_SOURCE_DIR}/absl/numeric/int128.cc")
target_include_directories(Abseil SYSTEM PUBLIC "${abseil_SOURCE_DIR}")
target_link_libraries(Abseil PUBLIC Torvane::CppLibrary)
