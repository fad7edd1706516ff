# Checks that the generator still writes the committed sample log.
execute_process(COMMAND ${GENERATOR} --output ${ACTUAL} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "the generator failed: ${status}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${EXPECTED} ${ACTUAL} RESULT_VARIABLE different)
if(different)
  message(FATAL_ERROR "${EXPECTED} differs from the generator's output ${ACTUAL}: regenerate it")
endif()
