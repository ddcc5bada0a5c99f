#include "fatal.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace cm {

void fatal(int status, const char* fmt, ...) {
    std::fflush(stdout);
    va_list args;
    va_start(args, fmt);
    std::vfprintf(stderr, fmt, args);
    va_end(args);
    std::exit(status);
}

void prepare_program() {
    std::set_new_handler([] { fatal(kExitFile, "Unable to allocate memory\n"); });
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) < 0) {
            open("/dev/null", O_RDWR);  // takes the lowest free number, which is this one
        }
    }
}

}  // namespace cm
