// Frames that come row by row against whole runs of another model, and what is no use of the calls.
// CMODEL_TEST_SEED and CMODEL_TEST_CASES choose other cases.
#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <random>

#include "cmodel.h"
#include "random_cases.h"

namespace {

using Row = std::vector<int32_t>;

struct Model {
    cmodel* m = nullptr;
    explicit Model(const char* pipeline) { cmodel_new(pipeline, &m); }
    ~Model() { cmodel_free(m); }
    Model(const Model&) = delete;
    operator cmodel*() const { return m; }
};

cmodel_plane plane_of(Row& samples, int width, int depth) {
    return {samples.data(), CMODEL_S32, width, static_cast<int>(samples.size()) / width, 4 * width, 4, depth};
}

struct Input {
    std::string name;
    int width, ahead;
    bool used;
    Row samples;
    int pushed = 0;
};

struct Frame {
    int number = 0, width = 0, height = 0;
    std::vector<Input> inputs;
    std::map<std::string, Row> want;  // by stage that it keeps
    std::map<std::string, int> pulled;

    bool complete() const {
        return std::all_of(inputs.begin(), inputs.end(), [&](auto& in) { return in.pushed == height; });
    }
    // Rows of the output that the inputs are enough for.
    int made() const {
        int rows = height;
        for (const Input& in : inputs)
            if (in.used && in.pushed < height) rows = std::min(rows, std::max(in.pushed - in.ahead, 0));
        return rows;
    }
    bool gone() const {
        return complete() &&
               std::all_of(pulled.begin(), pulled.end(), [&](auto& p) { return p.second == height; });
    }
};

// A frame that is begun in `rows`, and what a whole run of `whole` makes of it.
Frame begin_frame(Random& r, cmodel* rows, cmodel* whole, const std::string& pipeline) {
    const bool colours = r.chance(25), off = r.chance(8);
    const int fusion_depth = r.chance(70) ? r.size(8, 20) : 0;
    for (const auto& [key, value] : draw_settings(r, (1 << std::max(fusion_depth, 8)) - 1))
        cmodel_set(rows, key.c_str(), std::atoi(value.c_str()));
    const int texture = fusion_depth != 0 && r.chance(70), on = !off;
    cmodel_set(rows, "reg_ee_texture_mode", texture);
    cmodel_set(rows, "reg_ee_enable", on);
    cmodel_copy_registers(whole, rows);

    Frame f;
    f.width = r.size(1, r.chance(15) ? 3 : 24), f.height = r.size(1, 12);
    const int y_depth = colours ? 8 : r.pick({8, 8, 10, 12}), beyond = r.chance(10);
    const int look_ahead = cmodel_look_ahead(rows);
    EXPECT_EQ(look_ahead, off ? 0 : pipeline == "classic" ? 4 : texture ? 5 : 2);
    cmodel_frame frame{f.width,      f.height, y_depth, fusion_depth, y_depth > 8 || r.chance(80),
                       r.chance(80), colours};
    cmodel_unbind(whole);
    f.inputs.reserve(16);
    const auto add = [&](const char* name, int width, int depth, bool looked_ahead, bool used = true) {
        Row samples;
        for (const I v : draw_picture(r, width, f.height))
            samples.push_back(static_cast<int32_t>((v << 4 >> (20 - depth)) + (beyond ? r.below(5000) : 0)));
        f.inputs.push_back({name, width, looked_ahead ? look_ahead : 0, used, samples});
        const cmodel_plane plane = plane_of(f.inputs.back().samples, width, depth);
        EXPECT_EQ(cmodel_bind_input(whole, name, &plane), 0) << cmodel_error(whole);
    };
    const char* const names[] = {"y", "cb", "cr", "red", "green", "blue"};
    for (int i = 0; i < 3; ++i)
        add(names[i + (colours ? 3 : 0)], colours || i == 0 ? f.width : (f.width + 1) / 2,
            i == 0 ? y_depth : 8, colours || i == 0);
    if (frame.has_ynr) add("ynr", f.width, 8, false);
    if (frame.has_mmap) add("mmap", f.width, 8, false);
    if (fusion_depth) add("yfusion", f.width, fusion_depth, true, on && texture && pipeline == "pre_ee");

    const auto keep = [&](const char* name, bool kept) {
        EXPECT_EQ(cmodel_keep_rows(rows, name, kept), 0);
        if (!kept) return;
        f.pulled[name] = 0;
        Row& want = f.want[name];
        want.assign(static_cast<size_t>(f.width) * f.height, -77);
        const cmodel_plane plane = plane_of(want, f.width, 0);
        EXPECT_EQ(name == std::string("output") ? cmodel_bind_output(whole, &plane)
                                                : cmodel_bind_stage(whole, name, &plane),
                  0);
    };
    const int percent = r.pick({0, 10, 100});
    for (int i = 0; i < cmodel_stage_count(pipeline.c_str()); ++i) {
        const cmodel_stage_info& stage = *cmodel_stage(pipeline.c_str(), i);
        keep(stage.name, on && stage.making[texture].block && r.chance(percent));
    }
    keep("output", f.want.empty() || r.chance(80));
    EXPECT_EQ(cmodel_run(whole), 0) << cmodel_error(whole);
    f.number = cmodel_begin(rows, &frame);
    EXPECT_GT(f.number, 0) << cmodel_error(rows);
    cmodel_set(rows, "reg_ee_total_gain", static_cast<int>(r.below(256)));  // too late for this frame
    return f;
}

void push_row(Random& r, cmodel* m, Frame& f) {
    Input& in = f.inputs[static_cast<size_t>(r.below(static_cast<I>(f.inputs.size())))];
    const int32_t* const row = &in.samples[static_cast<size_t>(in.pushed) % f.height * in.width];
    Row strided(static_cast<size_t>(in.width) * 3);
    for (int x = 0; x < in.width; ++x) strided[static_cast<size_t>(x) * 3] = row[x];
    const int status = r.chance(50)
                           ? cmodel_push(m, in.name.c_str(), row, in.width, CMODEL_S32, 4)
                           : cmodel_push(m, in.name.c_str(), strided.data(), in.width, CMODEL_U32, 12);
    EXPECT_EQ(status < 0, in.pushed == f.height) << cmodel_error(m);
    in.pushed += status == 0;
}

void pull_rows(Random& r, cmodel* m, Frame& f, bool all) {
    for (auto& [stage, y] : f.pulled) {
        if (!all && r.chance(60)) continue;
        int ready = f.gone() ? 0 : cmodel_ready(m, f.number, stage.c_str());
        EXPECT_GE(ready + y, f.made()) << stage;
        EXPECT_TRUE(stage != "output" || ready + y == f.made()) << cmodel_error(m);
        for (; ready > 0 && (all || r.chance(70)); --ready, ++y) {
            Row row(static_cast<size_t>(f.width));
            EXPECT_EQ(cmodel_pull(m, f.number, stage.c_str(), row.data(), f.width, CMODEL_S32, 4), y);
            EXPECT_TRUE(std::equal(row.begin(), row.end(), &f.want[stage][static_cast<size_t>(y) * f.width]))
                << "frame " << f.number << ", " << stage << ", row " << y;
        }
    }
}

TEST(Rows, EqualWholeRuns) {
    const I seed = from_environment("CMODEL_TEST_SEED", 1),
            cases = from_environment("CMODEL_TEST_CASES", 2000);
    for (const char* pipeline : {"pre_ee", "classic"}) {
        const Model rows(pipeline), whole(pipeline);
        std::deque<Frame> frames;  // the newest last
        for (I n = 0; n < cases / 2 && !testing::Test::HasFailure(); ++n) {
            SCOPED_TRACE(std::string(pipeline) + ", case " + std::to_string(n) + " of seed " +
                         std::to_string(seed));
            Random r{std::mt19937_64(static_cast<uint64_t>(seed * 1000003 + n))};
            frames.push_back(begin_frame(r, rows, whole, pipeline));
            Frame& newest = frames.back();
            const int dropped_after = r.chance(10) ? r.size(0, 30) : -1;
            for (int k = 0; !newest.complete() && k != dropped_after && !HasFailure(); ++k) {
                push_row(r, rows, newest);
                for (Frame& f : frames) pull_rows(r, rows, f, false);
            }
            if (r.chance(50)) pull_rows(r, rows, newest, true);
            if (!newest.complete()) {
                EXPECT_EQ(cmodel_drop(rows, newest.number), 0);
                EXPECT_LT(cmodel_ready(rows, newest.number, "output"), 0);
                frames.pop_back();
            }
            while (frames.size() > 3 || (!frames.empty() && frames.front().gone())) {
                pull_rows(r, rows, frames.front(), true);
                EXPECT_EQ(cmodel_drop(rows, frames.front().number), CMODEL_BAD_ARGUMENT) << "it is not gone";
                frames.pop_front();
            }
        }
    }
}

TEST(Rows, Misuse) {
    const Model m("pre_ee");
    const cmodel_frame frame{4, 2, 8, 0, 0, 0, 0};
    int32_t row[4] = {300, 300, 300, 300};
    const auto begin = [&](auto change) {
        cmodel_frame changed = frame;
        change(changed);
        return cmodel_begin(m, &changed);
    };
    const auto refused = [&](int status, const char* text) {
        EXPECT_LT(status, 0) << text;
        EXPECT_TRUE(matches(text, cmodel_error(m))) << text << " is not " << cmodel_error(m);
    };
    EXPECT_LT(cmodel_begin(nullptr, &frame) | cmodel_drop(nullptr, 1) | cmodel_look_ahead(nullptr), 0);
    refused(cmodel_push(m, "y", row, 4, CMODEL_S32, 4), "no frame was begun");
    refused(cmodel_begin(m, nullptr), "no frame*");
    refused(cmodel_begin(m, &frame), "texture mode 1 needs yfusion*");
    cmodel_set(m, "reg_ee_texture_mode", 0);
    refused(begin([](auto& f) { f.width = 0; }), "a frame of 0x2*");
    refused(begin([](auto& f) { f.width = f.height = 1 << 30; }), "no memory*");
    refused(begin([](auto& f) { f.y_depth = 7; }), "y has 7 bits*");
    refused(begin([](auto& f) { f.y_depth = 10; }), "luma of more than 8 bits*");
    refused(begin([](auto& f) { f.yfusion_depth = 21; }), "yfusion has 21 bits*");
    refused(cmodel_keep_rows(m, "clean_y", 1), "*no stage clean_y");
    cmodel_keep_rows(m, "mf_texture", 1);
    refused(cmodel_begin(m, &frame), "*mf_texture*mode 0*");
    cmodel_keep_rows(m, "mf_texture", 0);
    cmodel_keep_rows(m, "lpf_y", 1);
    EXPECT_EQ(cmodel_begin(m, &frame), 1) << "frames that could not begin have no number";
    refused(cmodel_begin(m, &frame), "frame 1 has 0 of 2 rows of y*");
    refused(cmodel_push(m, "luma", row, 4, CMODEL_S32, 4), "there is no input luma");
    refused(cmodel_push(m, "ynr", row, 4, CMODEL_S32, 4), "frame 1 was begun without ynr");
    refused(cmodel_push(m, "cb", row, 4, CMODEL_S32, 4), "cb: a row has 2 samples, not 4");
    refused(cmodel_push(m, "y", nullptr, 4, CMODEL_S32, 4), "y: no samples");
    refused(cmodel_push(m, "y", row, 4, 9, 4), "y: there is no sample type 9");
    refused(cmodel_pull(m, 1, "lpf_y", row, 4, CMODEL_S32, 4), "lpf_y: frame 1 has no row ready");
    for (const char* input : {"y", "cb", "cr", "y", "cb", "cr"})
        EXPECT_EQ(cmodel_push(m, input, row, input[0] == 'y' ? 4 : 2, CMODEL_S32, 4), 0);
    refused(cmodel_push(m, "y", row, 4, CMODEL_S32, 4), "y: frame 1 has all its 2 rows");
    refused(cmodel_ready(m, 1, "local_max"), "frame 1 does not keep local_max");
    refused(cmodel_ready(m, 2, "output"), "there is no frame 2*");
    refused(cmodel_pull(m, 1, "output", row, 3, CMODEL_S32, 4), "output: a row has 4 samples, not 3");
    refused(cmodel_pull(m, 1, "output", row, 4, CMODEL_S32, -3), "output: samples -3 bytes apart overlap");
    refused(cmodel_pull(m, 1, "lpf_y", row, 4, CMODEL_U8, 1), "lpf_y: the type does not hold 0..4095");
    EXPECT_EQ(cmodel_pull(m, 1, "lpf_y", row, 4, CMODEL_U16, 2), 0);
    EXPECT_EQ(cmodel_drop(m, 1), 0);
    refused(cmodel_drop(m, 1), "there is no frame 1");

    // A value beyond what luma's depth can make is not cut in silence; the row stays.
    row[0] = row[1] = row[2] = row[3] = 70000;
    const int number = begin([](auto& f) { f.height = 1; });
    for (const char* input : {"y", "cb", "cr"})
        EXPECT_EQ(cmodel_push(m, input, row, input[0] == 'y' ? 4 : 2, CMODEL_S32, 4), 0);
    refused(cmodel_pull(m, number, "lpf_y", row, 4, CMODEL_U16, 2), "lpf_y: row 0 has values of 70000..*");
    EXPECT_EQ(cmodel_pull(m, number, "lpf_y", row, 4, CMODEL_S32, 4), 0);
}

}  // namespace
