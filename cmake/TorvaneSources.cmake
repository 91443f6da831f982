# Sorts the files below src/ into those of the image and those that are built natively as well.
#   TORVANE_PRODUCT_SOURCES    the Agent, for Windows
#   TORVANE_IMAGE_SOURCES      only for the image: what stands in for a C++ library there
#   TORVANE_UNIT_TEST_SOURCES  the unit tests of this preset
#   TORVANE_NATIVE_SOURCES     product code and doubles that the native unit tests link

file(GLOB_RECURSE sources CONFIGURE_DEPENDS RELATIVE "${CMAKE_CURRENT_SOURCE_DIR}"
    src/Agent/*.cpp src/Agent/*.c src/Agent/*.S src/Shared/*.cpp src/Shared/*.c src/Shared/*.S)
list(REMOVE_ITEM sources "" ${TORVANE_UNUSED_DECODERS})

# Logic on data that lives in a Windows folder.
set(nativeToo
    "^src/Shared/Executable/Windows/(PE|Image)"
    "^src/Shared/Process/Windows/ModulePathSet")

# Outside the Windows folders, and yet nothing without the OS.
set(targetOnly
    "^src/Agent/[^/]*$"
    "^src/Shared/Concurrency/Latch"
    "^src/Shared/Container/FixedSizeQueue"
    "^src/Shared/Container/DynamicRangeArray"
    "^src/Shared/Foundation/Compiler/"
    "^src/Shared/Memory/VirtualMemoryRange")

function(torvane_matches result path)
    set(${result} FALSE PARENT_SCOPE)
    foreach(pattern IN LISTS ARGN)
        if(path MATCHES "${pattern}")
            set(${result} TRUE PARENT_SCOPE)
            return()
        endif()
    endforeach()
endfunction()

foreach(path IN LISTS sources)
    torvane_matches(isTest "${path}" "Test\\.cpp$")
    torvane_matches(isDouble "${path}" "/Native/")
    torvane_matches(isImageOnly "${path}" "^src/Shared/Foundation/Compiler/")
    torvane_matches(isNative "${path}" ${nativeToo})
    if(NOT isNative)
        torvane_matches(isTargetOnly "${path}" ${targetOnly} "/Windows/")
        if(NOT isTargetOnly)
            set(isNative TRUE)
        endif()
    endif()

    if(isTest)
        if(NOT WIN32 AND isNative OR WIN32 AND NOT isDouble)
            list(APPEND TORVANE_UNIT_TEST_SOURCES "${path}")
        endif()
    elseif(isImageOnly)
        list(APPEND TORVANE_IMAGE_SOURCES "${path}")
    elseif(NOT isDouble)
        list(APPEND TORVANE_PRODUCT_SOURCES "${path}")
    endif()
    if(isNative AND NOT isTest)
        list(APPEND TORVANE_NATIVE_SOURCES "${path}")
    endif()
endforeach()
list(APPEND TORVANE_NATIVE_SOURCES
    tests/Support/Native/NativeMappedFile.cpp
    tests/Support/Native/NativeMemorySystem.cpp)
