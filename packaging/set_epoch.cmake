# cpack gives this time to what it packs, and strip to files for Windows. cpack reads this first.
if(NOT "${CPACK_QZ_SOURCE_DATE_EPOCH}" STREQUAL "")
  set(ENV{SOURCE_DATE_EPOCH} ${CPACK_QZ_SOURCE_DATE_EPOCH})
  set(ENV{TZ} UTC0)  # archives for Windows have local times
endif()
