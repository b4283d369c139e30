# Bookmark storage and the bookmark list operations.
target_sources(tmx_objects PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/editor.cc
  ${CMAKE_CURRENT_LIST_DIR}/operations.cc
  ${CMAKE_CURRENT_LIST_DIR}/list.cc
  ${CMAKE_CURRENT_LIST_DIR}/storage.cc
)
