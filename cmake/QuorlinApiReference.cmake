# The API reference: `cmake --build <build> --target api_reference` writes <build>/api/html.
# An undocumented public function fails the target; other Doxygen warnings are printed.
find_package(Doxygen QUIET)
option(QUORLIN_INSTALL_API_REFERENCE "Build the API reference with the library and install it" OFF)
if(QUORLIN_INSTALL_API_REFERENCE AND NOT DOXYGEN_FOUND)
  message(FATAL_ERROR "doxygen is missing: sudo apt install doxygen")
endif()
if(DOXYGEN_FOUND)
  configure_file(packaging/Doxyfile.in ${PROJECT_BINARY_DIR}/Doxyfile @ONLY)
  set(all)
  if(QUORLIN_INSTALL_API_REFERENCE)
    set(all ALL)
  endif()
  add_custom_target(api_reference ${all}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/api
    COMMAND Doxygen::doxygen ${PROJECT_BINARY_DIR}/Doxyfile
    COMMAND ${CMAKE_COMMAND} -DLOG=${PROJECT_BINARY_DIR}/api/warnings.log
            -P ${PROJECT_SOURCE_DIR}/cmake/QuorlinDoxygenCheck.cmake
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM)
  if(QUORLIN_INSTALL_API_REFERENCE)
    install(DIRECTORY ${PROJECT_BINARY_DIR}/api/html DESTINATION ${CMAKE_INSTALL_DOCDIR}/api)
  endif()
endif()
