# cmake -DPROGRAM=... -DEXPECTED=... -DACTUAL=... -P compare_output.cmake
# What PROGRAM prints, kept in ACTUAL, must be the file EXPECTED.
execute_process(COMMAND ${PROGRAM} OUTPUT_FILE ${ACTUAL} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${EXPECTED} ${ACTUAL} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${EXPECTED} is out of date; print it again with ${PROGRAM}")
endif()
