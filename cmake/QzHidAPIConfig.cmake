# QzHidAPI::QzHidAPI works on real hubs; QzHidAPI::virtual is the same library on virtual hubs.
include(${CMAKE_CURRENT_LIST_DIR}/QzHidAPITargets.cmake)
