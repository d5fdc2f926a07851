# Installs the build into an empty place, builds the smallest host against the package found there, and runs it.
# Arguments: BUILD_DIR, SOURCE_DIR, WORK_DIR, GENERATOR, COMPILER, BUILD_TYPE, FLAGS
file(REMOVE_RECURSE ${WORK_DIR})
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${output}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/helloworld -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_BUILD_TYPE=${BUILD_TYPE}
    -DCMAKE_CXX_FLAGS=${FLAGS})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/helloworld ${WORK_DIR}/mesh.xml)
file(READ ${WORK_DIR}/mesh.xml document LIMIT 200)
if(NOT document MATCHES "<KORV>")
  message(FATAL_ERROR "not a mesh document: ${document}")
endif()
