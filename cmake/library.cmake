# qz_add_library(target name backend folder): the library on one platform backend. Hosts link to it as
# QzHidAPI::NAME. It is built in `folder` under the folder of libraries; empty for that folder itself.
function(qz_add_library target name backend folder)
  add_library(${target} SHARED $<TARGET_OBJECTS:qzhid_core> $<TARGET_OBJECTS:${backend}>)
  add_library(QzHidAPI::${name} ALIAS ${target})
  target_link_libraries(${target} PRIVATE ${backend} Threads::Threads)
  target_include_directories(${target} INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME QzHidAPI
    EXPORT_NAME ${name}
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin/${folder}
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib/${folder}
    ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib/${folder})
  if(WIN32)
    qz_finish_dll(${target})
  else()
    qz_finish_shared_object(${target})
  endif()
endfunction()

# The entry point, version resource and name of a Windows DLL.
function(qz_finish_dll target)
  set(resource ${PROJECT_BINARY_DIR}/version.rc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE
    ${PROJECT_SOURCE_DIR}/src/platform/system/windows/dll_main.cpp ${resource})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_compile_definitions(${target} PRIVATE QZ_BUILDING_LIBRARY)
  set_target_properties(${target} PROPERTIES PREFIX "")
endfunction()

# Only the exports are visible, and no symbol is unresolved. All backends have the same soname and symbol
# versions, so that a host runs on any of them.
function(qz_finish_shared_object target)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src/platform/system/linux/process_life.cpp)
  if(QZ_OLDEST_GLIBC)
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src/platform/system/linux/start_files.cpp)
    set_source_files_properties(${PROJECT_SOURCE_DIR}/src/platform/system/linux/start_files.cpp
      PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_compile_definitions(${target} PRIVATE QZ_BUILDING_LIBRARY)
  set(exports ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  # This also hides templates of the standard library that are instantiated in the library.
  target_link_options(${target} PRIVATE -Wl,--version-script=${exports})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${exports}
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  # A sanitized library gets the sanitizers' runtime from the program.
  if(NOT QZ_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
