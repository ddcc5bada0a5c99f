// The model object against the plain model and the fixed functions, and against misuse. CMODEL_TEST_SEED and
// CMODEL_TEST_CASES choose other cases; a failing case says which.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <set>
#include <sstream>

#include "cmodel.h"
#include "ee_hw.h"
#include "ee_reg.h"
#include "pre_ee_hw.h"
#include "random_cases.h"

#ifdef CMODEL_FAILING_MALLOC
extern "C" bool fail_allocations(unsigned long number, bool and_what_follows);
#endif

namespace {

const I kSeed = from_environment("CMODEL_TEST_SEED", 20250611);
const I kCases = from_environment("CMODEL_TEST_CASES", 500);

Random generator(I factor, I n) {
    return {std::mt19937_64(static_cast<uint64_t>(kSeed * factor + n))};
}

std::string scratch_file() {
    return std::filesystem::temp_directory_path() / ("cmodel_object_" + std::to_string(getpid()) + ".ini");
}

struct Handle {
    cmodel* m = nullptr;
    explicit Handle(const std::string& pipeline) { EXPECT_EQ(cmodel_new(pipeline.c_str(), &m), 0); }
    ~Handle() { cmodel_free(m); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    operator cmodel*() const { return m; }
};

// ---- Samples ------------------------------------------------------------------------------------

constexpr int kTypes[] = {CMODEL_U8, CMODEL_S8, CMODEL_U16, CMODEL_S16, CMODEL_U32, CMODEL_S32};

int bytes_of(int type) {
    return 1 << (type - 1) / 2;
}
bool is_signed(int type) {
    return type % 2 == 0;
}
// What a type makes of a value.
I cut(int type, I v) {
    const I range = I{1} << (8 * bytes_of(type)), low = v & (range - 1);
    return is_signed(type) && low >= range / 2 ? low - range : low;
}
int draw_type(Random& r, I least, I greatest) {
    for (;;)
        if (const int t = kTypes[r.below(6)]; cut(t, least) == least && cut(t, greatest) == greatest)
            return t;
}
uint8_t* sample(const cmodel_plane& p, int x, int y) {
    return static_cast<uint8_t*>(p.data) + p.row_stride * y + p.step * x;
}

// Memory for planes of any layout, with unused bytes around each and between samples.
struct Pool {
    std::unique_ptr<uint8_t[]> bytes;
    size_t used = 0;
    explicit Pool(size_t size) : bytes(new uint8_t[size]) {}

    cmodel_plane place(Random& r, int type, int width, int height, int depth, I pad) {
        const bool by_columns = r.chance(10);
        const I in_n = by_columns ? height : width, out_n = by_columns ? width : height;
        const I in = bytes_of(type) + pad, out = in * in_n + r.pick<I>({0, 0, 1, 9});
        const I in_sign = r.pick({1, 1, 1, -1}), out_sign = r.pick({1, 1, -1});
        const size_t at = used + 16 + static_cast<size_t>(r.below(4));
        used = at + static_cast<size_t>(out * (out_n - 1) + in * in_n) + 16;
        cmodel_plane p{&bytes[at], type, width, height, out * out_sign, in * in_sign, depth};
        if (by_columns) std::swap(p.row_stride, p.step);
        p.data = sample(p, p.step < 0 ? 1 - width : 0, p.row_stride < 0 ? 1 - height : 0);
        return p;
    }
};

// ---- Random runs --------------------------------------------------------------------------------

const char* const kInputNames[] = {"y", "cb", "cr", "ynr", "mmap", "yfusion", "red", "green", "blue"};

// Stages that a texture mode makes.
std::vector<const cmodel_stage_info*> stages_of(const char* pipeline, int texture) {
    std::vector<const cmodel_stage_info*> stages;
    for (int i = 0; i < cmodel_stage_count(pipeline); ++i)
        if (const cmodel_stage_info* const s = cmodel_stage(pipeline, i); s->making[texture].block)
            stages.push_back(s);
    return stages;
}

// A frame, registers and planes, and what the plain model makes of them.
struct Case {
    struct Written {
        std::string name;  // "": the output
        plain::Plane want;
        cmodel_plane at;
    };
    bool classic, extreme, large;
    int width, height;
    plain::Model model{"NULL"};
    std::string ini;
    std::map<std::string, std::pair<plain::Plane, cmodel_plane>> inputs;
    std::vector<Written> written;
    std::vector<std::string> log, got_log;
    Pool pool;

    const char* pipeline() const { return classic ? "classic" : "pre_ee"; }
    bool on() const { return model.reg("ee_enable") == 1; }
    bool texture() const { return !classic && model.reg("ee_texture_mode") == 1; }

    // `tame`: nothing that a good frame may lack. Registers as in `like`, if given.
    Case(Random& r, I n, bool tame = false, const Case* like = nullptr)
        : classic(like != nullptr ? like->classic : r.chance(40)),
          extreme(!tame && r.chance(8)),
          large(!tame && r.chance(2)),
          width(large ? r.size(500, 1100) : r.size(1, r.pick({4, 40}))),
          height(large ? r.size(1, 24) : r.size(1, r.pick({4, 24}))),
          pool(size_t{60} * (static_cast<size_t>(24 * width * height + 20 * (width + height)) + 99)) {
        auto settings = draw_settings(r, 1 << 20);
        if (tame) settings["reg_ee_enable"] = "1";
        ini = tame ? "" : draw_ini(r, settings, "ee");
        for (const auto& [key, value] : settings) ini += tame ? key + "=" + value + "\n" : "";
        if (tame) ini = "[ee]\n" + ini;
        if (like != nullptr) ini = like->ini;
        model.load(write_file(scratch_file(), ini));
        model.log.clear();
        draw_inputs(r);
        draw_written(r, n);
    }

