# Run as `cmake -DSOURCE_DIR=<tree> -P CheckLayers.cmake`. Fails, naming the file and
# the line, when a source includes a header of a folder above its own, or when an
# installed header includes a private one (the install would then be broken).

include(${CMAKE_CURRENT_LIST_DIR}/Layers.cmake)

set(problems "")
foreach(folder ${ORVANE_LAYERED_FOLDERS})
    file(GLOB_RECURSE sources RELATIVE "${SOURCE_DIR}" "${SOURCE_DIR}/${folder}/*.h" "${SOURCE_DIR}/${folder}/*.cpp")
    foreach(source ${sources})
        file(STRINGS "${SOURCE_DIR}/${source}" includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
        list(FIND ORVANE_PRIVATE_HEADERS "${source}" private_index)
        foreach(line ${includes})
            string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([^\"]+)\".*" "\\1" header "${line}")
            if(header STREQUAL "OrvaneCalibration.h")
                set(target_folder calibration)
            else()
                string(REGEX REPLACE "/.*" "" target_folder "${header}")
            endif()
            list(FIND ORVANE_LAYER_${folder} "${target_folder}" allowed)
            if(allowed EQUAL -1)
                string(APPEND problems "${source}: includes \"${header}\", but ${folder}/ may include only ${ORVANE_LAYER_${folder}}\n")
            endif()
            list(FIND ORVANE_PRIVATE_HEADERS "${header}" includes_private)
            if(source MATCHES "\\.h$" AND private_index EQUAL -1 AND NOT includes_private EQUAL -1
               AND NOT folder STREQUAL "apps")
                string(APPEND problems "${source}: an installed header includes the private \"${header}\"\n")
            endif()
        endforeach()
    endforeach()
endforeach()

if(problems)
    message(FATAL_ERROR "Includes that point up or leak a private header:\n${problems}")
endif()
message("layers: every include points down")
