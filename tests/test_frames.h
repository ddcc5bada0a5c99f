// Frames that free themselves, made from literal samples; a folder and files of literal bytes.
#ifndef CMODEL_TEST_FRAMES_H
#define CMODEL_TEST_FRAMES_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "common.h"

using Samples = std::vector<int32_t>;

struct DeleteFrame {
    void operator()(FRAME* f) const { CM_DelFRAME(f); }
};
using Frame = std::unique_ptr<FRAME, DeleteFrame>;

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

class FileTest : public testing::Test {
  protected:
    FileTest() : dir_(std::filesystem::temp_directory_path() / ("cmodel_test_" + std::to_string(getpid()))) {
        std::filesystem::create_directory(dir_);
    }
    ~FileTest() override { std::filesystem::remove_all(dir_); }

    std::string path(const char* name) const { return (dir_ / name).string(); }
    std::string slurp(const char* name) const {
        std::ifstream in(dir_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    std::string spill(const char* name, const std::string& bytes) const {
        std::ofstream(dir_ / name, std::ios::binary) << bytes;
        return path(name);
    }

  private:
    std::filesystem::path dir_;
};

#endif
