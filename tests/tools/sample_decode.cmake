# Decodes the sample programme with tmxtool and compares the WAV file's
# SHA-256 with the committed one: every platform must produce these bytes.
# Usage: cmake -DTOOL=tmxtool -DRUNNER=emulator|args -DSAMPLE=sample.tmx -DOUT=out.wav
#              -DEXPECTED=sha256 -P sample_decode.cmake
string(REPLACE "|" ";" runner "${RUNNER}")
# Removed first: tmxtool on Windows takes any existing output for its input
# (no inode numbers there).
file(REMOVE "${OUT}")
execute_process(COMMAND ${runner} "${TOOL}" decode "${SAMPLE}" -o "${OUT}"
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "tmxtool decode failed (${rc}): ${out}${err}")
endif()
file(SHA256 "${OUT}" digest)
message(STATUS "sample programme decode: SHA-256 ${digest}")
if(NOT digest STREQUAL EXPECTED)
  message(FATAL_ERROR "decode differs: ${digest}, expected ${EXPECTED}")
endif()
