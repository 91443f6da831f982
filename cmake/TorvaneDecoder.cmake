# Chooses the instruction decoder of this preset.
#   Torvane::InstructionDecoder   its library
#   TORVANE_INSTRUCTION_DECODER   its name: XED or Zydis
#
# Intel XED if TORVANE_XED_ROOT names a kit of it (a folder with include/xed and lib/libxed.a), or if one is
# installed for the target. Otherwise Zydis.

set(TORVANE_XED_ROOT "" CACHE PATH "Kit of Intel XED for the target")

function(torvane_use_xed headers library)
    message(STATUS "Instruction decoder: Intel XED (${library})")
    add_library(TorvaneInstructionDecoder INTERFACE)
    target_include_directories(TorvaneInstructionDecoder SYSTEM INTERFACE "${headers}")
    target_link_libraries(TorvaneInstructionDecoder INTERFACE "${library}")
    if(WIN32)
        target_link_libraries(TorvaneInstructionDecoder INTERFACE -lssp)
    endif()
endfunction()

macro(torvane_use_zydis)
    torvane_find_parts(zydis)
    if(zydis_FOUND)
        message(STATUS "Instruction decoder: Zydis (installed)")
        add_library(TorvaneInstructionDecoder INTERFACE)
        target_link_libraries(TorvaneInstructionDecoder INTERFACE Zydis::Zydis)
    else()
        torvane_find_parts(zycore)
        message(STATUS "Instruction decoder: Zydis (${zydis_SOURCE_DIR})")
        foreach(name Decoder DecoderData MetaInfo Mnemonic Register Segment SharedData Utils Zydis)
            list(APPEND decoderSources "${zydis_SOURCE_DIR}/src/${name}.c")
        endforeach()
        add_library(TorvaneInstructionDecoder STATIC EXCLUDE_FROM_ALL ${decoderSources})
        set_target_properties(TorvaneInstructionDecoder PROPERTIES
            ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
        target_include_directories(TorvaneInstructionDecoder SYSTEM PUBLIC
            "${zydis_SOURCE_DIR}/include" "${zycore_SOURCE_DIR}/include")
        target_include_directories(TorvaneInstructionDecoder PRIVATE "${zydis_SOURCE_DIR}/src")
        target_compile_definitions(TorvaneInstructionDecoder PUBLIC
            ZYDIS_STATIC_BUILD ZYCORE_STATIC_BUILD ZYDIS_DISABLE_FORMATTER ZYDIS_DISABLE_ENCODER)
    endif()
endmacro()

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
