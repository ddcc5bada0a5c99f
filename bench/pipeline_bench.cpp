// Compute alone: the driver's packed planes against the library's frames, in one process, in turn.
//
//   pipeline_bench INI Y CB CR SRC_YNR MMAP YFUSION [ROUNDS]
//
// Prints the median milliseconds of each and the median ratio to the driver's path, round by round.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

#include "common.h"
#include "ee_hw.h"
#include "ee_reg.h"
#include "pnm.h"
#include "pre_ee_hw.h"
#include "pre_ee_pipeline.h"

namespace {

double run_ms(const std::function<void()>& run) {
    const auto start = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> v) {
    std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
    return v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 8) {
        std::fprintf(stderr, "usage: %s INI Y CB CR SRC_YNR MMAP YFUSION [ROUNDS]\n", argv[0]);
        return 2;
    }
    const int rounds = argc > 8 ? std::atoi(argv[8]) : 15;
    log_set_quiet(true);
    INIT_EE_REG("0");
    LOAD_EE_INI(argv[1]);

    cm::PackedImage packed[6];
    FRAME* frames[6];
    for (int i = 0; i < 6; ++i) {
        packed[i] = cm::read_pnm(argv[2 + i], cm::PnmKind::kGrey, cm::at::kReadGrey);
        frames[i] = CM_ReadPPM5(argv[2 + i], 2);
    }
    const cm::EePlanes planes{cm::RowSource(packed[0]), cm::RowSource(packed[1]), cm::RowSource(packed[2]),
                              cm::RowSource(packed[3]), cm::RowSource(packed[4]), cm::RowSource(packed[5])};
    std::vector<uint8_t> out(packed[0].samples());

    struct Case {
        const char* name;
        std::function<void()> run;
        std::vector<double> ms;
    };
    std::vector<Case> cases = {
        {"driver's planes",
         [&] {
             cm::ByteSink sink(out.data(), planes.luma.width());
             cm::run_pre_ee(planes, sink);
         },
         {}},
        {"pre_ee_hw",
         [&] { CM_DelFRAME(pre_ee_hw(frames[0], frames[1], frames[2], frames[3], frames[4], frames[5])); },
         {}},
        {"ee_hw", [&] { CM_DelFRAME(ee_hw(frames[0], frames[1], frames[2], frames[3], frames[4])); }, {}},
    };
    for (int round = -1; round < rounds; ++round) {  // one warm-up
        for (Case& c : cases) {
            const double ms = run_ms(c.run);
            if (round >= 0) {
                c.ms.push_back(ms);
            }
        }
    }
    for (const Case& c : cases) {
        std::vector<double> ratio;
        for (size_t i = 0; i < c.ms.size(); ++i) {
            ratio.push_back(c.ms[i] / cases[0].ms[i]);
        }
        std::printf("%-16s %8.2f ms %6.2f ns/pixel %6.2f x the driver's\n", c.name, median(c.ms),
                    1e6 * median(c.ms) / static_cast<double>(packed[0].samples()), median(ratio));
    }
    for (FRAME* const frame : frames) {
        CM_DelFRAME(frame);
    }
    return 0;
}
