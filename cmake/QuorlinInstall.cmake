# Installation, the exported CMake package, the pkg-config file and the Debian package.
include(CMakePackageConfigHelpers)

install(TARGETS quorlinadmin RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS quorlin EXPORT quorlinTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY quorlin/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorlin
        FILES_MATCHING PATTERN "*.hpp"
        PATTERN "*_test_support.hpp" EXCLUDE PATTERN "*_internal.hpp" EXCLUDE PATTERN "cli" EXCLUDE)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/quorlin)
install(EXPORT quorlinTargets NAMESPACE quorlin:: DESTINATION ${config_dir})
configure_package_config_file(packaging/quorlinConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/quorlinConfig.cmake
                              INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/quorlinConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/quorlinConfig.cmake
              ${PROJECT_BINARY_DIR}/quorlinConfigVersion.cmake DESTINATION ${config_dir})

# The prefix as a path from the .pc file's own folder, however deep the libdir is
# (lib/x86_64-linux-gnu on Debian), so that the installed tree can be moved.
file(RELATIVE_PATH QUORLIN_PC_PREFIX_FROM_PCFILEDIR
     /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(packaging/quorlin.pc.in ${PROJECT_BINARY_DIR}/quorlin.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quorlin.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Debian keeps manuals and changelogs compressed.
set(man_page ${PROJECT_BINARY_DIR}/quorlinadmin.1.gz)
set(changelog ${PROJECT_BINARY_DIR}/changelog.gz)
add_custom_command(OUTPUT ${man_page} ${changelog}
                   COMMAND gzip -9n -c ${PROJECT_SOURCE_DIR}/packaging/quorlinadmin.1 > ${man_page}
                   COMMAND gzip -9n -c ${PROJECT_SOURCE_DIR}/packaging/changelog > ${changelog}
                   DEPENDS packaging/quorlinadmin.1 packaging/changelog)
add_custom_target(quorlin_compressed_docs ALL DEPENDS ${man_page} ${changelog})
install(FILES ${man_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES packaging/quorlinadmin.bash-completion DESTINATION share/bash-completion/completions
        RENAME quorlinadmin)
install(FILES README.md packaging/copyright ${changelog}
        DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quorlin)
set(CPACK_PACKAGE_VENDOR "Quorlin")
set(CPACK_PACKAGE_CONTACT "Quorlin developers <dev@quorlin.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "administration client for the Quorlin network service")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "quorlinadmin lists the peer networks of the local Quorlin service with their\nmembers, creates a network for two members, invites a person by e-mail and\ndrops every network but the one named Friends. The package also holds the C++\nclient library with its headers, CMake package and pkg-config file.")
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
