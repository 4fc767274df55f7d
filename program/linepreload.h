/// @file
/// What a program sets so that the programs it starts find another device under the name of the vehicle's line.
///
/// The library line_preload.so stands between a program and the C library. It is loaded with LD_PRELOAD (ld.so(8)), in
/// the started program and in all that this one starts, and needs no privilege: a mount namespace, which does the same
/// for every way into the file system, is not to be had in most containers.
///
///     LD_PRELOAD=/path/of/line_preload.so LINE_PRELOAD_DEVICE=/dev/pts/5 ohjauspaneeli
///
/// What it answers for: the opening of the line (open, openat, fopen, freopen, also by a spawned program's file
/// actions), the questions about it (stat, lstat, fstatat, statx, access, faccessat, readlink, realpath), each in all
/// the forms that programs for a C library of 2.33 or later call, by whatever path leads into the line's directory:
/// "/dev/ttyS0", "../dev/ttyS0", or "ttyS0" from within /dev. All else is compared and goes on untouched.
///
/// What it cannot do: a program that is linked statically, makes its system calls itself, or gets more rights by being
/// run (set-user-ID) is not reached; nor is a symbolic link that points to the line, a listing of /dev, or a call that
/// changes the name (unlink, rename, chmod). A program that clears its environment before it starts another takes the
/// other device away from it.
///
/// Under AddressSanitizer ASAN_OPTIONS must have verify_asan_link_order=0, because that sanitizer's own library no
/// longer comes first.

#ifndef PROGRAM_LINEPRELOAD_H
#define PROGRAM_LINEPRELOAD_H

namespace line_preload {

/// The name under which programs look for the line.
inline constexpr const char* line_name = "/dev/ttyS0";

/// The environment variable that names the device that they find there: an absolute path, or `no_device`. Unset or
/// empty, the library changes nothing. It is read once in a process, at its first use.
inline constexpr const char* device_variable = "LINE_PRELOAD_DEVICE";

/// The value of that variable with which the line is missing: each call on it fails with ENOENT.
inline constexpr const char* no_device = "none";

}  // namespace line_preload

#endif
