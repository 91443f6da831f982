# Links Host.c to the package's TVN_Agent_x86.lib as Microsoft's linker would, and runs it.
file(MAKE_DIRECTORY "${FOLDER}")
execute_process(COMMAND "${COMPILER}" --target=i686-pc-windows-msvc -O1 -c "${SOURCE}" -o "${FOLDER}/Host.obj"
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(
    COMMAND "${LINKER}" /nologo /nodefaultlib /subsystem:console /entry:Start "/out:${FOLDER}/Host.exe"
            "${FOLDER}/Host.obj" "${PACKAGE}/lib/TVN_Agent_x86.lib"
    COMMAND_ERROR_IS_FATAL ANY)
file(COPY "${PACKAGE}/bin/TVN_Agent_x86.dll" DESTINATION "${FOLDER}")
execute_process(COMMAND "${RUNNER}" --prefix "${WINE_PREFIX}" "${FOLDER}/Host.exe"
    RESULT_VARIABLE result TIMEOUT 120)
if(NOT result EQUAL 42)
    message(FATAL_ERROR "The host ended with ${result}")
endif()
