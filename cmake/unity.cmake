# With CMAKE_UNITY_BUILD on, the C++ files of each folder are compiled together. The compiler and
# clang-tidy then read the headers that they share (GoogleTest, JSON, the command line) once for each
# folder instead of once for each file.

# qz_group_by_folder(folder): groups the sources of all targets of a source folder and its subfolders.
function(qz_group_by_folder folder)
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    qz_group_sources(${target})
  endforeach()
  get_property(subfolders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(subfolder IN LISTS subfolders)
    qz_group_by_folder(${subfolder})
  endforeach()
endfunction()

# qz_group_sources(target): makes the C++ files of a folder one group.
function(qz_group_sources target)
  get_target_property(sources ${target} SOURCES)
  get_target_property(base ${target} SOURCE_DIR)
  cmake_path(IS_PREFIX PROJECT_SOURCE_DIR ${base} NORMALIZE is_ours)
  list(FILTER sources INCLUDE REGEX "\\.cpp$")
  if(NOT sources OR NOT is_ours)
    return()
  endif()
  foreach(source IN LISTS sources)
    cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${base} NORMALIZE)
    cmake_path(GET source PARENT_PATH group)
    cmake_path(RELATIVE_PATH group BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
    string(MAKE_C_IDENTIFIER ${group} group)
    set_source_files_properties(${source} TARGET_DIRECTORY ${target} PROPERTIES UNITY_GROUP ${group})
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD_MODE GROUP)
endfunction()
