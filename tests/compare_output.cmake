# Fails unless PAGE contains what PROGRAM prints for TABLES.
execute_process(COMMAND ${PROGRAM} ${TABLES} OUTPUT_VARIABLE printed COMMAND_ERROR_IS_FATAL ANY)
file(READ ${PAGE} page)
string(FIND "${page}" "${printed}" at)
if(at EQUAL -1)
    message(FATAL_ERROR "${PAGE} does not have what ${PROGRAM} prints; put that in its place:\n${printed}")
endif()
