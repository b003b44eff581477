# Configures and builds tests/subproject against this source tree (tests
# and tools default to off there), then runs the program it links.
# -DSOURCE=<repository> -DBINARY=<scratch folder> -DGENERATOR=... -DCC=... -DCXX=...
file(REMOVE_RECURSE ${BINARY})
execute_process(
  COMMAND ${CMAKE_COMMAND} -S ${SOURCE}/tests/subproject -B ${BINARY} -G ${GENERATOR}
          -DCMAKE_C_COMPILER=${CC} -DCMAKE_CXX_COMPILER=${CXX} -DVORL_SOURCE_DIR=${SOURCE}
  RESULT_VARIABLE status)
if(status)
  message(FATAL_ERROR "configuring the consumer project failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BINARY} -j2 RESULT_VARIABLE status)
if(status)
  message(FATAL_ERROR "building the consumer project failed")
endif()
execute_process(COMMAND ${BINARY}/consumer RESULT_VARIABLE status)
if(status)
  message(FATAL_ERROR "the consumer program failed: ${status}")
endif()