    plain::Plane& draw_input(Random& r, const std::string& name, int w, int h, int depth) {
        auto& [p, at] = inputs[name];
        p = plain::Plane(w, h, 1, depth);
        const int type = draw_type(r, 0, extreme ? 0 : (1 << depth) - 1);
        const std::vector<I> picture = draw_picture(r, w, h);
        for (size_t i = 0; i < picture.size(); ++i)
            p.data[i] = static_cast<int32_t>(extreme ? cut(type, r.between(INT32_MIN, INT32_MAX))
                                                     : picture[i] << 4 >> (20 - depth));
        at = pool.place(r, type, w, h, depth, r.pick<I>({0, 0, 0, 1, 2, 7}));
        return p;
    }

    void draw_inputs(Random& r) {
        using plain::Plane;
        const bool rgb = r.chance(20);
        Plane y, cb((width + 1) / 2, height, 1, 8), cr = cb;
        if (rgb) {
            Plane colours(width, height, 3, 8);
            for (int c = 0; c < 3; ++c) {
                const Plane& one = draw_input(r, kInputNames[6 + c], width, height, 8);
                for (int i = 0; i < width * height; ++i) colours.data[i * 3 + c] = one.data[i];
            }
            const Plane converted = rgb_to_ycbcr(colours);
            y = take_channel(converted, 0);
            for (int i = 0; i < height * cb.width; ++i)
                for (Plane* const p : {&cb, &cr})
                    p->set(i % cb.width, i / cb.width,
                           converted(2 * (i % cb.width), i / cb.width, p == &cb ? 1 : 2));
        } else {
            const int half = std::max(1, (width + r.size(0, 1)) / 2);
            y = draw_input(r, "y", width, height, r.pick({8, 8, r.size(8, 12)}));
            cb = draw_input(r, "cb", half, height, 8);
            cr = draw_input(r, "cr", half, height, 8);
        }
        Plane ynr = y, mmap(width, height, 1, 8), fusion;
        if (y.depth != 8 || r.chance(70)) ynr = draw_input(r, "ynr", width, height, 8);
        if (r.chance(70)) mmap = draw_input(r, "mmap", width, height, 8);
        if (texture())
            fusion = draw_input(r, "yfusion", width, height, r.size(8, 20));
        else if (r.chance(30))
            draw_input(r, "yfusion", r.size(1, 9), r.size(1, 9), r.size(8, 20));  // not read
        const Plane out =
            classic ? model.ee_hw(y, cb, cr, ynr, mmap) : model.pre_ee_hw(y, cb, cr, ynr, mmap, &fusion);
        for (const plain::Record& record : model.log)
            log.push_back(std::to_string(record.level) + " " + record.text.substr(0, record.text.find('\n')));
        written.push_back({"", out, {}});
    }

    // The output alone, a stage alone, some of all, all.
    void draw_written(Random& r, I n) {
        if (on()) {
            std::vector<const cmodel_stage_info*> stages = stages_of(pipeline(), texture());
            EXPECT_EQ(stages.size() + (classic || texture() ? 0 : 2),
                      model.stages.size());  // beside y_mf, y_hf
            const I style = n % 4, part = style == 3 ? 100 : r.between(5, 60);
            for (size_t i = 0; i < stages.size(); ++i)
                if (style == 1 ? i == static_cast<size_t>(n / 4) % stages.size()
                               : style > 1 && r.chance(static_cast<int>(part)))
                    written.push_back({stages[i]->name, model.stages.at(stages[i]->name), {}});
            if (written.size() > 1 && (style == 1 || (style == 2 && r.chance(30))))
                written.erase(written.begin());
        }
        // A layout each, or pixel by pixel or side by side in one picture.
        const I together = r.pick<I>({0, 0, 0, 0, 1, 2});
        const int count = static_cast<int>(written.size());
        const cmodel_plane all = pool.place(r, CMODEL_S32, together == 2 ? width * count : width, height, 0,
                                            together == 1 ? 4 * (count - 1) : 0);
        for (int k = 0; k < count; ++k) {
            Written& w = written[static_cast<size_t>(k)];
            I least = 0, greatest = on() || classic ? 255 : (1 << w.want.depth) - 1;
            if (!w.name.empty()) {
                const cmodel_stage_info* const s =
                    cmodel_stage(pipeline(), cmodel_find_stage(pipeline(), w.name.c_str()));
                least = s->least, greatest = s->greatest;
            }
            w.at = all;
            w.at.width = width;
            w.at.data = together == 2 ? sample(all, k * width, 0) : static_cast<uint8_t*>(all.data) + 4 * k;
            if (together == 0)
                w.at =
                    pool.place(r, draw_type(r, least, greatest), width, height, 0, r.pick<I>({0, 0, 1, 5}));
        }
    }

