#pragma once

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmor {

/// The calls of the kernel by which files are written and found. A test may put its own in their place, so that one of
/// them fails at a given moment.
struct SystemCalls {
    int (*open)(const char* path, int flags, mode_t mode); // what it makes has exactly that mode
    int (*mkdir)(const char* path, mode_t mode);           // likewise
    int (*close)(int descriptor) = ::close;
    ssize_t (*read)(int descriptor, void* buffer, size_t size) = ::read;
    ssize_t (*write)(int descriptor, const void* buffer, size_t size) = ::write;
    int (*stat)(const char* path, struct stat* state) = ::stat;
    int (*fstat)(int descriptor, struct stat* state) = ::fstat;
    int (*ftruncate)(int descriptor, off_t length) = ::ftruncate;
    int (*fdatasync)(int descriptor) = ::fdatasync;
    int (*fsync)(int descriptor) = ::fsync;
    int (*rename)(const char* from, const char* to) = ::rename;
    int (*unlink)(const char* path) = ::unlink;
    int (*chmod)(const char* path, mode_t mode) = ::chmod;
    int (*fchmod)(int descriptor, mode_t mode) = ::fchmod;
};

/// The calls in force.
SystemCalls& systemCalls();

} // namespace Velmor
