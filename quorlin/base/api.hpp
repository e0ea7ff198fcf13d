/// @file
/// QUORLIN_API marks the functions and classes that the shared library exports. The library is
/// compiled with hidden visibility: a function without the mark is internal, and a program that
/// calls one through libquorlin.so fails to link.
#ifndef QUORLIN_BASE_API_HPP
#define QUORLIN_BASE_API_HPP

#define QUORLIN_API __attribute__((visibility("default")))

/// @namespace quorlin
/// Everything the library declares; the subsystems are the folders of quorlin/.

#endif
