# Runs vekr-render with ARGS (a ;-list) and checks its exit code (CODE), that
# stderr contains MESSAGE when given, and that OUTPUT exists afterwards when
# given.  FILE_TEXT, when set, is first written to FILE.
if(DEFINED FILE)
  file(WRITE "${FILE}" "${FILE_TEXT}")
endif()
if(DEFINED OUTPUT)
  file(REMOVE "${OUTPUT}")
endif()
execute_process(COMMAND "${PROGRAM}" ${ARGS} RESULT_VARIABLE rc ERROR_VARIABLE err OUTPUT_VARIABLE out)
if(NOT rc EQUAL CODE)
  message(FATAL_ERROR "exit code ${rc}, expected ${CODE}\nstdout: ${out}\nstderr: ${err}")
endif()
if(DEFINED MESSAGE AND NOT err MATCHES "${MESSAGE}")
  message(FATAL_ERROR "stderr lacks '${MESSAGE}': ${err}")
endif()
if(DEFINED OUTPUT AND NOT EXISTS "${OUTPUT}")
  message(FATAL_ERROR "${OUTPUT} was not written")
endif()
