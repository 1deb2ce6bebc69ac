# QzHidAPI::QzHidAPI drives real hubs, QzHidAPI::virtual is the same library on virtual ones.
include(${CMAKE_CURRENT_LIST_DIR}/QzHidAPITargets.cmake)
