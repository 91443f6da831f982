# Chooses the instruction decoder of this preset.
#   Torvane::InstructionDecoder   its library
#   TORVANE_INSTRUCTION_DECODER   its name: XED or Zydis
#
# Intel XED if TORVANE_XED_ROOT names a kit of it (a folder with include/xed and lib/libxed.a), or if one is
# installed for the target. Otherwise Zydis, from the distribution's source package.

set(TORVANE_XED_ROOT "" CACHE PATH "Kit of Intel XED for the target")
find_path(TORVANE_ZYCORE_INCLUDE_DIR Zycore/Zycore.h
    PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)

function(torvane_use_xed headers library)
    message(STATUS "Instruction decoder: Intel XED (${library})")
    add_library(TorvaneInstructionDecoder INTERFACE)
    target_include_directories(TorvaneInstructionDecoder SYSTEM INTERFACE "${headers}")
    target_link_libraries(TorvaneInstructionDecoder INTERFACE "${library}")
    if(WIN32)
        target_link_libraries(TorvaneInstructionDecoder INTERFACE -lssp)
    endif()
endfunction()

function(torvane_use_zydis)
    if(NOT TORVANE_ZYCORE_INCLUDE_DIR)
        message(FATAL_ERROR "Neither Intel XED nor the headers of Zycore (package libzycore-dev) are here")
    endif()
    execute_process(
        COMMAND "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/fetch-source" zydis "${TORVANE_ZYDIS_DIR}" src/Decoder.c
        COMMAND_ERROR_IS_FATAL ANY)
    message(STATUS "Instruction decoder: Zydis (${TORVANE_ZYDIS_DIR})")

    # The folder that Zycore's headers come from holds the host's and must stay off the cross compiler's path.
    set(zycore "${CMAKE_CURRENT_BINARY_DIR}/zycore")
    file(COPY "${TORVANE_ZYCORE_INCLUDE_DIR}/Zycore" DESTINATION "${zycore}")
    foreach(name Decoder DecoderData MetaInfo Mnemonic Register Segment SharedData Utils Zydis)
        list(APPEND decoderSources "${TORVANE_ZYDIS_DIR}/src/${name}.c")
    endforeach()
    add_library(TorvaneInstructionDecoder STATIC EXCLUDE_FROM_ALL ${decoderSources})
    set_target_properties(TorvaneInstructionDecoder PROPERTIES ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
    target_include_directories(TorvaneInstructionDecoder SYSTEM PUBLIC "${TORVANE_ZYDIS_DIR}/include" "${zycore}")
    target_include_directories(TorvaneInstructionDecoder PRIVATE "${TORVANE_ZYDIS_DIR}/src")
    target_compile_definitions(TorvaneInstructionDecoder PUBLIC
        ZYDIS_STATIC_BUILD ZYCORE_STATIC_BUILD ZYDIS_DISABLE_FORMATTER ZYDIS_DISABLE_ENCODER)
endfunction()

if(TORVANE_XED_ROOT)
    find_path(TORVANE_XED_INCLUDE_DIR xed/xed-interface.h
        PATHS "${TORVANE_XED_ROOT}/include" NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    find_library(TORVANE_XED_LIBRARY xed
        PATHS "${TORVANE_XED_ROOT}/lib" NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
else()
    find_path(TORVANE_XED_INCLUDE_DIR xed/xed-interface.h)
    find_library(TORVANE_XED_LIBRARY xed)
endif()
if(TORVANE_XED_INCLUDE_DIR AND TORVANE_XED_LIBRARY)
    torvane_use_xed("${TORVANE_XED_INCLUDE_DIR}" "${TORVANE_XED_LIBRARY}")
    set(TORVANE_INSTRUCTION_DECODER XED)
else()
    torvane_use_zydis()
    set(TORVANE_INSTRUCTION_DECODER Zydis)
endif()
add_library(Torvane::InstructionDecoder ALIAS TorvaneInstructionDecoder)
