# How the images that aren't like any other library are linked.

# No relocations: it can be nowhere else.
target_link_options(FixedBase PRIVATE
    -Wl,--image-base,0x5A000000 -Wl,--disable-dynamicbase -Wl,-Xlink=/fixed)

target_link_options(EntryPoint PRIVATE -nostdlib -Wl,-e,_RecordingEntryPoint@12)

# An entry point at the image base is none.
target_link_options(NoCode PRIVATE
    -nostdlib -Wl,-Xlink=/alternatename:_DllMainCRTStartup@12=___ImageBase)

# Linked against a library that stands in a folder where the loader doesn't look.
add_library(Absent SHARED "${CMAKE_CURRENT_SOURCE_DIR}/Integration/Images/Absent/Absent.cpp")
target_link_libraries(Absent PRIVATE Torvane::TestFlags)
set_target_properties(Absent PROPERTIES
    PREFIX ""
    ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}"
    RUNTIME_OUTPUT_DIRECTORY "${integrationFolder}/images/absent")
target_link_libraries(ImportsAbsent PRIVATE Absent)
