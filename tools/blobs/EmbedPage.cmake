# Writes a source file with the parts of the page as arrays of characters. Used with -DFOLDER= -DSCRIPTS=
# -DOUTPUT=
# (An array has no limit of length, which string literals have.)

function(append name)
    set(digits "")
    foreach(file IN LISTS ARGN)
        file(READ "${FOLDER}/${file}" more HEX)
        string(APPEND digits "${more}")
    endforeach()
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${digits}")
    string(REGEX REPLACE "((0x[0-9a-f][0-9a-f],){20})" "\\1\n    " bytes "${bytes}")
    file(APPEND "${OUTPUT}" "const char ${name}[] = {\n    ${bytes}0};\n")
endfunction()

file(WRITE "${OUTPUT}" "#include \"tools/blobs/PageParts.h\"\n\nnamespace Torvane::Blobs\n{\n")
append(pageMarkup Page/Page.html)
append(pageStyle Page/Page.css)
append(pageScript ${SCRIPTS})
file(APPEND "${OUTPUT}" "} // namespace Torvane::Blobs\n")
