// Whole files as bytes.
#ifndef CMODEL_TEST_FILES_H
#define CMODEL_TEST_FILES_H

#include <cstdio>
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

#endif
