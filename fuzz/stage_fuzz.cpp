// Stage files of any bytes: a reader gives every sample of the frame, or says in one line why not. The first
// byte of an input chooses the format and the stage, the second the size.
#include "stage_files.h"

#include <cstring>

#include "fuzz.h"

namespace {

// Reads to the end; the number of samples.
size_t read_all(eetool::StageFile& file) {
    size_t count = 0;
    eetool::Samples part;
    while (file.next(part)) {
        file.decode(part);
        FUZZ_CHECK(part.first == count && part.value.size() == part.count &&
                   part.unknown.size() <= part.count);
        for (const eetool::Unknown& unknown : part.unknown) {
            FUZZ_CHECK(unknown.index - count < part.count && unknown.digits.find('\n') == std::string::npos);
        }
        count += part.count;
    }
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const char* const kNames[] = {"in.npy", "in.raw", "in.hex", "in.pgm"};
    Input in{data, size};
    const uint8_t kind = in.byte(), shape = in.byte();
    eetool::Expected expected{cmodel_stage("pre_ee", kind / 4 % cmodel_stage_count("pre_ee")), {}, 0};
    if ((kind & 3) == 1 || (kind & 3) == 2) {
        expected.size = eetool::Size{1 + shape % 16, 1 + shape / 16};
    }
    const std::string path = write_file(scratch_path(kNames[kind & 3]), in.rest());
    try {
        eetool::StageFile file(path, expected);
        FUZZ_CHECK(file.size().width > 0 && file.size().height > 0);
        FUZZ_CHECK(read_all(file) == file.size().samples());
    } catch (const eetool::Cannot& e) {
        FUZZ_CHECK(std::strlen(e.what()) > path.size());
    }
    return 0;
}

std::vector<std::string> fuzz_seeds() {
    std::vector<std::string> seeds = {std::string("\x00\x00", 2),
                                      "\x02\x12"
                                      "0a xX @2 // c\n/* * */ 7_f zz\n1 2 3"};
    const uint8_t samples[4 * 12] = {1, 0, 0xff, 0xff, 2};
    static const char* const kNames[] = {"seed.npy", "seed.raw", "seed.hex", "seed.pgm"};
    for (const int stage : {0, 2, cmodel_find_stage("pre_ee", "total_delta")}) {
        for (int format = 0; format < 4; ++format) {
            const std::string path = scratch_path(kNames[format]);
            eetool::write_stage(path, *eetool::format_of(path), *cmodel_stage("pre_ee", stage), {4, 3},
                                samples);
            seeds.push_back(std::string{static_cast<char>(format + 4 * stage), 0x23} + read_file(path));
        }
    }
    return seeds;
}
