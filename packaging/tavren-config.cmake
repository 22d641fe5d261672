include(${CMAKE_CURRENT_LIST_DIR}/tavren-targets.cmake)
