# Runs "tmxtool mux ARGS" and requires a clean failure: exactly exit status
# STATUS (1 failed, 2 bad usage; a crash is neither) and MESSAGE as the first
# line of the error output: the only line for a failure, followed by the usage
# text for bad usage. OUTPUT must not be left behind, nor a temporary file
# beside it.
separate_arguments(args UNIX_COMMAND "${ARGS}")
execute_process(COMMAND ${TMXTOOL} mux ${args}
  RESULT_VARIABLE status ERROR_VARIABLE errors OUTPUT_QUIET)
if(NOT status STREQUAL "${STATUS}")
  message(FATAL_ERROR "exit status '${status}', expected ${STATUS}")
endif()
if(STATUS STREQUAL "1")
  set(expected "${MESSAGE}\n")
  set(actual "${errors}")
else()
  set(expected "${MESSAGE}\nusage: tmxtool mux ")
  string(LENGTH "${expected}" length)
  string(SUBSTRING "${errors}" 0 ${length} actual)
endif()
if(NOT actual STREQUAL expected)
  message(FATAL_ERROR "error output '${errors}', expected '${expected}'")
endif()
get_filename_component(folder "${OUTPUT}" DIRECTORY)
get_filename_component(name "${OUTPUT}" NAME)
file(GLOB leftovers "${OUTPUT}" "${folder}/.${name}.*")
if(leftovers)
  message(FATAL_ERROR "a failed run left ${leftovers} behind")
endif()