    void set_registers(Random& r, cmodel* m) {
        const I way = r.below(3);
        EXPECT_EQ(cmodel_reset(m), 0);
        if (way == 0) {
            for (const plain::Register& reg : model.registers)
                EXPECT_EQ(cmodel_set(m, reg.key.c_str(), static_cast<int32_t>(reg.value)), 0)
                    << cmodel_error(m);
        } else {
            const int findings = way == 1
                                     ? cmodel_load_ini_text(m, ini.data(), ini.size(), nullptr)
                                     : cmodel_load_ini(m, write_file(scratch_file(), ini).c_str(), "NULL");
            EXPECT_TRUE(findings >= 0 && cmodel_finding(m, findings) == nullptr &&
                        (findings == 0 || cmodel_finding(m, findings - 1) != nullptr));
        }
        std::string dump(static_cast<size_t>(cmodel_dump_ini(m, "7", nullptr, 0)) + 1, '\0');
        cmodel_dump_ini(m, "7", dump.data(), dump.size());
        EXPECT_EQ(cmodel_reset(m), 0);
        EXPECT_GE(cmodel_load_ini_text(m, dump.data(), dump.size() - 1, "7"), 0);
        for (const plain::Register& reg : model.registers) {
            int32_t v = -1;
            EXPECT_EQ(cmodel_get(m, reg.key.c_str(), &v), 0);
            EXPECT_EQ(v, reg.value) << reg.key << " way " << way << "\n" << ini;
        }
    }

    void bind(Random& r, cmodel* m) {
        EXPECT_EQ(r.chance(50) ? cmodel_unbind(m) : 0, 0);
        for (const char* const name : kInputNames) {
            const auto it = inputs.find(name);
            EXPECT_EQ(cmodel_bind_input(m, name, it != inputs.end() ? &it->second.second : nullptr), 0);
        }
        std::map<std::string, const cmodel_plane*> bound;
        for (const Written& w : written) bound[w.name] = &w.at;
        EXPECT_EQ(cmodel_bind_output(m, bound[""]), 0) << cmodel_error(m);
        for (int i = 0; i < cmodel_stage_count(pipeline()); ++i) {
            const char* const name = cmodel_stage(pipeline(), i)->name;
            EXPECT_EQ(cmodel_bind_stage(m, name, bound[name]), 0) << cmodel_error(m);
        }
    }

    void bind_all(cmodel* m) {
        for (const auto& [name, input] : inputs) cmodel_bind_input(m, name.c_str(), &input.second);
        for (const Written& w : written)
            if (w.name.empty())
                cmodel_bind_output(m, &w.at);
            else
                cmodel_bind_stage(m, w.name.c_str(), &w.at);
    }

    // All bytes anew, with the inputs in place; returns them.
    std::vector<uint8_t> fill(Random& r) {
        uint64_t noise = r.next() | 1;
        for (size_t i = 0; i < pool.used; ++i)
            pool.bytes[i] = static_cast<uint8_t>((noise *= 0x5851f42d4c957f2d) >> 50);
        for (const auto& [name, input] : inputs)
            for (size_t i = 0; i < input.first.data.size(); ++i)
                put_sample(sample(input.second, static_cast<int>(i) % input.second.width,
                                  static_cast<int>(i) / input.second.width),
                           input.first.data[i], static_cast<size_t>(bytes_of(input.second.type)));
        return {pool.bytes.get(), pool.bytes.get() + pool.used};
    }

    // Runs a rectangle, or the whole frame for none, and compares every byte and record.
    void check(Random& r, cmodel* m, const std::array<int, 4>* rect) {
        std::vector<uint8_t> want = fill(r);
        const auto [x0, y0, w, h] = rect != nullptr ? *rect : std::array<int, 4>{0, 0, width, height};
        bool lost = false;
        for (const Written& plane : written)
            for (int y = y0; y < y0 + h; ++y)
                for (int x = x0; x < x0 + w; ++x) {
                    const I v = plane.want(x, y);
                    lost |= cut(plane.at.type, v) != v;
                    put_sample(&want[static_cast<size_t>(sample(plane.at, x, y) - pool.bytes.get())], v,
                               static_cast<size_t>(bytes_of(plane.at.type)));
                }
        got_log.clear();
        cmodel_set_log(
            m,
            [](void* user, int level, const char* text) {
                static_cast<Case*>(user)->got_log.push_back(std::to_string(level) + " " + text);
            },
            this);
        const int status = rect != nullptr ? cmodel_run_rect(m, x0, y0, w, h) : cmodel_run(m);
        cmodel_set_log(m, nullptr, nullptr);
        EXPECT_EQ(status, lost ? CMODEL_BAD_ARGUMENT : 0) << cmodel_error(m);
        EXPECT_TRUE(got_log == log || (extreme && rect != nullptr));  // some records count samples
        EXPECT_TRUE(std::memcmp(want.data(), pool.bytes.get(), want.size()) == 0)
            << pipeline() << " " << width << "x" << height << ": " << w << "x" << h << " at " << x0 << ", "
            << y0 << first_wrong(want);
    }

    std::string first_wrong(const std::vector<uint8_t>& want) const {
        for (const Written& plane : written)
            for (int i = 0; i < width * height; ++i)
                if (uint8_t* const got = sample(plane.at, i % width, i / width);
                    std::memcmp(got, &want[static_cast<size_t>(got - pool.bytes.get())],
                                static_cast<size_t>(bytes_of(plane.at.type))) != 0)
                    return "; '" + plane.name + "' at " + std::to_string(i % width) + ", " +
                           std::to_string(i / width);
        return "; outside of samples";
    }

