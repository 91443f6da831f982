# The check reports exactly what is wrong in the folder Broken, by file and line, and fails.
execute_process(COMMAND "${PYTHON}" -B check.py Broken/layers.txt Broken OUTPUT_VARIABLE reported RESULT_VARIABLE result)
file(READ Broken/expected.txt expected)
if(NOT reported STREQUAL expected OR NOT result EQUAL 1)
    message(FATAL_ERROR "The check has ended with ${result} and reported:\n${reported}")
endif()
