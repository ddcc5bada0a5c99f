// Frames that free themselves, made from literal samples; a folder and files of literal bytes.
#ifndef CMODEL_TEST_FRAMES_H
#define CMODEL_TEST_FRAMES_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "files.h"
#include "owned_frame.h"

using Samples = std::vector<int32_t>;

using Frame = cm::OwnedFrame;

inline Frame make_frame(uint32_t format, uint32_t width, uint32_t height, uint32_t channels, int depth,
                        const Samples& samples = {}) {
    Frame f(CM_NewFRAME(5, format, width, height, channels, depth));
    std::copy(samples.begin(), samples.end(), f->data);
    return f;
}

inline Frame make_plane(uint32_t width, uint32_t height, const Samples& samples, int depth = 8) {
    return make_frame(CM_FORMAT_SINGLE, width, height, 1, depth, samples);
}

inline Samples samples_of(const FRAME& f) {
    return {f.data, f.data + size_t{f.width} * f.height * f.channels};
}

// Each test runs in an empty folder of its own.
class FileTest : public testing::Test {
  protected:
    FileTest() : dir_(std::filesystem::temp_directory_path() / ("cmodel_test_" + std::to_string(getpid()))) {
        std::filesystem::create_directory(dir_);
        std::filesystem::current_path(dir_);
    }
    ~FileTest() override {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(dir_);
    }

    static std::string slurp(const char* name) { return read_file(name); }
    static const char* spill(const char* name, const std::string& bytes) {
        write_file(name, bytes);
        return name;
    }

    const std::filesystem::path dir_;
};

#endif
