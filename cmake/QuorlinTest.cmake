# quorlin_add_test(NAME name LABELS label... SOURCES file... [LIBRARIES lib...]
#                  [RESOURCE_LOCK lock] [SLOW Suite.Test...])
# Builds one GoogleTest binary and registers each of its tests with CTest under the given labels.
# The tests named after SLOW take more than a few seconds and also carry the label `slow`:
# `ctest -LE slow` leaves them out, the plain test command runs them. Every test has a time-out
# (QUORLIN_TEST_TIMEOUT seconds, a slow one QUORLIN_SLOW_TEST_TIMEOUT), so that a hang fails that
# one test by its name instead of holding the whole run.
set(QUORLIN_TEST_TIMEOUT 120)
set(QUORLIN_SLOW_TEST_TIMEOUT 900)

function(quorlin_add_test)
  cmake_parse_arguments(ARG "" "NAME;RESOURCE_LOCK" "LABELS;SOURCES;LIBRARIES;SLOW" ${ARGN})
  add_executable(${ARG_NAME} ${ARG_SOURCES})
  target_link_libraries(${ARG_NAME} PRIVATE quorlin quorlin_warnings GTest::gtest GTest::gtest_main
                                            ${ARG_LIBRARIES})
  set(properties LABELS "${ARG_LABELS}" TIMEOUT ${QUORLIN_TEST_TIMEOUT})
  if(ARG_RESOURCE_LOCK)
    list(APPEND properties RESOURCE_LOCK "${ARG_RESOURCE_LOCK}")
  endif()
  gtest_discover_tests(${ARG_NAME} DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
  if(ARG_SLOW)
    # Discovered tests exist only when ctest runs: the label is added by a file that ctest
    # includes after the discovery's own.
    set(labels "${ARG_LABELS};slow")
    set(script "")
    foreach(test IN LISTS ARG_SLOW)
      string(APPEND script "set_tests_properties([==[${test}]==] PROPERTIES LABELS \"${labels}\" "
                           "TIMEOUT ${QUORLIN_SLOW_TEST_TIMEOUT})\n")
    endforeach()
    file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/${ARG_NAME}_slow.cmake" "${script}")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES
                 "${CMAKE_CURRENT_BINARY_DIR}/${ARG_NAME}_slow.cmake")
  endif()
endfunction()