    std::array<int, 4> draw_rect(Random& r) const {
        const auto draw = [&](int size, int& first, int& count) {
            first = r.chance(30) ? 0 : r.size(0, size - 1);
            count = r.chance(30) ? size - first : r.size(1, size - first);
        };
        std::array<int, 4> rect;
        draw(width, rect[0], rect[2]), draw(height, rect[1], rect[3]);
        return rect;
    }
};

// Pairs of runs on models that take turns, each of which was used for other sizes and settings before.
TEST(Model, AgreesWithThePlainModel) {
    std::map<std::string, std::unique_ptr<Handle>> models;
    for (I n = 0; n < kCases && !HasFailure(); ++n) {
        SCOPED_TRACE(testing::Message() << "case " << n << " of seed " << kSeed);
        Random r = generator(1000003, n);
        std::unique_ptr<Case> cases[2];
        cmodel* m[2];
        for (int k = 0; k < 2; ++k) {
            cases[k] = std::make_unique<Case>(r, n + k);
            std::unique_ptr<Handle>& model = models[cases[k]->pipeline() + std::to_string(k)];
            if (model == nullptr || r.chance(20)) model = std::make_unique<Handle>(cases[k]->pipeline());
            m[k] = *model;
            cases[k]->set_registers(r, m[k]);
            cases[k]->bind(r, m[k]);
        }
        for (int k = 0; k < 6; ++k) {
            Case& c = *cases[k % 2];
            const std::array<int, 4> rect = c.draw_rect(r);
            c.check(r, m[k % 2], r.chance(40) ? nullptr : &rect);
        }
        for (int k = 0; k < 2; ++k)  // as many pixels as tables of large frames are made for
            for (int left = cases[k]->large ? 200000 : 0; left > 0;
                 left -= cases[k]->width * cases[k]->height)
                cases[k]->check(r, m[k], nullptr);
        Case next(r, n, false, cases[0].get());  // another frame, with the registers as they are
        next.bind(r, m[0]), next.check(r, m[0], nullptr);
    }
    std::filesystem::remove(scratch_file());
}

// Stages as the object makes them, by name.
using Stages = std::map<std::string, std::vector<int32_t>>;

struct Bench {
    static constexpr int kWidth = 40, kHeight = 20, kPixels = kWidth * kHeight;
    std::vector<int32_t> in[6];
    Stages stages;  // "" is the output
    int texture;

