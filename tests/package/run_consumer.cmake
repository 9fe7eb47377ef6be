# Install, configure the consumer against the installed package, build it and run it.
file(REMOVE_RECURSE ${SCRATCH})

function(step)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed: ${ARGN}\n${out}\n${err}")
    endif()
    set(step_output "${out}" PARENT_SCOPE)
endfunction()

step(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${SCRATCH}/prefix)
step(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${SCRATCH}/build -G Ninja
     -DCMAKE_PREFIX_PATH=${SCRATCH}/prefix -DCMAKE_BUILD_TYPE=Release)
step(${CMAKE_COMMAND} --build ${SCRATCH}/build)
step(${SCRATCH}/build/consumer ${EXAMPLES}/geometry ${EXAMPLES}/utils)
if(NOT step_output MATCHES "geometry/area.vl")
    message(FATAL_ERROR "the consumer resolved area to: ${step_output}")
endif()
