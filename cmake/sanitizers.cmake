# Every object is built with the chosen sanitizers, so that no report is lost at a library border.
if(QZ_SANITIZE)
  add_compile_options(-fsanitize=${QZ_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # What GCC knows of uninitialised memory is not to be trusted in instrumented code.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
  add_link_options(-fsanitize=${QZ_SANITIZE})
endif()
if(QZ_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
