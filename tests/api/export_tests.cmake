# The tests of this folder that need no more of the library than its exports. They are built twice:
# by tests/api with the library's code in the program, and by tests/windows with the DLL.
set(QZ_EXPORT_TESTS
  bridge_test.cpp
  handle_test.cpp
  header_test.c
  list_test.cpp
  open_close_test.cpp
  rejection_test.cpp
  update_test.cpp
  version_test.cpp)
list(TRANSFORM QZ_EXPORT_TESTS PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
