# The tests that need no more of the library than its exports: they are linked with its code here, and
# with the DLL on Windows.
set(QZ_EXPORT_TESTS bridge_test.cpp handle_test.cpp header_test.c list_test.cpp open_close_test.cpp
  refusal_test.cpp update_record_test.cpp update_test.cpp version_test.cpp)
list(TRANSFORM QZ_EXPORT_TESTS PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
