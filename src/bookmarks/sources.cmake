# Bookmark storage and the bookmark exports.
target_sources(tmx_objects PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/editor.cc
  ${CMAKE_CURRENT_LIST_DIR}/exports.cc
  ${CMAKE_CURRENT_LIST_DIR}/list.cc
  ${CMAKE_CURRENT_LIST_DIR}/storage.cc
)
