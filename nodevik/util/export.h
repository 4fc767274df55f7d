/// @file
/// What the shared library shows to programs, and what it keeps to itself.
///
/// The library is compiled with hidden visibility: a name that is declared without NODEVIK_EXPORT cannot be
/// linked against from outside. Every class and function of an installed header bears it; what is private in
/// an exported class bears NODEVIK_LOCAL, so that it may change without a new major version.

#ifndef NODEVIK_UTIL_EXPORT_H
#define NODEVIK_UTIL_EXPORT_H

/// Makes a class, function or variable part of the shared library's interface.
#define NODEVIK_EXPORT [[gnu::visibility("default")]]

/// Takes a member function of an exported class out of the interface again.
#define NODEVIK_LOCAL [[gnu::visibility("hidden")]]

#endif
