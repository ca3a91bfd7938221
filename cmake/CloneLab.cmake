# What cloning setup needs to know about this build: its version (the lab is
# refreshed when it changes) and the source tree, where a build that is not
# installed finds the worker's files.
configure_file(${CMAKE_CURRENT_LIST_DIR}/LabSource.h.in ${CMAKE_BINARY_DIR}/generated/cloning/LabSource.h @ONLY)
target_include_directories(parlova_cloning PUBLIC ${CMAKE_BINARY_DIR}/generated)

