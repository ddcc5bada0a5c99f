// A file being written under its lock. Every failure empties the file, names it and ends the program, so
// that a full disk is never taken for a result.
#ifndef CMODEL_CHECKED_FILE_H
#define CMODEL_CHECKED_FILE_H

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "common.h"
#include "fatal.h"

namespace cm {

class CheckedFile {
  public:
    explicit CheckedFile(const char* path) : path_(path), stream_(CM_Fopen(path, "wb")) {}
    CheckedFile(const CheckedFile&) = delete;
    CheckedFile& operator=(const CheckedFile&) = delete;

    void print(const char* fmt, ...) CM_PRINTF(2, 3) {
        va_list args;
        va_start(args, fmt);
        const int result = std::vfprintf(stream_, fmt, args);
        va_end(args);
        if (result < 0) {
            fail();
        }
    }
    void write(const uint8_t* bytes, size_t size) {
        if (std::fwrite(bytes, 1, size, stream_) != size) {
            fail();
        }
    }
    // To be called once, last: much of the content reaches the disk only here.
    void close() {
        if (std::fflush(stream_) != 0) {
            fail();
        }
        if (CM_Fclose(stream_) != 0) {
            fail_with(errno);
        }
    }

  private:
    [[noreturn]] void fail() const {
        const int error = errno;
        struct stat info;
        if (fstat(fileno(stream_), &info) == 0 && S_ISREG(info.st_mode)) {
            [[maybe_unused]] const int result = ftruncate(fileno(stream_), 0);
        }
        fail_with(error);
    }
    [[noreturn]] void fail_with(int error) const {
        fatal(kExitFile, "Unable to write file '%s': %s\n", path_, std::strerror(error));
    }

    const char* path_;
    FILE* stream_;
};

}  // namespace cm

#endif
