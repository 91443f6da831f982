# Makes the zip of the package out of built presets: cmake -DBUILDS=folder[|folder] -DOUTPUT=folder -P cmake/MakePackage.cmake
string(REPLACE "|" ";" builds "${BUILDS}")
list(GET builds 0 build)
load_cache("${build}" READ_WITH_PREFIX "" CMAKE_PROJECT_VERSION)
set(name "TorvaneAgent-${CMAKE_PROJECT_VERSION}-windows")

file(REMOVE_RECURSE "${OUTPUT}/${name}")
foreach(build IN LISTS builds)
    execute_process(COMMAND "${CMAKE_COMMAND}" --install "${build}" --prefix "${OUTPUT}/${name}"
        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
execute_process(COMMAND "${CMAKE_COMMAND}" -E tar cf "${name}.zip" --format=zip "${name}"
    WORKING_DIRECTORY "${OUTPUT}" COMMAND_ERROR_IS_FATAL ANY)
message("${OUTPUT}/${name}.zip")
