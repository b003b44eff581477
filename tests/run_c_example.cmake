# Writes a reference table, then runs the C host example on it.
execute_process(COMMAND ${EMULATOR} ${WRITER} ${TABLE} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cannot write ${TABLE}")
endif()
execute_process(COMMAND ${EMULATOR} ${EXAMPLE} ${TABLE} RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0 OR NOT out MATCHES "status 0")
  message(FATAL_ERROR "C host example failed (${rc}): ${out}")
endif()
