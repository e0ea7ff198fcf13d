# quorlin_add_test(NAME name LABELS label... SOURCES file... [LIBRARIES lib...])
# Builds one GoogleTest binary and registers each of its tests with CTest under the given labels.
function(quorlin_add_test)
  cmake_parse_arguments(ARG "" "NAME" "LABELS;SOURCES;LIBRARIES;RESOURCE_LOCK" ${ARGN})
  add_executable(${ARG_NAME} ${ARG_SOURCES})
  target_link_libraries(${ARG_NAME} PRIVATE quorlin quorlin_warnings GTest::gtest GTest::gtest_main
                                            ${ARG_LIBRARIES})
  set(properties LABELS "${ARG_LABELS}")
  if(ARG_RESOURCE_LOCK)
    list(APPEND properties RESOURCE_LOCK "${ARG_RESOURCE_LOCK}")
  endif()
  gtest_discover_tests(${ARG_NAME} DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
endfunction()
