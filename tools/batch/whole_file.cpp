#include "whole_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "stage_files.h"

namespace eetool {

std::string name_until_whole(const std::string& path) {
    struct stat info;
    const bool is_other = stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode);
    return is_other ? path : path + ".part";
}

WholeFile::WholeFile(const std::string& path)
    : path_(path), part_(name_until_whole(path)), file_(std::fopen(part_.c_str(), "wb")) {
    if (file_ == nullptr) {
        fail();
    }
}

WholeFile::~WholeFile() {
    if (file_ != nullptr) {
        std::fclose(file_);
        if (part_ != path_) {
            unlink(part_.c_str());
        }
    }
}

void WholeFile::fail() const {
    throw Cannot(path_ + " cannot be written: " + std::strerror(errno));
}

void WholeFile::write(const void* bytes, size_t size) {
    if (std::fwrite(bytes, 1, size, file_) != size) {
        fail();
    }
}

void WholeFile::finish() {
    if (std::fflush(file_) != 0 || std::ferror(file_) != 0) {
        fail();
    }
    if (part_ != path_ && std::rename(part_.c_str(), path_.c_str()) != 0) {
        fail();
    }
    FILE* const file = file_;
    file_ = nullptr;
    if (std::fclose(file) != 0) {
        unlink(path_.c_str());
        fail();
    }
}

}  // namespace eetool
