# qz_add_library(target backend folder): the library on one platform backend, in a folder of its own
# below the library folder (or in the folder itself, when that argument is empty).
function(qz_add_library target backend folder)
  add_library(${target} SHARED $<TARGET_OBJECTS:qzhid_core> $<TARGET_OBJECTS:${backend}>)
  target_link_libraries(${target} PRIVATE ${backend} Threads::Threads)
  target_include_directories(${target} INTERFACE ${PROJECT_SOURCE_DIR}/include)
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME QzHidAPI
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib/${folder}
    ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib/${folder}
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  if(NOT MSVC AND NOT WIN32)
    # Standard library templates that were instantiated in the library stay inside.
    target_link_options(${target} PRIVATE
      -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map)
    # A sanitized library finds the sanitizers' runtime in the program.
    if(NOT QZ_SANITIZE)
      target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
  endif()
endfunction()
