#include "fatal.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace cm {

void fatal(int status, const char* fmt, ...) {
    std::fflush(stdout);
    va_list args;
    va_start(args, fmt);
    std::vfprintf(stderr, fmt, args);
    va_end(args);
    std::exit(status);
}

}  // namespace cm
