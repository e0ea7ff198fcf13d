# The static library (quorlin, exported as quorlin::quorlin_static) and libquorlin.so.3
# (quorlin_shared, exported as quorlin::quorlin), both made of quorlin_objects.
function(quorlin_library target type)
  add_library(${target} ${type} $<TARGET_OBJECTS:quorlin_objects>)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                                              $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${target} PUBLIC Threads::Threads)
  target_compile_features(${target} PUBLIC cxx_std_20)
endfunction()

quorlin_library(quorlin STATIC)
add_library(quorlin::quorlin_static ALIAS quorlin)

# The SONAME carries the ABI version; it changes only when the ABI baseline in abi/ is replaced
# by an incompatible one.
set(QUORLIN_ABI_VERSION 3)
quorlin_library(quorlin_shared SHARED)
add_library(quorlin::quorlin ALIAS quorlin_shared)
# The file is named after the ABI version too (libquorlin.so.3.4.0 for release 0.4.0 of ABI 3), so
# that the library package's files all begin with the SONAME.
set_target_properties(
  quorlin_shared
  PROPERTIES OUTPUT_NAME quorlin
             VERSION ${QUORLIN_ABI_VERSION}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}
             SOVERSION ${QUORLIN_ABI_VERSION})
target_link_options(quorlin_shared PRIVATE -Wl,-Bsymbolic-functions)
# A symbol missing from the library is a link error here, not when a program loads it; under a
# sanitizer the runtime comes with the program, so the library leaves its symbols open.
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  target_link_options(quorlin_shared PRIVATE -Wl,--no-undefined)
endif()
