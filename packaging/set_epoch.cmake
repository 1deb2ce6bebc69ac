# cpack gives this time to what it packs. It runs this with its variables, before it packs.
if(NOT "${CPACK_QZ_SOURCE_DATE_EPOCH}" STREQUAL "")
  set(ENV{SOURCE_DATE_EPOCH} ${CPACK_QZ_SOURCE_DATE_EPOCH})
endif()
