# What the benchmarks measure against, and what they measure with: from the distribution's source packages, built like
# the Agent, and from its packages of headers.

set(TORVANE_BASELINES_DIR "${CMAKE_SOURCE_DIR}/build/baselines" CACHE PATH
    "Sources of the baselines, fetched if they are missing")

function(torvane_fetch_baseline package witness)
    execute_process(
        COMMAND "${PROJECT_SOURCE_DIR}/cmake/fetch-source" ${package} "${TORVANE_BASELINES_DIR}/${package}" "${witness}"
        COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# Every baseline is compiled as the Agent is, with warnings off.
function(torvane_add_baseline target)
    add_library(${target} STATIC EXCLUDE_FROM_ALL ${ARGN})
    target_compile_options(${target} PRIVATE -w -fno-exceptions $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>)
    set_target_properties(${target} PROPERTIES ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
endfunction()

torvane_fetch_baseline(benchmark src/benchmark.cc)
file(GLOB benchmarkSources "${TORVANE_BASELINES_DIR}/benchmark/src/*.cc")
list(FILTER benchmarkSources EXCLUDE REGEX "benchmark_main")
torvane_add_baseline(Benchmark ${benchmarkSources})
target_include_directories(Benchmark SYSTEM PUBLIC "${TORVANE_BASELINES_DIR}/benchmark/include")
target_compile_definitions(Benchmark PUBLIC BENCHMARK_STATIC_DEFINE HAVE_STD_REGEX HAVE_STEADY_CLOCK)
target_link_libraries(Benchmark PUBLIC Torvane::CppLibrary shlwapi)

torvane_fetch_baseline(mimalloc src/static.c)
torvane_add_baseline(MiMalloc "${TORVANE_BASELINES_DIR}/mimalloc/src/static.c")
target_include_directories(MiMalloc SYSTEM PUBLIC "${TORVANE_BASELINES_DIR}/mimalloc/include")
target_link_libraries(MiMalloc PUBLIC psapi shell32 user32 advapi32 bcrypt)

# Headers alone, copied: the folder they come from holds the host's own and must stay off the cross compiler's path.
set(baselineHeaders "${CMAKE_CURRENT_BINARY_DIR}/baselines")
add_library(BaselineHeaders INTERFACE)
target_include_directories(BaselineHeaders SYSTEM INTERFACE "${baselineHeaders}")
target_link_libraries(BaselineHeaders INTERFACE Torvane::CppLibrary)
function(torvane_copy_baseline folder header package)
    find_path(TORVANE_${folder}_INCLUDE_DIR ${folder}/${header}
        PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    if(NOT TORVANE_${folder}_INCLUDE_DIR)
        message(FATAL_ERROR "The benchmarks need the headers of ${package}; or set TORVANE_BUILD_BENCHMARKS to OFF")
    endif()
    file(COPY "${TORVANE_${folder}_INCLUDE_DIR}/${folder}" DESTINATION "${baselineHeaders}")
endfunction()

torvane_copy_baseline(spdlog spdlog.h libspdlog-dev)
torvane_copy_baseline(fmt core.h libfmt-dev)
target_compile_definitions(BaselineHeaders INTERFACE
    SPDLOG_FMT_EXTERNAL SPDLOG_NO_EXCEPTIONS FMT_HEADER_ONLY FMT_EXCEPTIONS=0)
torvane_copy_baseline(rapidjson document.h rapidjson-dev)
torvane_copy_baseline(nlohmann json.hpp nlohmann-json3-dev)

# What the sets need.
torvane_fetch_baseline(abseil absl/container/internal/raw_hash_set.cc)
set(abseil "${TORVANE_BASELINES_DIR}/abseil")
torvane_add_baseline(Abseil
    "${abseil}/absl/base/internal/raw_logging.cc"
    "${abseil}/absl/base/internal/throw_delegate.cc"
    "${abseil}/absl/container/internal/raw_hash_set.cc"
    "${abseil}/absl/hash/internal/city.cc"
    "${abseil}/absl/hash/internal/hash.cc"
    "${abseil}/absl/hash/internal/low_level_hash.cc"
    "${abseil}/absl/numeric/int128.cc")
target_include_directories(Abseil SYSTEM PUBLIC "${abseil}")
target_link_libraries(Abseil PUBLIC Torvane::CppLibrary)
