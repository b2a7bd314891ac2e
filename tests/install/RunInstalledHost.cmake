# Runs as `cmake -P`: install the built tree into WORK_DIR/prefix, then build and
# run the host of HOST_DIR against the installed package only; with WITH_COMMAND,
# run the installed `orvane` from the prefix with no library path in the
# environment, so that it must find its libraries by its own run path.
file(REMOVE_RECURSE "${WORK_DIR}")

# Runs a command; fails on a non-zero exit. Its standard output is left in `out`.
function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
    message("${out}")
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}${err}")
    endif()
    set(out "${out}" PARENT_SCOPE)
endfunction()

function(expect_output pattern)
    if(NOT out MATCHES "${pattern}")
        message(FATAL_ERROR "expected output matching \"${pattern}\", got:\n${out}")
    endif()
endfunction()

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${WORK_DIR}/prefix")
file(GLOB_RECURSE private_headers "${WORK_DIR}/prefix/include/*/DefectMapSteps.h"
    "${WORK_DIR}/prefix/include/*/ReferenceFile.h")
if(private_headers)
    message(FATAL_ERROR "private headers were installed: ${private_headers}")
endif()
run(${CMAKE_COMMAND} -S "${HOST_DIR}" -B "${WORK_DIR}/build" -G "${GENERATOR}"
    "-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix"
    "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}"
    "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}")
run(${CMAKE_COMMAND} --build "${WORK_DIR}/build")
run("${WORK_DIR}/build/host")
expect_output("host: offset 101 from 2 frames")

if(WITH_COMMAND)
    run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH "${WORK_DIR}/prefix/bin/orvane" params Birch)
    expect_output("lookup\\(\"Birch\"\\)")
endif()
