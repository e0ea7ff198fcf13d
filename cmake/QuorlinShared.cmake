# libquorlin.so.0: the static library's sources compiled once more as position-independent code.
# The SONAME carries the ABI version; it changes only when the ABI baseline in abi/ is replaced
# by an incompatible one.
set(QUORLIN_ABI_VERSION 0)
get_target_property(quorlin_sources quorlin SOURCES)
add_library(quorlin_shared SHARED ${quorlin_sources})
add_library(quorlin::quorlin ALIAS quorlin_shared)
set_target_properties(quorlin_shared PROPERTIES
  OUTPUT_NAME quorlin
  VERSION ${PROJECT_VERSION} SOVERSION ${QUORLIN_ABI_VERSION}
  CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
target_include_directories(quorlin_shared PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                                                 $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(quorlin_shared PUBLIC Threads::Threads)
target_compile_options(quorlin_shared PRIVATE -Wall -Wextra -Wpedantic -Werror)
target_compile_features(quorlin_shared PUBLIC cxx_std_20)
# Calls inside the library bind to the library's own functions, as in the static library: the
# compiler may inline exported functions, and the linker resolves them without the PLT.
target_compile_options(quorlin_shared PRIVATE -fno-semantic-interposition)
target_link_options(quorlin_shared PRIVATE -Wl,-Bsymbolic-functions)
# A symbol missing from the library is a link error here, not when a program loads it; under a
# sanitizer the runtime comes with the program, so the library leaves its symbols open.
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  target_link_options(quorlin_shared PRIVATE -Wl,--no-undefined)
endif()
