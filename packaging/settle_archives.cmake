# What cpack runs after it has made archives, with its variables.
execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/settle_archives.py ${CPACK_PACKAGE_FILES}
  COMMAND_ERROR_IS_FATAL ANY)
