# The speech codec: codec tables and front, frame decoder and the trained
# quantiser tables. The encoder (encoder.cc) is built into the writer library
# only: the player never encodes.
target_sources(tmx_objects PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/decoder.cc
  ${CMAKE_CURRENT_LIST_DIR}/dsp.cc
  ${CMAKE_CURRENT_LIST_DIR}/layout.cc
  ${CMAKE_CURRENT_LIST_DIR}/speech_codec.cc
  ${CMAKE_CURRENT_LIST_DIR}/speech_tables.cc
)
