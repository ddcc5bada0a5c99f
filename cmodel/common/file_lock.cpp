// Files handed over between processes: wait until the file can be opened, then hold it under an
// exclusive advisory lock until it is closed.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common.h"

namespace {

constexpr useconds_t kPollMicroseconds = 10000;

// Writers open without truncating: a process that still holds the lock keeps its bytes until it
// lets go. Truncation follows in lock_file().
FILE* open_unlocked(const char* path, const char* mode) {
    if (mode[0] != 'w') {
        return std::fopen(path, mode);
    }
    const int access = std::strchr(mode, '+') != nullptr ? O_RDWR : O_WRONLY;
    const int fd = open(path, access | O_CREAT, 0666);
    if (fd < 0) {
        return nullptr;
    }
    FILE* const stream = fdopen(fd, mode);
    if (stream == nullptr) {
        close(fd);
    }
    return stream;
}

void lock_file(FILE* stream, bool truncate) {
    const int fd = fileno(stream);
    while (flock(fd, LOCK_EX) != 0 && errno == EINTR) {
    }
    struct stat info;
    if (truncate && fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0) {
        // Nothing is lost when this fails: the new content is written over the old from the start.
        [[maybe_unused]] const int result = ftruncate(fd, 0);
    }
}

}  // namespace

FILE* CM_Fopen(const char* path, const char* mode) {
    FILE* stream = open_unlocked(path, mode);
    if (stream == nullptr) {
        std::printf("wait pre frame ready %s\n", path);
        std::fflush(stdout);
        while ((stream = open_unlocked(path, mode)) == nullptr) {
            usleep(kPollMicroseconds);
        }
        std::printf("%s ready\n", path);
        std::fflush(stdout);
    }
    lock_file(stream, mode[0] == 'w');
    return stream;
}

int CM_Fclose(FILE* stream) {
    // Everything is in the file before the lock goes.
    const bool written = std::fflush(stream) == 0 && std::ferror(stream) == 0;
    flock(fileno(stream), LOCK_UN);
    return std::fclose(stream) == 0 && written ? 0 : EOF;
}

void CM_DelFILE(FILE* stream) {
    if (stream != nullptr) {
        CM_Fclose(stream);
    }
}
