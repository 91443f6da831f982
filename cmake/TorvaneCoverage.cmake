# The target TorvaneCoverage runs the tests of a build with TORVANE_COVERAGE, and prints how much of each source they reach.
# Everything has to be built before.
find_program(TORVANE_PROFDATA NAMES llvm-profdata llvm-profdata-14 REQUIRED)
find_program(TORVANE_COV NAMES llvm-cov llvm-cov-14 REQUIRED)

set(folder "${PROJECT_BINARY_DIR}/coverage")
add_custom_target(TorvaneCoverage
    COMMAND "${CMAKE_COMMAND}" -E rm -rf "${folder}"
    COMMAND "${CMAKE_COMMAND}" -E env "LLVM_PROFILE_FILE=${folder}/%m-%p.profraw"
            "${CMAKE_CTEST_COMMAND}" --test-dir "${PROJECT_BINARY_DIR}" --output-on-failure -j 2
    COMMAND "${TORVANE_PROFDATA}" merge --sparse "${folder}" -o "${folder}/all.profdata"
    COMMAND "${TORVANE_COV}" report "--instr-profile=${folder}/all.profdata"
            "--ignore-filename-regex=(Test\\.cpp|^/|^tests/)" "$<TARGET_FILE:TorvaneUnitTests>"
            "--object=$<TARGET_FILE:TorvaneRecordingTests>" "--object=$<TARGET_FILE:TorvaneBlobsTests>"
    WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
    USES_TERMINAL
    VERBATIM)
