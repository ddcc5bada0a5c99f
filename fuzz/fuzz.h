// What the fuzz targets share: an input taken apart, files of bytes, and calls that may end the program.
#ifndef CMODEL_FUZZ_H
#define CMODEL_FUZZ_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "files.h"

// One execution; does not return when something is wrong.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Inputs of the target's own to start from.
std::vector<std::string> fuzz_seeds();

#define FUZZ_CHECK(condition)                                                                           \
    ((condition) ? void()                                                                               \
                 : (std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition), \
                    std::abort()))

// The bytes of an input, from front to back; zeros after the end.
struct Input {
    const uint8_t* data;
    size_t left;

    uint8_t byte() { return left > 0 ? (--left, *data++) : uint8_t{0}; }
    uint32_t word() {
        uint32_t v = 0;
        for (int k = 0; k < 4; ++k) v = v << 8 | byte();
        return v;
    }
    std::string rest() const { return {reinterpret_cast<const char*>(data), left}; }
};

// A path in a folder of this process under TMPDIR, which goes when the process ends well.
std::string scratch_path(const char* name);

// Runs a call that may end the program; the status it ended with, if it did. What the call owned on its
// stack at that moment is lost.
std::optional<int> exit_status(const std::function<void()>& call);

#endif
