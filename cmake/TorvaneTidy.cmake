# The target TorvaneTidy runs clang-tidy over the sources of some targets, again for each source whose object has been
# made anew since it passed.
find_program(TORVANE_CLANG_TIDY NAMES clang-tidy clang-tidy-14)
add_custom_target(TorvaneTidy)

# torvane_tidy(target...)
function(torvane_tidy)
    if(NOT TORVANE_CLANG_TIDY)
        return()
    endif()
    foreach(target IN LISTS ARGN)
        get_target_property(folder ${target} SOURCE_DIR)
        get_target_property(sources ${target} SOURCES)
        list(FILTER sources INCLUDE REGEX "\\.cpp$")
        set(stamps "")
        foreach(source IN LISTS sources)
            cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY "${folder}")
            cmake_path(RELATIVE_PATH source BASE_DIRECTORY "${PROJECT_SOURCE_DIR}" OUTPUT_VARIABLE name)
            cmake_path(GET source FILENAME file)
            set(stamp "${PROJECT_BINARY_DIR}/tidy/${name}.passed")
            cmake_path(GET stamp PARENT_PATH stampFolder)
            file(MAKE_DIRECTORY "${stampFolder}")
            # What clang-tidy finds goes to its output, what it has suppressed to its errors.
            add_custom_command(OUTPUT "${stamp}"
                COMMAND sh -c [["$@" 2> "$0.log" && touch "$0"]] "${stamp}"
                        "${TORVANE_CLANG_TIDY}" -p "${PROJECT_BINARY_DIR}" --quiet "${source}"
                DEPENDS "$<FILTER:$<TARGET_OBJECTS:${target}>,INCLUDE,/${file}\\.>"
                        "${PROJECT_SOURCE_DIR}/.clang-tidy"
                COMMENT "Checking ${name}"
                VERBATIM)
            list(APPEND stamps "${stamp}")
        endforeach()
        add_custom_target(${target}Tidy DEPENDS ${stamps})
        add_dependencies(TorvaneTidy ${target}Tidy)
    endforeach()
endfunction()

if(TORVANE_ARCHITECTURE STREQUAL x86)
    torvane_tidy(TorvaneAgentObjects)
elseif(TORVANE_ARCHITECTURE STREQUAL x64)
    torvane_tidy(TorvaneBridge TorvaneRecording)
endif()
