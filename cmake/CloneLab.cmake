# What cloning setup needs to know about this build: its version (the lab is
# refreshed when it changes) and the source tree, where a build that is not
# installed finds the worker's files.
configure_file(${CMAKE_CURRENT_LIST_DIR}/LabSource.h.in ${CMAKE_BINARY_DIR}/generated/cloning/LabSource.h @ONLY)
target_include_directories(parlova_cloning PUBLIC ${CMAKE_BINARY_DIR}/generated)

# An installed copy carries the worker's own files (not its tests, caches or
# environment); setup copies them into the user's lab.
install(DIRECTORY ${CMAKE_SOURCE_DIR}/worker/ DESTINATION share/parlova/worker
  USE_SOURCE_PERMISSIONS
  PATTERN ".venv" EXCLUDE
  PATTERN "__pycache__" EXCLUDE
  PATTERN ".pytest_cache" EXCLUDE
  PATTERN "*.pyc" EXCLUDE)
