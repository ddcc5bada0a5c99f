// The one way in which the library ends the program, and what makes a program of ours end that way.
#ifndef CMODEL_FATAL_H
#define CMODEL_FATAL_H

#include <new>

#include "log.h"

namespace cm {

// Statuses a user can see: bad files and no memory; bad usage and bad formats (255 to a shell).
inline constexpr int kExitFile = 1;
inline constexpr int kExitFormat = -1;

// Prints the message to standard error as it stands (give the line end) and exits.
[[noreturn]] void fatal(int status, const char* fmt, ...) CM_PRINTF(2, 3);

// What every want of memory ends in. A C function in which the C++ library allocates catches std::bad_alloc
// and calls this: no exception may leave it.
[[noreturn]] void fail_without_memory();

// Ends the program when `error` says that a file cannot be opened for want of memory or of descriptors in
// this process, which will not come by waiting. `done` is "read" or "write".
void require_means(int error, const char* done, const char* path);

// What a program's main() does first. Memory that cannot be had ends it with a message; a file that may not
// grow and a pipe that nobody reads fail as any other write does, instead of ending it without a word; and
// standard streams that it was started without are there, so that no file of its own gets their number and
// their text.
void prepare_program();

}  // namespace cm

#endif
