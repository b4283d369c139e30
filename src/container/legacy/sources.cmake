# The older single-file container's format handler.
target_sources(tmx_objects PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/handler.cc
  ${CMAKE_CURRENT_LIST_DIR}/records.cc
  ${CMAKE_CURRENT_LIST_DIR}/segments.cc
)
