# GoogleTest: the system's own, or, for cross builds, built from Debian's package of its sources.
if(NOT CMAKE_CROSSCOMPILING)
  find_package(GTest REQUIRED)
  return()
endif()
find_path(QZ_GOOGLETEST_FOLDER googletest/CMakeLists.txt REQUIRED
  NO_CMAKE_FIND_ROOT_PATH PATHS /usr/src/googletest)
set(INSTALL_GTEST OFF)
if(WIN32)
  set(gtest_disable_pthreads ON)
endif()
set(is_strict ${CMAKE_COMPILE_WARNING_AS_ERROR})
set(CMAKE_COMPILE_WARNING_AS_ERROR OFF)  # GoogleTest's warnings are its own
add_subdirectory(${QZ_GOOGLETEST_FOLDER} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
set(CMAKE_COMPILE_WARNING_AS_ERROR ${is_strict})
