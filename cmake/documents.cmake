# What is installed of the documents: those for users. CONTRIBUTING.md and docs/architecture.md are about the
# source tree.
file(GLOB documents RELATIVE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/docs/*.md)
list(REMOVE_ITEM documents docs/architecture.md)
list(APPEND documents README.md CHANGELOG.md SECURITY.md)
file(GLOB pictures RELATIVE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/docs/pictures/*.png)
set(installed ${documents} ${pictures} docs/qzhid.schema.json examples)

# qz_write_document(document): writes the document as it is installed. In it, a link to anything that is not
# installed is plain text.
function(qz_write_document document)
  cmake_path(GET document PARENT_PATH folder)
  set(text "")
  file(READ ${PROJECT_SOURCE_DIR}/${document} rest)
  while(rest MATCHES "\\[([^][]*)\\]\\(([^():# \n]+)(#[^() \n]*)?\\)")
    set(link "${CMAKE_MATCH_0}")
    set(shown "${CMAKE_MATCH_1}")
    cmake_path(APPEND folder "${CMAKE_MATCH_2}" OUTPUT_VARIABLE target)
    cmake_path(NORMAL_PATH target)
    if(target IN_LIST installed)
      set(shown "${link}")
    endif()
    string(FIND "${rest}" "${link}" begin)
    string(SUBSTRING "${rest}" 0 ${begin} before)
    string(APPEND text "${before}${shown}")
    string(LENGTH "${before}${link}" end)
    string(SUBSTRING "${rest}" ${end} -1 rest)
  endwhile()
  file(WRITE ${PROJECT_BINARY_DIR}/install/documents/${document} "${text}${rest}")
endfunction()

file(REMOVE_RECURSE ${PROJECT_BINARY_DIR}/install/documents)
foreach(document IN LISTS documents)
  qz_write_document(${document})
endforeach()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${documents})

# qz_install_documents(ARGUMENT...): with these arguments of install().
function(qz_install_documents)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/install/documents/ DESTINATION ${CMAKE_INSTALL_DOCDIR} ${ARGN})
  install(FILES docs/qzhid.schema.json DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs ${ARGN})
  install(DIRECTORY docs/pictures DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs ${ARGN})
  install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} ${ARGN} FILES_MATCHING PATTERN *.c)
endfunction()
