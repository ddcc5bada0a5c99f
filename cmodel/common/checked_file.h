// A file being written under its lock. Every failure names the path and ends the program, so that a
// full disk is never taken for a result.
#ifndef CMODEL_CHECKED_FILE_H
#define CMODEL_CHECKED_FILE_H

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
        if (CM_Fclose(stream_) != 0) {
            fail();
        }
    }

  private:
    [[noreturn]] void fail() const {
        fatal(kExitFile, "Unable to write file '%s': %s\n", path_, std::strerror(errno));
    }

    const char* path_;
    FILE* stream_;
};

}  // namespace cm

#endif
