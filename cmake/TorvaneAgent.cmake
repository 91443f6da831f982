# The image, its import libraries and the check of the finished file.

add_library(AgentObjects OBJECT ${TORVANE_PRODUCT_SOURCES})
target_link_libraries(AgentObjects PRIVATE Torvane::Flags Torvane::InstructionDecoder INTERFACE shell32 ole32)

if(NOT EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/src/Agent/Agent.def")
    message(WARNING "src/Agent/Agent.def is missing: no image is built")
    return()
endif()

set(imageName TVN_Agent_x86)
configure_file(src/Agent/Agent.rc.in Agent.rc @ONLY)
add_library(Agent SHARED ${TORVANE_IMAGE_SOURCES} "${CMAKE_CURRENT_BINARY_DIR}/Agent.rc")
target_link_libraries(Agent PRIVATE AgentObjects Torvane::Flags)
target_include_directories(Agent INTERFACE "${CMAKE_CURRENT_SOURCE_DIR}/include")
add_library(TorvaneAgent::TorvaneAgent ALIAS Agent)
set_target_properties(Agent PROPERTIES
    OUTPUT_NAME ${imageName}
    PREFIX ""
    LINKER_LANGUAGE CXX
    ARCHIVE_OUTPUT_DIRECTORY "${TORVANE_BIN_DIR}"
    IMPORT_PREFIX lib
    IMPORT_SUFFIX .dll.a
    LINK_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/src/Agent/Agent.def;${CMAKE_CURRENT_SOURCE_DIR}/src/Agent/Torvane.natvis")
target_link_options(Agent PRIVATE
    "${CMAKE_CURRENT_SOURCE_DIR}/src/Agent/Agent.def"
    "-Wl,--pdb=${TORVANE_BIN_DIR}/${imageName}.pdb"
    "-Wl,-Xlink=-pdbaltpath:%_PDB%"
    "-Wl,-Xlink=-natvis:${CMAKE_CURRENT_SOURCE_DIR}/src/Agent/Torvane.natvis"
    "-Wl,-Map=${CMAKE_CURRENT_BINARY_DIR}/${imageName}.map"
    -Wl,--no-insert-timestamp)

# MSVC's linker wants a .lib.
find_program(TORVANE_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)
add_custom_command(
    OUTPUT "${TORVANE_BIN_DIR}/${imageName}.lib"
    COMMAND "${TORVANE_DLLTOOL}" -m i386 -D ${imageName}.dll
            -d "${CMAKE_CURRENT_SOURCE_DIR}/src/Agent/Agent.def" -l "${TORVANE_BIN_DIR}/${imageName}.lib"
    DEPENDS src/Agent/Agent.def
    VERBATIM)
add_custom_target(AgentImportLibrary ALL DEPENDS "${TORVANE_BIN_DIR}/${imageName}.lib")

# Under the name that the installed package gives it as well.
if(NOT PROJECT_IS_TOP_LEVEL)
    set(TorvaneAgent_DLL "${TORVANE_BIN_DIR}/${imageName}.dll" PARENT_SCOPE)
    set(TorvaneAgent_PDB "${TORVANE_BIN_DIR}/${imageName}.pdb" PARENT_SCOPE)
endif()

if(TORVANE_BUILD_TESTS)
    find_program(TORVANE_READOBJ NAMES llvm-readobj llvm-readobj-14 REQUIRED)
    add_test(NAME AgentImage
        COMMAND "${CMAKE_COMMAND}" "-DIMAGE=$<TARGET_FILE:Agent>" "-DREADOBJ=${TORVANE_READOBJ}"
                "-DMAP=${CMAKE_CURRENT_BINARY_DIR}/${imageName}.map"
                "-DDEFINITION=${CMAKE_CURRENT_SOURCE_DIR}/src/Agent/Agent.def"
                -P "${CMAKE_CURRENT_SOURCE_DIR}/cmake/CheckImage.cmake")
endif()
