// Whole frames through both pipelines, which run line by line, against the plain model. An input's bytes
// are the random numbers that make the case: sizes, depths, registers and their file, what fills the planes.
#include "fuzz.h"
#include "random_cases.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    log_set_quiet(true);
    Input in{data, size};
    uint64_t state = 1;
    Random r{[&] { return (state = state * 6364136223846793005 + 1442695040888963407 + in.byte()) >> 16; }};
    const std::string report = compare_pipelines(r, scratch_path("frames"));
    if (!report.empty()) std::fputs(report.c_str(), stderr);
    FUZZ_CHECK(report.empty());
    return 0;
}

std::vector<std::string> fuzz_seeds() {
    std::vector<std::string> seeds;
    for (char c = 0; c < 24; ++c) seeds.emplace_back(64, c);
    return seeds;
}
