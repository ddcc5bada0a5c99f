// Files handed over between processes: wait until the file can be opened, then hold it under an
// exclusive advisory lock until it is closed.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "common.h"
#include "fatal.h"
#include "log_positions.h"

namespace {

constexpr useconds_t kPollMicroseconds = 10000;

// Creates a file whose lock is held before it has a name, so that no reader gets hold of it empty. Fails
// where there is such a file by now and where the file system has no files without a name.
int create_locked(const char* path, int access) {
    const std::string whole(path);
    const size_t slash = whole.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : whole.substr(0, slash + 1);
    const int fd = open(directory.c_str(), access | O_TMPFILE, 0666);
    if (fd < 0) {
        return -1;
    }
    const std::string unnamed = "/proc/self/fd/" + std::to_string(fd);
    if (flock(fd, LOCK_EX) != 0 ||
        linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, path, AT_SYMLINK_FOLLOW) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Writers open without truncating: a process that still holds the lock keeps its bytes until it
// lets go. Truncation follows in lock_file().
FILE* open_unlocked(const char* path, const char* mode) {
    if (mode[0] != 'w') {
        return std::fopen(path, mode);
    }
    const int access = std::strchr(mode, '+') != nullptr ? O_RDWR : O_WRONLY;
    int fd = open(path, access);
    if (fd < 0 && errno == ENOENT) {
        fd = create_locked(path, access);
    }
    if (fd < 0) {
        fd = open(path, access | O_CREAT, 0666);
    }
    if (fd < 0) {
        return nullptr;
    }
    FILE* const stream = fdopen(fd, mode);
    if (stream == nullptr) {
        close(fd);
    }
    return stream;
}

// What a file of this mode is opened for.
const char* purpose(const char* mode) {
    return mode[0] == 'r' && std::strchr(mode, '+') == nullptr ? "read" : "write";
}

[[noreturn]] void fail(const char* path, const char* mode) {
    cm::fatal(cm::kExitFile, "Unable to %s file '%s': %s\n", purpose(mode), path, std::strerror(errno));
}

// Waits for the lock. False when the path names another file by then, or none: whoever held the lock has
// deleted or renamed this one, so that what is written to it would be lost, or replace what was put away.
bool lock_file(FILE* stream, const char* path, const char* mode) {
    const int fd = fileno(stream);
    int result;
    while ((result = flock(fd, LOCK_EX)) != 0 && errno == EINTR) {
    }
    if (result != 0) {
        log_log(LOG_WARN, cm::at::kFileNotLocked.source, cm::at::kFileNotLocked.line,
                "%s cannot be locked: %s", path, std::strerror(errno));
    }
    struct stat held;
    if (fstat(fd, &held) != 0) {
        fail(path, mode);
    }
    if (!S_ISREG(held.st_mode)) {
        return true;
    }
    struct stat named;
    if (stat(path, &named) != 0 || named.st_dev != held.st_dev || named.st_ino != held.st_ino) {
        return false;
    }
    // The old content must not stay behind the new.
    if (mode[0] == 'w' && held.st_size > 0 && ftruncate(fd, 0) != 0) {
        fail(path, mode);
    }
    return true;
}

// Null when the file may come yet.
FILE* try_open(const char* path, const char* mode) {
    FILE* const stream = open_unlocked(path, mode);
    if (stream == nullptr) {
        cm::require_means(errno, purpose(mode), path);
    }
    return stream;
}

FILE* open_waiting(const char* path, const char* mode) {
    FILE* stream = try_open(path, mode);
    if (stream == nullptr) {
        std::printf("wait pre frame ready %s\n", path);
        std::fflush(stdout);
        while ((stream = try_open(path, mode)) == nullptr) {
            usleep(kPollMicroseconds);
        }
        std::printf("%s ready\n", path);
        std::fflush(stdout);
    }
    return stream;
}

}  // namespace

FILE* CM_Fopen(const char* path, const char* mode) try {
    FILE* stream = open_waiting(path, mode);
    while (!lock_file(stream, path, mode)) {
        std::fclose(stream);
        stream = open_waiting(path, mode);
    }
    return stream;
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
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
