#include "fatal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

void fail_without_memory() {
    fatal(kExitFile, "Unable to allocate memory\n");
}

void require_means(int error, const char* done, const char* path) {
    if (error == ENOMEM) {
        fail_without_memory();
    }
    if (error == EMFILE) {
        fatal(kExitFile, "Unable to %s file '%s': %s\n", done, path, std::strerror(error));
    }
}

void prepare_program() {
    std::set_new_handler(fail_without_memory);
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) < 0) {
            open("/dev/null", O_RDWR);  // takes the lowest free number, which is this one
        }
    }
}

}  // namespace cm
