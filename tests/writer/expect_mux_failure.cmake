# Runs "tmxtool mux ARGS" and requires a plain failure: exit status 1 or 2
# (no crash) and a message naming the command on the error output.
separate_arguments(args UNIX_COMMAND "${ARGS}")
execute_process(COMMAND ${TMXTOOL} mux ${args}
  RESULT_VARIABLE status ERROR_VARIABLE errors OUTPUT_QUIET)
if(NOT (status STREQUAL "1" OR status STREQUAL "2"))
  message(FATAL_ERROR "exit status ${status}, expected 1 or 2")
endif()
if(NOT errors MATCHES "tmxtool mux")
  message(FATAL_ERROR "no message on the error output: '${errors}'")
endif()
if(DEFINED OUTPUT AND EXISTS "${OUTPUT}")
  message(FATAL_ERROR "a failed run left ${OUTPUT} behind")
endif()
