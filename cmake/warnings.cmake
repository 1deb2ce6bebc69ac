# Targets that link to qz_warnings get these flags. The presets turn warnings into errors.
add_library(qz_warnings INTERFACE)
if(MSVC)
  target_compile_options(qz_warnings INTERFACE /W4 /permissive- /utf-8)
else()
  target_compile_options(qz_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
    # The log says when the library was built.
    $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wno-date-time>)
endif()