    Bench(Random& r, cmodel* m, const char* pipeline, int texture_mode) : texture(texture_mode) {
        for (int k = 0; k < 6; ++k) {
            const std::vector<I> picture = draw_picture(r, kWidth, kHeight);
            const int noise = r.pick({1, 4, 40, 256}), width = k == 1 || k == 2 ? kWidth / 2 : kWidth;
            for (int i = 0; i < width * kHeight; ++i)
                in[k].push_back(static_cast<int32_t>(std::min<I>(
                    255, (picture[static_cast<size_t>(i)] >> 8) * (256 - noise) / 256 + r.below(noise))));
            const cmodel_plane p{in[k].data(), CMODEL_S32, width, kHeight, 4 * width, 4, 8};
            EXPECT_EQ(cmodel_bind_input(m, kInputNames[k], &p), 0);
        }
        for (const cmodel_stage_info* const s : stages_of(pipeline, texture)) stages[s->name];
        stages[""];
        for (auto& [name, samples] : stages) {
            samples.resize(kPixels);
            const cmodel_plane p{samples.data(), CMODEL_S32, kWidth, kHeight, 4 * kWidth, 4, 8};
            EXPECT_EQ(name.empty() ? cmodel_bind_output(m, &p) : cmodel_bind_stage(m, name.c_str(), &p), 0);
        }
    }
};

void set_anything(Random& r, cmodel* m, int texture) {
    for (int i = 0; i < cmodel_register_count(); ++i) {
        const cmodel_register_info& reg = *cmodel_register(i);
        const bool useful =
            std::strncmp(reg.key, "reg_ee_d", 8) == 0 || reg.bits == 20;  // thresholds amid the data
        const I top = useful ? std::min<I>(reg.greatest, 255) : reg.greatest;
        cmodel_set(m, reg.key,
                   static_cast<int32_t>(r.chance(50) ? r.between(reg.least, top) : reg.default_value));
    }
    cmodel_set(m, "reg_ee_enable", 1), cmodel_set(m, "reg_ee_texture_mode", texture);
    cmodel_set(m, "reg_ee_debug_mode", r.size(0, 12));
}

// The fixed functions, one after the other, on the same frame and registers.
Stages run_fixed_functions(const Bench& bench, bool classic) {
    std::map<std::string, FRAME*> frames;
    const auto f = [&](const std::string& name) {
        FRAME*& frame = frames[name];
        if (frame == nullptr) {
            const auto input = std::find(kInputNames, kInputNames + 6, name);
            const uint32_t width = name == "cb" || name == "cr" ? Bench::kWidth / 2 : Bench::kWidth;
            frame = CM_NewFRAME(2, 2, width, Bench::kHeight, name == "lpf" ? 3 : 1, 8);
            if (input != kInputNames + 6)
                std::copy(bench.in[input - kInputNames].begin(), bench.in[input - kInputNames].end(),
                          frame->data);
        }
        return frame;
    };
    const auto measured = [&] { return f(classic ? "clean_y" : "y"); };
    EE_DupCbCr(f("cb"), f("cr"), f("cb_full"), f("cr_full"));
    if (classic) EE_PreProcess(f("y"), f("clean_y"));
    EE_Cal5x5MinMax(measured(), f("local_max"), f("local_min"));
    EE_CalcDeltaRef(f("local_max"), f("local_min"), f("local_range"));
    EE_GenLPF3x3(measured(), f("cb_full"), f("cr_full"), f("lpf"));
    if (classic) {
        EE_CalcDelta(measured(), f("mf_delta"), f("hf_delta"));
    } else if (bench.texture == 0) {
        PRE_EE_CalcDelta(f("y"), f("mf_delta"), f("hf_delta"), "Yin");
    } else {
        PRE_EE_CalcDelta(f("yfusion"), f("yfusion_mf"), f("yfusion_hf"), "Yfusion");
        PRE_EE_CalcDelta(f("y"), f("y_mf"), f("y_hf"), "Yin");
        PRE_EE_FlatDet(f("y"), f("yfusion"), f("y_mf"), f("yfusion_mf"), f("mf_delta"), "MF");
        PRE_EE_FlatDet(f("y"), f("yfusion"), f("y_hf"), f("yfusion_hf"), f("hf_delta"), "HF");
    }
    EE_CalcCore(measured(), f("lpf"), f("mmap"), f("coring_level"));
    EE_Coring(f("mf_delta"), f("hf_delta"), f("coring_level"), f("cored_delta"));
    EE_CalcDeltaGain(f("local_range"), f("delta_gain"));
    EE_LumaAdptGainCal(measured(), f("lpf"), f("luma_gain"));
    EE_ChromaGain(f("cb_full"), f("cr_full"), f("lpf"), f("chroma_gain"));
    EE_MotionGain(f("mmap"), f("motion_gain"));
    EE_TotalGain(f("delta_gain"), f("luma_gain"), f("chroma_gain"), f("motion_gain"), f("total_gain"));
    EE_TotalDelta(f("cored_delta"), f("total_gain"), f("total_delta"));
    (classic ? EE_IOShoot : EE_IOShootPro)(f("total_delta"), measured(), f("local_max"), f("local_min"),
                                           f("limited_delta"));
    EE_SharpenMerge(f("limited_delta"), f("ynr"), f("sharpened"));
    Stages made;
    for (auto& [name, frame] : frames) {
        for (int i = 0;
             i < Bench::kPixels * static_cast<int>(frame->channels) && frame->width == Bench::kWidth; ++i)
            made[name != "lpf" ? name
                 : i % 3 == 0  ? "lpf_y"
                 : i % 3 == 1  ? "lpf_cb"
                               : "lpf_cr"]
                .push_back(frame->data[i]);
        CM_DelFRAME(frame);
    }
    return made;
}

TEST(Model, StagesAreThoseOfTheFixedFunctions) {
    log_set_quiet(true);
    for (I n = 0; n < 90; ++n) {
        const bool classic = n % 3 == 2;
        Random r = generator(1000151, n);
        Handle m(classic ? "classic" : "pre_ee");
        set_anything(r, m, n % 3 == 1);
        Bench bench(r, m, classic ? "classic" : "pre_ee", n % 3 == 1);
        EXPECT_EQ(cmodel_run(m), 0);
        char ini[16384];
        EXPECT_LT(cmodel_dump_ini(m, "0", ini, sizeof ini), static_cast<int>(sizeof ini));
        INIT_EE_REG("0"), LOAD_EE_INI(write_file(scratch_file(), ini).c_str());
        const Stages fixed = run_fixed_functions(bench, classic);
        size_t compared = 0;
        for (const auto& [name, samples] : bench.stages) {
            const auto it = fixed.find(name);
            compared += it != fixed.end();
            EXPECT_TRUE(it == fixed.end() || samples == it->second) << name << ", case " << n;
        }
        EXPECT_EQ(compared, n % 3 == 1 ? 24U : classic ? 21U : 20U);  // no flags and classes
    }
    std::filesystem::remove(scratch_file());
}

// ---- Misuse -------------------------------------------------------------------------------------

// A plane of the frame's size that lacks something; its samples are not there.
cmodel_plane break_plane(Random& r, const Case& c, bool written) {
    static int32_t one;
    cmodel_plane p{&one, CMODEL_S32, c.width, c.height, 4 * c.width, 4, 8};
    const I kind = r.below(written ? 8 : 6);
    if (kind == 0) p.data = nullptr;
    if (kind == 1) p.type = r.pick({0, 7, -1, INT_MAX, INT_MIN});
    if (kind == 2) p.width = r.pick({0, -1, INT_MIN, INT_MAX});
    if (kind == 3) p.height = r.pick({0, -7, INT_MIN, INT_MAX});
    if (kind == 4) p.step = r.pick({PTRDIFF_MIN, PTRDIFF_MAX, PTRDIFF_MAX / 2});
    if (kind == 5) p.row_stride = r.pick({PTRDIFF_MIN, PTRDIFF_MAX, PTRDIFF_MIN / 3});
    if (kind == 6) p.width = 2, p.step = r.size(-3, 3);
    if (kind == 7) p.width = 3, p.height = 2, p.row_stride = r.size(-11, 11);
    return p;
}

// Calls that fail by themselves and leave the model as it was.
constexpr I kBadCalls = 18;
int call_badly(Random& r, cmodel* m, Case& c, I kind) {
    const cmodel_register_info& reg = *cmodel_register(r.size(0, cmodel_register_count() - 1));
    const auto spoil = [&](const char* name) {
        return r.pick<std::string>(
            {"", "no such", "two\nlines", std::string(5000, 'y'), std::string(name) + "x", "Y"});
    };
    const auto rename = [&](const char* name, const char* foreign) {
        return r.chance(30) ? foreign : spoil(name);
    };
    const char* const input = kInputNames[r.below(9)];
    const bool reads = kind == 7 || kind == 8;
    const cmodel_plane broken = break_plane(r, c, !reads);
    cmodel_plane p = c.written[0].at;
    int32_t v;
    std::array<int, 4> rect = c.draw_rect(r);
    const size_t side = static_cast<size_t>(r.below(4));
    switch (kind) {
        case 0:
            return cmodel_set(m, spoil(reg.key).c_str(), 0);
        case 1:
            return cmodel_set(m, reg.key, r.pick({reg.least - 1, reg.greatest + 1, INT_MIN, INT_MAX}));
        case 2:
            return cmodel_get(m, spoil(reg.key).c_str(), &v);
        case 3:
            return cmodel_get(m, reg.key, nullptr);
        case 4:
            return r.chance(50) ? cmodel_set(m, nullptr, 0) : cmodel_copy_registers(m, nullptr);
        case 5:
            return cmodel_load_ini(
                m, r.pick<const char*>({"/", "", "/no/such/file", "/proc/self/mem", nullptr}), "0");
        case 6:
            return cmodel_bind_input(m, rename("cb", "sharpened").c_str(), r.chance(50) ? &p : nullptr);
        case 7:
            return cmodel_bind_input(m, input, &broken);
        case 8:
            return p.depth = *input == 'y' ? r.pick({7, 21, -8, INT_MAX}) : r.pick({7, 9, 0}),
                   cmodel_bind_input(m, input, &p);
        case 9:
            return cmodel_bind_output(m, &broken);
        case 10:
            return p.type = CMODEL_S8, cmodel_bind_output(m, &p);
        case 11:
            return cmodel_bind_stage(m, "total_delta", &broken);
        case 12:
            return p.type = r.pick({CMODEL_U8, CMODEL_U16, CMODEL_S16, CMODEL_U32}),
                   cmodel_bind_stage(m, "total_delta", &p);
        case 13:
            return cmodel_bind_stage(m,
                                     rename("lpf_y", r.chance(50) ? "ynr"
                                                     : c.classic  ? "y_mf"
                                                                  : "clean_y")
                                         .c_str(),
                                     &p);
        case 14:
            return r.chance(50)   ? cmodel_load_ini_text(m, nullptr, 5, "0")
                   : r.chance(50) ? cmodel_dump_ini(m, "0", nullptr, 5)
                                  : cmodel_explain(m, 0, 0, nullptr, 5);
        case 15:
            return r.chance(50) ? cmodel_bind_input(m, nullptr, &p) : cmodel_bind_stage(m, nullptr, &p);
        case 16:
            return rect[side] = side < 2 ? r.pick({-1, INT_MIN, INT_MAX, 40}) : 0,
                   cmodel_run_rect(m, rect[0], rect[1], rect[2], rect[3]);
        default:
            rect[side] = r.pick({-1, 41, INT_MIN, INT_MAX});
            return side < 2 && r.chance(50) ? cmodel_explain(m, rect[0], rect[1], nullptr, 0)
                                            : cmodel_run_rect(m, rect[0], rect[1], rect[2], rect[3]);
    }
}

// Runs that cannot be; everything is to be set and bound again then.
constexpr I kBadRuns = 13;
int run_badly(Random& r, cmodel* m, Case& c, I kind) {
    static int32_t samples[64 * 64];
    const bool planes = c.inputs.count("y") > 0;
    const char* const needed = planes ? r.pick({"y", "cb", "cr"}) : r.pick({"red", "green", "blue"});
    const char* const superfluous = planes ? r.pick({"red", "green", "blue"}) : r.pick({"y", "cb", "cr"});
    cmodel_plane p{samples, CMODEL_S32, c.width, c.height, 64 * 4, 4, 8}, in = c.inputs.at(needed).second;
    if (kind == 0) cmodel_unbind(m);
    if (kind == 1) cmodel_bind_input(m, needed, nullptr);
    if (kind == 2) in.depth = 8, cmodel_bind_input(m, superfluous, &in);
    if (kind == 3) in.height += 1, cmodel_bind_input(m, needed, &in);
    if (kind == 4) p.height += 1, cmodel_bind_input(m, r.pick({"ynr", "mmap"}), &p);
    if (kind == 5) p.height += 1, cmodel_bind_output(m, &p);
    if (kind == 6) p.width += 1, cmodel_bind_stage(m, "total_delta", &p);
    if (kind == 7) p.data = in.data, p.row_stride = 4 * c.width, cmodel_bind_output(m, &p);
    if (kind == 8) {  // the second begins in the last samples of the first's row, or before
        cmodel_bind_stage(m, "total_gain", &p);
        p.data = samples + r.below(c.width);
        r.chance(50) ? cmodel_bind_output(m, &p) : cmodel_bind_stage(m, "total_delta", &p);
    }
    if (kind == 9) cmodel_bind_stage(m, "total_gain", &p), cmodel_set(m, "reg_ee_enable", 0);
    if (kind == 10) {
        if (c.classic) return cmodel_bind_stage(m, "mf_texture", &p);
        cmodel_set(m, "reg_ee_texture_mode", r.chance(50)), cmodel_bind_input(m, "yfusion", nullptr);
        cmodel_bind_stage(m, r.pick({"mf_texture", "y_mf"}), &p);
    }
    if (kind == 11) p.depth = 10, cmodel_bind_input(m, "y", &p), cmodel_bind_input(m, "ynr", nullptr);
    if (kind == 12) {
        cmodel_bind_output(m, nullptr);
        for (const Case::Written& w : c.written)
            w.name.empty() ? 0 : cmodel_bind_stage(m, w.name.c_str(), nullptr);
    }
    return r.chance(50) ? cmodel_run(m) : cmodel_run_rect(m, 0, 0, 1, 1);
}

void expect_failures(int (*misuse)(Random&, cmodel*, Case&, I), I kinds, bool leaves_all) {
    testing::internal::CaptureStdout(), testing::internal::CaptureStderr();
    for (I n = 0; n < 600 && !testing::Test::HasFailure(); ++n) {
        SCOPED_TRACE(testing::Message() << "kind " << n % kinds << ", case " << n << " of seed " << kSeed);
        Random r = generator(1000033 + kinds, n);
        Case c(r, 4 * n + 2, true);
        Handle m(c.pipeline());
        c.set_registers(r, m), c.bind(r, m);
        if (r.chance(50)) c.check(r, m, nullptr);
        const std::vector<uint8_t> before = c.fill(r);
        EXPECT_LT(misuse(r, m, c, n % kinds), 0);
        const std::string text = cmodel_error(m);
        EXPECT_TRUE(!text.empty() && text.find('\n') == std::string::npos) << text;
        EXPECT_EQ(std::memcmp(before.data(), c.pool.bytes.get(), before.size()), 0);
        if (!leaves_all) cmodel_unbind(m), c.set_registers(r, m), c.bind(r, m);
        c.check(r, m, nullptr);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
}

TEST(Model, BadCallsChangeNothing) {
    expect_failures(call_badly, kBadCalls, true);
    cmodel* m;
    EXPECT_TRUE(cmodel_new("none", &m) == CMODEL_BAD_ARGUMENT && m == nullptr &&
                cmodel_new("classic", nullptr) < 0);
    EXPECT_TRUE(cmodel_run(nullptr) < 0 && *cmodel_error(nullptr) != '\0');
}

// The text is cut to its room, and what is bound stays as it was.
TEST(Model, ExplainsWithoutWriting) {
    for (I n = 0; n < 100 && !HasFailure(); ++n) {
        SCOPED_TRACE(testing::Message() << "case " << n << " of seed " << kSeed);
        Random r = generator(1000091, n);
        Case c(r, 4 * n + 2, n < 50);
        Handle m(c.pipeline());
        c.set_registers(r, m), c.bind(r, m);
        const std::vector<uint8_t> before = c.fill(r);
        char text[200] = {};
        const int length = cmodel_explain(m, c.width - 1, c.height - 1, text, 100);
        EXPECT_EQ(length,
                  c.on() ? cmodel_explain(m, c.width - 1, c.height - 1, nullptr, 0) : CMODEL_NOT_READY);
        EXPECT_EQ(std::strlen(text), length < 0 ? 0U : 99U) << text << cmodel_error(m);
        EXPECT_EQ(std::memcmp(before.data(), c.pool.bytes.get(), before.size()), 0);
        c.check(r, m, nullptr);
    }
}

TEST(Model, BadRunsWriteNothing) {
    expect_failures(run_badly, kBadRuns, false);
}

#ifdef CMODEL_FAILING_MALLOC
// Every allocation fails once, alone or with all that follow; the same model then does what it could not.
TEST(Model, LastsWithoutMemory) {
    for (I n = 0; n < 8 && !HasFailure(); ++n) {
        Random r = generator(1000099, n);
        Case c(r, 4 * n + 2, true);
        const std::string ini = "no key\n" + c.ini + "reg_ee_totalgain = 3\n";
        Handle used(c.pipeline());
        c.set_registers(r, used);
        const int findings = cmodel_load_ini_text(used, ini.data(), ini.size(), nullptr);
        bool failed = true;
        for (unsigned long k = 1; failed && !HasFailure(); ++k) {
            SCOPED_TRACE(testing::Message() << "allocation " << k << ", case " << n << " of seed " << kSeed);
            c.fill(r);
            const std::string file = write_file(scratch_file(), ini);
            cmodel* m;
            fail_allocations(k, n % 2 == 1);
            const int made = cmodel_new(c.pipeline(), &m);
            cmodel* const model = made == 0 ? m : used.m;
            const int text = cmodel_load_ini_text(model, ini.data(), ini.size(), nullptr);
            const int loaded = cmodel_load_ini(model, file.c_str(), nullptr);
            const bool filled = text < 0 || cmodel_finding(model, findings - 1) != nullptr;
            cmodel_copy_registers(model, used), c.bind_all(model);
            const int status = cmodel_run(model);
            const int said = n < 4 ? cmodel_explain(model, 0, 0, nullptr, 0) : 1;
            failed = fail_allocations(0, false);
            for (const int s : {made, text, loaded, status, said})
                EXPECT_TRUE(s >= 0 || s == CMODEL_NO_MEMORY) << cmodel_error(model);
            // Some failures are made up for: of a stream's buffer, of room to sort in.
            EXPECT_TRUE(failed || (made == 0 && text >= 0 && loaded >= 0 && status == 0 && said > 0));
            EXPECT_TRUE(filled && (text < 0 || text == findings) && (loaded < 0 || loaded == findings));
            c.set_registers(r, model), c.bind(r, model), c.check(r, model, nullptr);
            if (made == 0) cmodel_free(m);
        }
    }
}
#endif

// ---- Tables ---------------------------------------------------------------------------------------

bool has_word(const char* words, const std::string& word) {
    return (" " + std::string(words) + " ").find(" " + word + " ") != std::string::npos;
}

// One register at a time: what it changes first is a stage that names it, and whatever names it is changed by
// it in some frame.
TEST(Tables, RegistersReachWhatTheySay) {
    for (const auto& [pipeline, texture] : {std::pair("pre_ee", 0), {"pre_ee", 1}, {"classic", 1}}) {
        std::set<std::string> open;  // "register block"
        for (const cmodel_stage_info* const s : stages_of(pipeline, texture)) {
            std::istringstream keys(s->making[texture].registers);
            for (std::string key; keys >> key;) open.insert(key + " " + s->making[texture].block);
        }
        std::erase_if(open, [](const std::string& pair) { return pair.starts_with("reg_ee_texture_mode"); });
        for (I n = 0; n < 400 && (n < 10 || !open.empty()) && !HasFailure(); ++n) {
            Random r = generator(1000117, n);
            Handle m(pipeline);
            set_anything(r, m, texture);
            Bench bench(r, m, pipeline, texture);
            EXPECT_EQ(cmodel_run(m), 0) << cmodel_error(m);
            const Stages before = bench.stages;
            for (int i = 3; i < cmodel_register_count(); ++i) {  // beside enable, debug and texture mode
                const cmodel_register_info& reg = *cmodel_register(i);
                const std::string key = reg.key;
                if (n >= 10 && std::none_of(open.begin(), open.end(),
                                            [&](const std::string& s) { return s.starts_with(key + " "); }))
                    continue;
                int32_t value;
                cmodel_get(m, reg.key, &value);
                const I other = reg.greatest - value > value - reg.least
                                    ? r.between(I{value} + 1, reg.greatest)
                                    : r.between(reg.least, I{value} - 1);
                cmodel_set(m, reg.key, static_cast<int32_t>(other));
                EXPECT_EQ(cmodel_run(m), 0);
                for (const auto& [name, samples] : bench.stages) {
                    if (name.empty() || samples == before.at(name)) continue;
                    const cmodel_making& making =
                        cmodel_stage(pipeline, cmodel_find_stage(pipeline, name.c_str()))->making[texture];
                    bool fed = false;
                    for (const auto& [source, made] : bench.stages)
                        fed |= has_word(making.made_of, source) && made != before.at(source);
                    EXPECT_TRUE(fed || has_word(making.registers, key)) << key << " changes " << name;
                    if (!fed) open.erase(key + " " + making.block);
                }
                const bool shows = has_word(reg.followers, "pre_ee_hw");  // the debug view's shift
                EXPECT_TRUE(!shows || key == "reg_ee_debug_shift_bit");
                EXPECT_TRUE(reg.followers[0] != '\0' || bench.stages == before) << key;
                cmodel_set(m, reg.key, value);
            }
        }
        std::string left;
        for (const std::string& s : open) left += s + "\n";
        EXPECT_EQ(left, "") << pipeline << ", texture mode " << texture;
    }
}

TEST(Tables, TextureModeReachesWhatItSays) {
    std::set<std::string> reached;
    for (I n = 0; n < 50; ++n) {
        Handle m("pre_ee");
        Stages made[2];
        for (int texture = 0; texture < 2; ++texture) {
            Random r = generator(1000121, n);
            set_anything(r, m, texture), cmodel_unbind(m);
            Bench bench(r, m, "pre_ee", texture);
            EXPECT_EQ(cmodel_run(m), 0);
            made[texture] = bench.stages;
        }
        for (const auto& [name, samples] : made[0])
            if (made[1].count(name) && made[1][name] != samples) reached.insert(name);
    }
    for (int i = 0; i < cmodel_stage_count("pre_ee"); ++i) {
        const cmodel_stage_info& s = *cmodel_stage("pre_ee", i);
        if (s.making[0].block == nullptr || s.making[1].block == nullptr) continue;
        bool fed = false;
        for (const std::string& source : reached) fed |= has_word(s.making[1].made_of, source);
        EXPECT_EQ(has_word(s.making[1].registers, "reg_ee_texture_mode") || fed, reached.count(s.name) > 0)
            << s.name;
    }
}
}  // namespace
