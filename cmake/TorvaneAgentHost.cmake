# Functions for projects of hosts, which find_package(TorvaneAgent) defines, and so do these sources as a part of a project.
include_guard(GLOBAL)
cmake_policy(PUSH)
cmake_policy(VERSION 3.23)

# torvane_deploy(target [BRIDGE file]): whenever the program is built, copies what the Agent needs beside it: the library,
# and beside that the Bridge, by default the one of TorvaneAgent_BRIDGE. To be called in the folder that adds the target.
function(torvane_deploy target)
    cmake_parse_arguments(PARSE_ARGV 1 deploy "" "BRIDGE" "")
    if(NOT TARGET "${target}" OR deploy_UNPARSED_ARGUMENTS OR deploy_KEYWORDS_MISSING_VALUES)
        message(FATAL_ERROR "Usage: torvane_deploy(target [BRIDGE file])")
    endif()
    if(NOT deploy_BRIDGE)
        if(NOT EXISTS "${TorvaneAgent_BRIDGE}")
            message(FATAL_ERROR "torvane_deploy(${target}) lacks a Bridge: TorvaneAgent_BRIDGE names no file "
                "(\"${TorvaneAgent_BRIDGE}\"). Install the package's 64-bit half into the same folder, or name a Bridge: "
                "torvane_deploy(${target} BRIDGE file).")
        endif()
        set(deploy_BRIDGE "${TorvaneAgent_BRIDGE}")
    endif()
    set(library "$<TARGET_FILE:TorvaneAgent::TorvaneAgent>")
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND "${CMAKE_COMMAND}" -E copy_if_different "${library}" "$<TARGET_FILE_DIR:${target}>"
        COMMAND "${CMAKE_COMMAND}" -E copy_if_different "${deploy_BRIDGE}"
                "$<TARGET_FILE_DIR:${target}>/TVN_Agent_Bridge_x64.exe"
        VERBATIM)
    add_dependencies(${target} TorvaneAgent::TorvaneAgent)
    # Another version of them is copied even if nothing else has changed.
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${library}" "${deploy_BRIDGE}")
endfunction()

