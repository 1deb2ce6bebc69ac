# qz_add_library(target name backend folder): the library on one platform backend, known to hosts as
# QzHidAPI::NAME, in a folder of its own under the folder of libraries (or in that folder itself, when
# the argument is empty).
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

# Entry point, version resource and name of a Windows DLL.
function(qz_finish_dll target)
  set(resource ${PROJECT_BINARY_DIR}/version.rc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE
    ${PROJECT_SOURCE_DIR}/src/platform/system/windows/dll_main.cpp ${resource})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_compile_definitions(${target} PRIVATE QZ_BUILDING_LIBRARY)
  set_target_properties(${target} PROPERTIES PREFIX "")
endfunction()

# Nothing but the exports is visible, and nothing is left to be found elsewhere. All backends share
# the soname and the versions of the symbols, so that a host runs on any of them.
function(qz_finish_shared_object target)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src/platform/system/linux/process_life.cpp)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_compile_definitions(${target} PRIVATE QZ_BUILDING_LIBRARY)
  set(exports ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  # Standard library templates that were instantiated in the library stay inside.
  target_link_options(${target} PRIVATE -Wl,--version-script=${exports})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${exports}
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  # A sanitized library finds the sanitizers' runtime in the program.
  if(NOT QZ_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
