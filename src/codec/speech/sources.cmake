# The speech codec: codec tables and front, frame decoder, encoder and the
# trained quantiser tables.
target_sources(tmx_objects PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/decoder.cc
  ${CMAKE_CURRENT_LIST_DIR}/dsp.cc
  ${CMAKE_CURRENT_LIST_DIR}/encoder.cc
  ${CMAKE_CURRENT_LIST_DIR}/layout.cc
  ${CMAKE_CURRENT_LIST_DIR}/speech_codec.cc
  ${CMAKE_CURRENT_LIST_DIR}/speech_tables.cc
)
