# Installs into a scratch prefix, then configures, builds and runs a project that knows nothing but that prefix. The
# prefix is moved first: a path that was written into the package would not survive that.
file(REMOVE_RECURSE ${SCRATCH})
file(MAKE_DIRECTORY ${SCRATCH})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN}\nanswered ${result}:\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${SCRATCH}/first --config ${CONFIG})
file(RENAME ${SCRATCH}/first ${SCRATCH}/prefix)

run(${CMAKE_COMMAND} -G Ninja -S ${CONSUMER} -B ${SCRATCH}/build -D CMAKE_PREFIX_PATH=${SCRATCH}/prefix
  -D CMAKE_CXX_COMPILER=${COMPILER} -D CMAKE_BUILD_TYPE=${CONFIG}
  -D CMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -D CMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF)
run(${CMAKE_COMMAND} --build ${SCRATCH}/build)
run(${SCRATCH}/build/consumer ${SCRATCH}/consumer.dtm)
if(NOT output MATCHES "mean -12.5 of 2")
  message(FATAL_ERROR "the program printed: ${output}")
endif()

if(WITH_COMMAND)
  run(${SCRATCH}/prefix/${BINDIR}/vakdtm --version)
  if(NOT output MATCHES "[0-9]+\\.[0-9]+\\.[0-9]+")
    message(FATAL_ERROR "the installed command printed: ${output}")
  endif()
endif()
file(REMOVE_RECURSE ${SCRATCH})
