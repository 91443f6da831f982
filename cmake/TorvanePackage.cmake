# What is installed: from the preset windows-x86 the package TorvaneAgent, for hosts; from windows-x64 the package
# TorvaneBridge, for whoever writes a Bridge, with the command blobs. Both go into the same folder.
#
#   cmake --install build/windows-x86 --prefix FOLDER
#   cmake --install build/windows-x64 --prefix FOLDER
#
# The target TorvanePackageContents builds all of it and nothing else. CPack in the build folder of windows-x86 puts both
# into one zip.

include(CMakePackageConfigHelpers)

# torvane_install_package_files(name): the files by which find_package(name) finds the exported targets of that name.
function(torvane_install_package_files name)
    set(folder "${CMAKE_CURRENT_BINARY_DIR}/package")
    configure_package_config_file("${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${name}Config.cmake.in"
        "${folder}/${name}Config.cmake"
        INSTALL_DESTINATION lib/cmake/${name}
        NO_CHECK_REQUIRED_COMPONENTS_MACRO)
    # A minor version can change what a host or a Bridge has to do.
    write_basic_package_version_file("${folder}/${name}ConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
    install(FILES "${folder}/${name}Config.cmake" "${folder}/${name}ConfigVersion.cmake"
        DESTINATION lib/cmake/${name})
    install(EXPORT ${name} NAMESPACE ${name}:: FILE ${name}Targets.cmake DESTINATION lib/cmake/${name})
endfunction()

# torvane_install_license(name file...): the terms of something that is linked into what is installed. The first of the
# files that exists is taken; without any there is no package.
function(torvane_install_license name)
    foreach(file IN LISTS ARGN)
        if(EXISTS "${file}")
            install(FILES "${file}" DESTINATION licenses RENAME "${name}.txt")
            return()
        endif()
    endforeach()
    list(JOIN ARGN ", " files)
    install(CODE "message(FATAL_ERROR \"The licence of ${name} is missing: none of ${files}\")")
endfunction()

# torvane_install_documents(document...): without the places of their code in these sources.
function(torvane_install_documents)
    set(folder "${CMAKE_CURRENT_BINARY_DIR}/package/docs")
    foreach(document IN LISTS ARGN)
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${document}")
        file(READ "${document}" text)
        string(REGEX REPLACE "<!-- snippet [^\n]*\n" "" text "${text}")
        cmake_path(GET document FILENAME name)
        file(WRITE "${folder}/${name}" "${text}")
        install(FILES "${folder}/${name}" DESTINATION docs)
    endforeach()
endfunction()

# torvane_install_runtime_licenses(processor): of what the compiler links: start-up code, what it calls for 64-bit division and
# large stack frames, and in programs the C++ library.
function(torvane_install_runtime_licenses processor)
    if(TORVANE_LLVM_MINGW_FOLDER)
        torvane_install_license(LLVM "${TORVANE_LLVM_MINGW_FOLDER}/LICENSE.TXT")
        torvane_install_license(mingw-w64
            "${TORVANE_LLVM_MINGW_FOLDER}/${TORVANE_TRIPLE}/share/mingw32/COPYING.MinGW-w64-runtime.txt")
    else()
        torvane_install_license(mingw-w64 "${TORVANE_LICENSES_DIR}/mingw-w64-${processor}-dev/copyright")
        torvane_install_license(libgcc "${TORVANE_LICENSES_DIR}/gcc-mingw-w64-${processor}-posix/copyright")
        torvane_install_license(libstdc++ "${TORVANE_LICENSES_DIR}/g++-mingw-w64-${processor}-posix/copyright")
    endif()
endfunction()

set(TORVANE_LICENSES_DIR "" CACHE PATH "Folder of the licences of MinGW's packages, as <package>/copyright")
add_custom_target(TorvanePackageContents)
if(TORVANE_ARCHITECTURE STREQUAL x86)
    add_dependencies(TorvanePackageContents TorvaneAgent TorvaneAgentImportLibrary TorvaneDoctor)
    torvane_install_package_files(TorvaneAgent)
    install(TARGETS TorvaneAgent EXPORT TorvaneAgent
        RUNTIME DESTINATION bin
        ARCHIVE DESTINATION lib
        FILE_SET HEADERS DESTINATION include
        INCLUDES DESTINATION include)
    install(FILES "${TORVANE_BIN_DIR}/TVN_Agent_x86.pdb" DESTINATION bin)
    install(FILES "${TORVANE_BIN_DIR}/TVN_Agent_x86.lib" DESTINATION lib)
    install(TARGETS TorvaneDoctor RUNTIME DESTINATION bin)
    install(FILES cmake/TorvaneAgentHost.cmake cmake/PatchEntry.c cmake/PatchExports.cmake
        DESTINATION lib/cmake/TorvaneAgent)
    install(FILES package/README.md package/CHANGELOG.md package/Torvane.props LICENSE DESTINATION .)
    install(FILES package/licenses.md DESTINATION licenses RENAME README.md)
    torvane_install_documents(docs/host-guide.md docs/troubleshooting.md)
    install(DIRECTORY samples DESTINATION . PATTERN demo EXCLUDE PATTERN demo.sh EXCLUDE)

    if(TORVANE_XED_INCLUDE_DIR AND TORVANE_XED_LIBRARY)
        torvane_install_license(XED "${TORVANE_XED_ROOT}/LICENSE" "${TORVANE_XED_INCLUDE_DIR}/../LICENSE"
            "${TORVANE_LICENSES_DIR}/libxed-dev/copyright")
    else()
        torvane_install_license(Zydis "${zydis_SOURCE_DIR}/LICENSE")
        torvane_install_license(Zycore "${zycore_SOURCE_DIR}/LICENSE")
    endif()
    torvane_install_license(xxHash "${xxhash_SOURCE_DIR}/LICENSE")
    torvane_install_runtime_licenses(i686)
elseif(TORVANE_ARCHITECTURE STREQUAL x64)
    add_dependencies(TorvanePackageContents TorvaneBridge TorvaneRecording TorvaneDefaultBridge TorvaneBlobs)
    torvane_install_package_files(TorvaneBridge)
    install(TARGETS TorvaneBridge TorvaneRecording TorvaneCppLibrary EXPORT TorvaneBridge
        ARCHIVE DESTINATION lib/x64
        FILE_SET HEADERS DESTINATION include
        FILE_SET agentHeaders DESTINATION include
        INCLUDES DESTINATION include)
    # The default Bridge is installed beside the Agent; its source is a starting point for another one.
    install(TARGETS TorvaneDefaultBridge TorvaneBlobs RUNTIME DESTINATION bin)
    install(FILES bridge/Main.cpp DESTINATION bridge)
    torvane_install_documents(docs/protocol.md docs/recording.md)
    install(FILES docs/recording.png DESTINATION docs)
    install(DIRECTORY tools/blobs/Example/ DESTINATION samples/recordings)
    # What is linked into the programs.
    torvane_install_license(nlohmann-json "${nlohmann_json_SOURCE_DIR}/LICENSE.MIT")
    FetchContent_GetProperties(ZLIB)
    torvane_install_license(zlib "${zlib_SOURCE_DIR}/LICENSE" "${TORVANE_LICENSES_DIR}/libz-mingw-w64-dev/copyright")
    torvane_install_runtime_licenses(x86-64)
endif()

if(TORVANE_ARCHITECTURE STREQUAL x86 AND PROJECT_IS_TOP_LEVEL)
    set(TORVANE_X64_BUILD_DIR "${CMAKE_BINARY_DIR}/../windows-x64" CACHE PATH "Build folder of the preset windows-x64")
    set(CPACK_GENERATOR ZIP)
    set(CPACK_PACKAGE_FILE_NAME "TorvaneAgent-${PROJECT_VERSION}-windows")
    set(CPACK_INSTALL_CMAKE_PROJECTS
        "${CMAKE_BINARY_DIR};TorvaneAgent;ALL;/"
        "${TORVANE_X64_BUILD_DIR};TorvaneBridge;ALL;/")
    set(CPACK_PACKAGE_CHECKSUM SHA256) # beside the zip
    set(CPACK_VERBATIM_VARIABLES ON)
    include(CPack)
endif()
