# The same sources make the same files, wherever and whenever they are built.
set(QZ_SOURCE_DATE_EPOCH "$ENV{SOURCE_DATE_EPOCH}" CACHE STRING
  "What packages and the log give as the time of the build, in seconds since 1970; empty for the real one")
if(NOT QZ_SOURCE_DATE_EPOCH MATCHES "^[0-9]*$")
  message(FATAL_ERROR "QZ_SOURCE_DATE_EPOCH is not a number of seconds: ${QZ_SOURCE_DATE_EPOCH}")
endif()

# When the library was built, as its log says it: in the form of the compiler's own date and time.
set(qz_build_day __DATE__)
set(qz_build_time __TIME__)
if(NOT QZ_SOURCE_DATE_EPOCH STREQUAL "")
  set(ENV{SOURCE_DATE_EPOCH} ${QZ_SOURCE_DATE_EPOCH})  # the time that TIMESTAMP gives
  string(TIMESTAMP qz_build_day "\"%b %d %Y\"" UTC)
  string(REGEX REPLACE " 0" "  " qz_build_day ${qz_build_day})
  string(TIMESTAMP qz_build_time "\"%H:%M:%S\"" UTC)
endif()

# Not in files for debuggers, which look for the sources under their full paths.
if(PROJECT_IS_TOP_LEVEL AND NOT MSVC)
  foreach(map IN ITEMS ${PROJECT_BINARY_DIR}=build ${PROJECT_SOURCE_DIR}=.)
    add_compile_options($<$<AND:$<NOT:$<CONFIG:Debug>>,$<COMPILE_LANGUAGE:C,CXX>>:-ffile-prefix-map=${map}>)
  endforeach()
endif()
# GNU's linker writes the time into files for Windows. The other linkers write a sum of the contents.
if(WIN32 AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_link_options(-Wl,--no-insert-timestamp)
elseif(MSVC)
  add_link_options(/Brepro)
endif()
