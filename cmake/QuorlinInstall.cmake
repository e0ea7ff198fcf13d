# Installation: the tool, both libraries, the exported CMake package and the pkg-config file.
# The Debian packages (debian/) split what is installed here into libquorlin3, libquorlin-dev and
# quorlinadmin.
include(CMakePackageConfigHelpers)

install(TARGETS quorlinadmin quorlinctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# Consumers link quorlin::quorlin, the shared library, as a Debian user expects; the static one
# stays at hand as quorlin::quorlin_static.
set_target_properties(quorlin PROPERTIES EXPORT_NAME quorlin_static)
set_target_properties(quorlin_shared PROPERTIES EXPORT_NAME quorlin)
install(TARGETS quorlin quorlin_shared EXPORT quorlinTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY quorlin/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorlin
        FILES_MATCHING PATTERN "*.hpp"
        PATTERN "*_test_support.hpp" EXCLUDE PATTERN "*_internal.hpp" EXCLUDE PATTERN "cli" EXCLUDE PATTERN "ctl" EXCLUDE)

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

install(FILES packaging/quorlinadmin.1 packaging/quorlinctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
foreach(tool quorlinadmin quorlinctl)
  install(FILES packaging/${tool}.bash-completion DESTINATION share/bash-completion/completions
          RENAME ${tool})
endforeach()
install(FILES README.md debian/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR})

include(cmake/QuorlinApiReference.cmake)
