# Writes a definition file that exports the functions of object files, for torvane_add_patch: a Bridge routes a patch's exports.
# What linkers export by themselves isn't that: lld adds what comes out of static libraries, and leaves out what the host
# exports as well.
#   NM        the compiler's nm
#   OBJECTS   with | between them
#   OUTPUT    the file
string(REPLACE "|" ";" objects "${OBJECTS}")
execute_process(COMMAND "${NM}" --extern-only --defined-only ${objects} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL " [TW] _[^\r\n]+" functions "${symbols}")
list(FILTER functions EXCLUDE REGEX " _(TorvanePatchEntry@12|DllMain@12)$")
list(TRANSFORM functions REPLACE "^ . _" "    ")
list(REMOVE_DUPLICATES functions)
list(JOIN functions "\n" functions)
file(WRITE "${OUTPUT}" "EXPORTS\n${functions}\n")
