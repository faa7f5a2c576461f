# Keeps the README's pictures as fresh as the QML they show, by content, not file times.
#   -DMODE=write  -DSOURCES=<qml dir> -DRECORD=<file>   records the sources' digest
#   -DMODE=check  -DSOURCES=<qml dir> -DRECORD=<file>   fails when the sources changed since
#   -DMODE=selftest -DSOURCES=<qml dir> -DWORK=<dir>    proves that check bites on a change
cmake_minimum_required(VERSION 3.20)

# One digest over every file's path and content, in a fixed order.
function(sources_digest dir out)
  file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE "${dir}" "${dir}/*")
  list(SORT files)
  set(lines "")
  foreach(f IN LISTS files)
    file(SHA256 "${dir}/${f}" h)
    string(APPEND lines "${f} ${h}\n")
  endforeach()
  string(SHA256 digest "${lines}")
  set(${out} "${digest}" PARENT_SCOPE)
endfunction()

sources_digest("${SOURCES}" digest)
if(MODE STREQUAL "write")
  file(WRITE "${RECORD}" "${digest}\n")
elseif(MODE STREQUAL "check")
  if(NOT EXISTS "${RECORD}")
    message(FATAL_ERROR "No record of the pictures' sources at ${RECORD}: run `cmake --build build --target screenshots`.")
  endif()
  file(STRINGS "${RECORD}" recorded LIMIT_COUNT 1)
  if(NOT recorded STREQUAL digest)
    message(FATAL_ERROR "The pictures in docs/ are older than the QML they show: "
                        "run `cmake --build build --target screenshots` and commit them.")
  endif()
elseif(MODE STREQUAL "selftest")
  file(REMOVE_RECURSE "${WORK}")
  file(COPY "${SOURCES}/" DESTINATION "${WORK}/qml")
  execute_process(COMMAND ${CMAKE_COMMAND} -DMODE=write -DSOURCES=${WORK}/qml -DRECORD=${WORK}/record
                          -P ${CMAKE_CURRENT_LIST_FILE} RESULT_VARIABLE written)
  execute_process(COMMAND ${CMAKE_COMMAND} -DMODE=check -DSOURCES=${WORK}/qml -DRECORD=${WORK}/record
                          -P ${CMAKE_CURRENT_LIST_FILE} RESULT_VARIABLE fresh OUTPUT_QUIET ERROR_QUIET)
  # One changed line in one file, same size and same time stamp class of change as an edit.
  file(GLOB_RECURSE qml LIST_DIRECTORIES false "${WORK}/qml/*.qml")
  list(SORT qml)
  list(GET qml 0 first)
  file(APPEND "${first}" "// edited\n")
  execute_process(COMMAND ${CMAKE_COMMAND} -DMODE=check -DSOURCES=${WORK}/qml -DRECORD=${WORK}/record
                          -P ${CMAKE_CURRENT_LIST_FILE} RESULT_VARIABLE stale OUTPUT_QUIET ERROR_QUIET)
  if(NOT written EQUAL 0 OR NOT fresh EQUAL 0 OR stale EQUAL 0)
    message(FATAL_ERROR "freshness check: write=${written} fresh=${fresh} after an edit=${stale} (want 0, 0, non-zero)")
  endif()
  message(STATUS "freshness check passes fresh sources and fails an edited one")
else()
  message(FATAL_ERROR "MODE must be write, check or selftest")
endif()
