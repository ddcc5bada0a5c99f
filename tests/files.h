// Whole files as bytes, and samples in the machine's byte order.
#ifndef CMODEL_TEST_FILES_H
#define CMODEL_TEST_FILES_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

inline std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Returns the path. A new file each time: some file systems write a shortened one to the disk at once.
inline std::string write_file(const std::string& path, const std::string& bytes) {
    std::remove(path.c_str());
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

// The low `bytes` (1, 2 or 4) of a number at any alignment.
inline void put_sample(uint8_t* to, int64_t number, size_t bytes) {
    const uint8_t one = static_cast<uint8_t>(number);
    const uint16_t two = static_cast<uint16_t>(number);
    const uint32_t four = static_cast<uint32_t>(number);
    std::memcpy(to, bytes == 1 ? &one : bytes == 2 ? static_cast<const void*>(&two) : &four, bytes);
}

#endif
