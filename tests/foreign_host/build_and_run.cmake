# Configures the project against another frame library, builds the plug-in and lets the host run it.
function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE failed OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(failed)
    message(FATAL_ERROR "${what} failed:\n${output}")
  endif()
  message(STATUS "${what}: ok")
endfunction()

run("configure" ${CMAKE_COMMAND} -S ${SOURCE} -B ${BUILD} -G Ninja
  -DCSRT_OCULA_LIBRARY=${LIBRARY} -DCSRT_OCULA_INCLUDE_DIR=${INCLUDE} -DCSRT_BUILD_HOST=OFF -DCSRT_BUILD_TESTS=OFF
  -DCSRT_SANITIZE=${SANITIZE} -DCMAKE_BUILD_TYPE=${BUILD_TYPE} -DCMAKE_CXX_COMPILER=${COMPILER}
  -DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER} -DOpenCV_DIR=${OPENCV} -DPython3_EXECUTABLE=${PYTHON}
  -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
run("build" ${CMAKE_COMMAND} --build ${BUILD} --target csrt_tracking_plugin)
run("host" ${HOST} ${BUILD}/lib/libcsrt_tracking_plugin.so)
