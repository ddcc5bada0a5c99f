// Compute alone, on 8-bit planes in memory, in one process, in turn: the driver's path, the model object on
// the same bytes (kept from frame to frame, made anew for each, in 64 rectangles), the fixed functions on
// frames.
//
//   pipeline_bench INI Y CB CR SRC_YNR MMAP YFUSION [ROUNDS]
//
// Registers come from section [ee0]. Prints the median milliseconds of each, the median ratio to the driver's
// path, round by round, and the memory that a run of the object takes beside the planes. Ends with 1 if
// outputs differ.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include "cmodel.h"
#include "ee_hw.h"
#include "ee_reg.h"
#include "fixed_run.h"
#include "pre_ee_hw.h"

namespace {

constexpr int kTilesAlong = 8;  // and as many down

double run_ms(const std::function<void()>& run) {
    const auto start = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> v) {
    std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
    return v[v.size() / 2];
}

[[noreturn]] void stop(const char* what) {
    std::fprintf(stderr, "pipeline_bench: %s\n", what);
    std::exit(1);
}

int check(cmodel* model, int status) {
    if (status < 0) {
        stop(cmodel_error(model));
    }
    return status;
}

// KiB of a line of /proc/self/status.
long status_kib(const char* key) {
    char line[256];
    long kib = 0;
    FILE* const status = std::fopen("/proc/self/status", "r");
    while (status != nullptr && std::fgets(line, sizeof line, status) != nullptr) {
        if (std::strncmp(line, key, std::strlen(key)) == 0) {
            kib = std::atol(line + std::strlen(key));
        }
    }
    if (status != nullptr) {
        std::fclose(status);
    }
    return kib;
}

// What `run` takes at most beyond what the process has, in KiB: pages touched, the stack's too.
long peak_kib(const std::function<void()>& run) {
    malloc_trim(0);
    FILE* const peak = std::fopen("/proc/self/clear_refs", "w");
    if (peak == nullptr || std::fputs("5", peak) < 0 || std::fclose(peak) != 0) {
        stop("peak memory cannot be reset");
    }
    const long before = status_kib("VmRSS:");
    run();
    return status_kib("VmHWM:") - before;
}

// The object, with the driver's packed bytes bound to it.
cmodel* new_model(const char* ini, const cm::PackedImage (&packed)[cm::kInputs], std::vector<uint8_t>& out) {
    cmodel* model;
    if (cmodel_new("pre_ee", &model) < 0) {
        stop("no memory");
    }
    check(model, cmodel_load_ini(model, ini, "0"));
    const auto plane = [](const cm::PackedImage& image, uint8_t* samples) {
        const int width = static_cast<int>(image.width);
        return cmodel_plane{samples, CMODEL_U8, width, static_cast<int>(image.height), width, 1, 8};
    };
    for (int i = 0; i < cm::kInputs; ++i) {
        const cmodel_plane input = plane(packed[i], packed[i].bytes.get());
        check(model, cmodel_bind_input(model, cm::kPlaneTable[i].name, &input));
    }
    const cmodel_plane output = plane(packed[0], out.data());
    check(model, cmodel_bind_output(model, &output));
    return model;
}

void run_tiles(cmodel* model, int width, int height) {
    for (int i = 0; i < kTilesAlong * kTilesAlong; ++i) {
        const int column = i % kTilesAlong, row = i / kTilesAlong;
        const int x = width * column / kTilesAlong, y = height * row / kTilesAlong;
        check(model, cmodel_run_rect(model, x, y, width * (column + 1) / kTilesAlong - x,
                                     height * (row + 1) / kTilesAlong - y));
    }
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

    cm::PackedImage packed[cm::kInputs];
    std::vector<cm::PackedSource> sources;
    cm::InputPlanes planes;
    FRAME* frames[cm::kInputs];
    sources.reserve(cm::kInputs);
    for (int i = 0; i < cm::kInputs; ++i) {
        packed[i] = cm::read_pnm(argv[2 + i], cm::PnmKind::kGrey, cm::at::kReadGrey);
        if (packed[i].depth != 8 || !packed[i].complete()) {
            stop("planes must be whole and have 8 bits");
        }
        planes[i] = &sources.emplace_back(packed[i]);
        frames[i] = CM_ReadPPM5(argv[2 + i], 2);
    }
    const int width = planes[0]->width(), height = planes[0]->height();
    std::vector<uint8_t> out(packed[0].samples()), object_out(out.size(), 1), tiles_out(out.size(), 1);

    cmodel *model, *tiled;
    const long taken = peak_kib([&] {
        model = new_model(argv[1], packed, object_out);
        check(model, cmodel_run(model));
    });
    tiled = new_model(argv[1], packed, tiles_out);

    struct Case {
        const char* name;
        std::function<void()> run;
        std::vector<double> ms;
    };
    std::vector<Case> cases = {
        {"driver's planes",
         [&] {
             cm::ByteSink sink(out.data(), width);
             cm::run_fixed(cm::kPreEe, planes, sink);
         },
         {}},
        {"object, kept", [&] { check(model, cmodel_run(model)); }, {}},
        {"object, made anew",
         [&] {
             cmodel* const fresh = new_model(argv[1], packed, object_out);
             check(fresh, cmodel_run(fresh));
             cmodel_free(fresh);
         },
         {}},
        {"object, 64 tiles", [&] { run_tiles(tiled, width, height); }, {}},
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
    if (object_out != out || tiles_out != out) {
        stop("the outputs of object and driver differ");
    }
    for (const Case& c : cases) {
        std::vector<double> ratio;
        for (size_t i = 0; i < c.ms.size(); ++i) {
            ratio.push_back(c.ms[i] / cases[0].ms[i]);
        }
        std::printf("%-18s %8.2f ms %6.2f ns/pixel %6.2f x the driver's\n", c.name, median(c.ms),
                    1e6 * median(c.ms) / static_cast<double>(packed[0].samples()), median(ratio));
    }
    std::printf("memory of the object beside its planes: %ld KiB\n", taken);
    cmodel_free(model);
    cmodel_free(tiled);
    for (FRAME* const frame : frames) {
        CM_DelFRAME(frame);
    }
    return 0;
}
