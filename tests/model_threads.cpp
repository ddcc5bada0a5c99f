// Models in threads of their own, on the same inputs, against the same runs one after the other. Meant for
// the thread sanitizer (preset tsan); prints what differs and ends with 1.
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "cmodel.h"

namespace {

constexpr int kWidth = 200, kHeight = 60;

struct Frame {
    std::vector<uint8_t> y, cb, cr, mmap, yfusion;
};

// Everything that a model returned: output, a stage, records, findings, texts of the tables.
std::string work(const Frame& frame, int setting) {
    std::string result, log;
    cmodel* m = nullptr;
    if (cmodel_new(cmodel_pipeline(setting % 2), &m) < 0) return "no model";
    const std::string ini = "[ee]\nreg_ee_total_gain = " + std::to_string(20 * setting + 40) +
                            "\nreg_ee_debug_mode = " + std::to_string(setting / 2) +
                            "\nreg_ee_motion_lut_out_1 = 129\nno key\n";
    for (int i = cmodel_load_ini_text(m, ini.data(), ini.size(), nullptr); i > 0; --i)
        result += cmodel_finding(m, i - 1);
    cmodel_set_log(
        m, [](void* user, int, const char* text) { *static_cast<std::string*>(user) += text; }, &log);
    std::vector<uint8_t> out(kWidth * kHeight);
    std::vector<int32_t> total(out.size());
    const auto bind = [&](const char* name, const std::vector<uint8_t>& samples, int width) {
        const cmodel_plane p = {const_cast<uint8_t*>(samples.data()), CMODEL_U8, width, kHeight, width, 1, 8};
        cmodel_bind_input(m, name, &p);
    };
    bind("y", frame.y, kWidth), bind("cb", frame.cb, kWidth / 2), bind("cr", frame.cr, kWidth / 2);
    bind("mmap", frame.mmap, kWidth), bind("yfusion", frame.yfusion, kWidth);
    const cmodel_plane output = {out.data(), CMODEL_U8, kWidth, kHeight, kWidth, 1, 8};
    const cmodel_plane stage = {total.data(), CMODEL_S32, kWidth, kHeight, 4 * kWidth, 4, 11};
    cmodel_bind_output(m, &output), cmodel_bind_stage(m, "total_delta", &stage);
    for (int y = 0; y < kHeight; y += 20)
        if (cmodel_run_rect(m, 0, y, kWidth, 20) < 0) result += cmodel_error(m);
    if (cmodel_run(m) < 0) result += cmodel_error(m);
    cmodel_free(m);
    for (int i = 0; i < cmodel_stage_count(cmodel_pipeline(setting % 2)); ++i)
        result += cmodel_stage(cmodel_pipeline(setting % 2), i)->making[1].made_of;
    return result + log + cmodel_register(setting)->key + std::string(out.begin(), out.end()) +
           std::string(reinterpret_cast<const char*>(total.data()), 4 * total.size());
}

}  // namespace

int main() {
    Frame frame;
    uint32_t noise = 1;
    for (std::vector<uint8_t>* const plane : {&frame.y, &frame.cb, &frame.cr, &frame.mmap, &frame.yfusion}) {
        for (int i = 0; i < kWidth * kHeight; ++i)
            plane->push_back(static_cast<uint8_t>((noise = noise * 1664525 + 1013904223) >> 24 &
                                                  (i % 40 < 20 ? 255 : 31)));
    }
    for (const int count : {8, 2}) {  // the tables too are made by whoever comes first
        std::vector<std::string> got(static_cast<size_t>(count));
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i)
            threads.emplace_back([&, i] { got[static_cast<size_t>(i)] = work(frame, i); });
        for (std::thread& thread : threads) thread.join();
        for (int i = 0; i < count; ++i)
            if (got[static_cast<size_t>(i)] != work(frame, i))
                return std::printf("model %d of %d differs\n", i, count), 1;
        for (int i = 1; i < count; ++i)
            if (got[static_cast<size_t>(i)] == got[0])
                return std::printf("settings 0 and %d do not differ\n", i), 1;
    }
    return 0;
}