# torvane_add_patch(name HOST target SOURCES file... [OUTPUT_DIRECTORY folder])
#
# The target name, which only `cmake --build FOLDER --target name` builds: a patch library of changed sources of the host,
# name.dll in the output directory (patches in the current binary directory by default). A Bridge that watches this folder
# (environment variable TORVANE_BRIDGE_WATCH) loads it, and routes each function there that the host has under the same name.
# The sources are compiled as in the host, with its include folders, definitions and options, and the patch is linked
# statically, for MinGW's compilers (GCC and clang). To be called in the same folder and after what sets the host's language
# standards. The host is never built for it, since it is running.
#
# A patch has variables of its own for all that its sources define: static and global ones start anew in the patch. What the
# sources use of the host and don't define has to be exported by the host, with __declspec(dllexport) where it is defined, or
# -Wl,--export-all-symbols among the host's link options, and
#
#   set_target_properties(host PROPERTIES ENABLE_EXPORTS ON)
#
# Then the patch uses the host's, functions and variables. Otherwise linking the patch fails with an undefined reference,
# or add the source to SOURCES if it has no state. Static libraries of the host are linked into the patch once more, with
# variables of their own, unless the host exports what the sources use of them; it isn't routed.
function(torvane_add_patch name)
    cmake_parse_arguments(PARSE_ARGV 1 patch "" "HOST;OUTPUT_DIRECTORY" "SOURCES")
    if(NOT TARGET "${patch_HOST}" OR NOT patch_SOURCES OR patch_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR
            "Usage: torvane_add_patch(name HOST target SOURCES file... [OUTPUT_DIRECTORY folder]), with an existing target")
    endif()
    if(NOT MINGW)
        message(FATAL_ERROR "torvane_add_patch is for MinGW's compilers, GCC and clang")
    endif()
    if(NOT patch_OUTPUT_DIRECTORY)
        set(patch_OUTPUT_DIRECTORY patches)
    endif()
    cmake_path(ABSOLUTE_PATH patch_OUTPUT_DIRECTORY BASE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
    file(MAKE_DIRECTORY "${patch_OUTPUT_DIRECTORY}") # a Bridge can watch it before there is a patch

    set(entry "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/PatchEntry.c")
    set(language C)
    if(CMAKE_CXX_COMPILER_LOADED)
        set(language CXX)
    endif()
    set_source_files_properties("${entry}" PROPERTIES
        LANGUAGE ${language} COMPILE_OPTIONS -w)
    add_library(${name} MODULE EXCLUDE_FROM_ALL ${patch_SOURCES} "${entry}")
    torvane_compile_as(${name} ${patch_HOST})
    torvane_link_to_host(${name} ${patch_HOST})
    target_link_options(${name} PRIVATE -static LINKER:-e,_TorvanePatchEntry@12)
    torvane_export_functions(${name})
    set_target_properties(${name} PROPERTIES
        PREFIX ""
        SUFFIX .dll
        OUTPUT_NAME ${name}
        LIBRARY_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/${name}.linked/$<CONFIG>")
    # It appears in the folder in one piece.
    set(finished "${patch_OUTPUT_DIRECTORY}/${name}")
    add_custom_command(TARGET ${name} POST_BUILD
        COMMAND "${CMAKE_COMMAND}" -E copy "$<TARGET_FILE:${name}>" "${finished}.new"
        COMMAND "${CMAKE_COMMAND}" -E rename "${finished}.new" "${finished}.dll"
        VERBATIM)
endfunction()

# torvane_compile_as(target host): the target's sources are compiled like the host's.
function(torvane_compile_as target host)
    target_include_directories(${target} PRIVATE "$<TARGET_PROPERTY:${host},INCLUDE_DIRECTORIES>")
    target_compile_definitions(${target} PRIVATE "$<TARGET_PROPERTY:${host},COMPILE_DEFINITIONS>")
    target_compile_options(${target} PRIVATE "$<TARGET_PROPERTY:${host},COMPILE_OPTIONS>")
    target_compile_features(${target} PRIVATE "$<TARGET_PROPERTY:${host},COMPILE_FEATURES>")
    foreach(language C CXX)
        foreach(property ${language}_STANDARD ${language}_STANDARD_REQUIRED ${language}_EXTENSIONS)
            get_target_property(value ${host} ${property})
            if(NOT value STREQUAL "value-NOTFOUND")
                set_property(TARGET ${target} PROPERTY ${property} "${value}")
            endif()
        endforeach()
    endforeach()

    # The definition that CMake adds by itself for whatever exports something, as in the host.
    set_property(TARGET ${target} PROPERTY DEFINE_SYMBOL "")
    get_target_property(symbol ${host} DEFINE_SYMBOL)
    if(NOT symbol)
        string(MAKE_C_IDENTIFIER "${host}_EXPORTS" symbol)
    endif()
    get_target_property(type ${host} TYPE)
    if(type STREQUAL EXECUTABLE)
        set(symbol "$<$<BOOL:$<TARGET_PROPERTY:${host},ENABLE_EXPORTS>>:${symbol}>")
    endif()
    target_compile_definitions(${target} PRIVATE "${symbol}")
endfunction()

# torvane_export_functions(target): all of its sources that aren't static.
function(torvane_export_functions target)
    set(definition "${CMAKE_CURRENT_BINARY_DIR}/${target}.def")
    add_custom_command(TARGET ${target} PRE_LINK
        COMMAND "${CMAKE_COMMAND}" "-DNM=${CMAKE_NM}" "-DOBJECTS=$<JOIN:$<TARGET_OBJECTS:${target}>,|>"
                "-DOUTPUT=${definition}" -P "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/PatchExports.cmake"
        VERBATIM)
    target_link_options(${target} PRIVATE "${definition}")
endfunction()

# torvane_link_to_host(target host): what the host exports and the libraries that it uses, without a dependency on the host.
function(torvane_link_to_host target host)
    set(exports "-L$<TARGET_LINKER_FILE_DIR:${host}>;-l:$<TARGET_LINKER_FILE_NAME:${host}>")
    get_target_property(type ${host} TYPE)
    if(type STREQUAL EXECUTABLE)
        set(exports "$<$<BOOL:$<TARGET_PROPERTY:${host},ENABLE_EXPORTS>>:${exports}>")
    elseif(NOT type STREQUAL SHARED_LIBRARY)
        set(exports "")
    endif()
    target_link_directories(${target} PRIVATE "$<TARGET_PROPERTY:${host},LINK_DIRECTORIES>")
    target_link_libraries(${target} PRIVATE "${exports}" "$<TARGET_PROPERTY:${host},LINK_LIBRARIES>")
endfunction()

cmake_policy(POP)
