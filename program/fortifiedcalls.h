/// @file
/// What some calls become in a program that is compiled with _FORTIFY_SOURCE (feature_test_macros(7)). No header of the
/// C library declares them to others.

#ifndef PROGRAM_FORTIFIEDCALLS_H
#define PROGRAM_FORTIFIEDCALLS_H

#include <sys/types.h>

#include <cstddef>

extern "C" {
int __open_2(const char* path, int flags);                     ///< open(2) without a mode
int __open64_2(const char* path, int flags);                   ///< open64
int __openat_2(int directory, const char* path, int flags);    ///< openat(2) without a mode
int __openat64_2(int directory, const char* path, int flags);  ///< openat64
/// readlink(2) into a buffer of the size @p room, of which @p size bytes may be filled.
ssize_t __readlink_chk(const char* path, char* target, std::size_t size, std::size_t room);
/// The same for readlinkat(2).
ssize_t __readlinkat_chk(int directory, const char* path, char* target, std::size_t size, std::size_t room);
/// realpath(3) into a buffer of the size @p room.
char* __realpath_chk(const char* path, char* resolved, std::size_t room);
}

#endif
