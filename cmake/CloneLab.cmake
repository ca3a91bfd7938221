# Where cloning setup checks out the worker's runtime from: the repository this
# build comes from and its revision, recorded when the build is configured.
find_package(Git QUIET)
set(PARLOVA_LAB_REPOSITORY_DEFAULT "${CMAKE_SOURCE_DIR}")
set(PARLOVA_LAB_REVISION_DEFAULT "")
if(GIT_FOUND)
  execute_process(COMMAND ${GIT_EXECUTABLE} -C ${CMAKE_SOURCE_DIR} remote get-url origin
    OUTPUT_VARIABLE _parlova_origin OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE _parlova_origin_rc)
  if(_parlova_origin_rc EQUAL 0 AND _parlova_origin)
    set(PARLOVA_LAB_REPOSITORY_DEFAULT "${_parlova_origin}")
  endif()
  execute_process(COMMAND ${GIT_EXECUTABLE} -C ${CMAKE_SOURCE_DIR} rev-parse HEAD
    OUTPUT_VARIABLE PARLOVA_LAB_REVISION_DEFAULT OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
# -DPARLOVA_LAB_REPOSITORY=... and -DPARLOVA_LAB_REVISION=... name another source.
if(NOT DEFINED PARLOVA_LAB_REPOSITORY)
  set(PARLOVA_LAB_REPOSITORY "${PARLOVA_LAB_REPOSITORY_DEFAULT}")
endif()
if(NOT DEFINED PARLOVA_LAB_REVISION)
  set(PARLOVA_LAB_REVISION "${PARLOVA_LAB_REVISION_DEFAULT}")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/LabSource.h.in ${CMAKE_BINARY_DIR}/generated/cloning/LabSource.h @ONLY)
target_include_directories(parlova_cloning PUBLIC ${CMAKE_BINARY_DIR}/generated)
