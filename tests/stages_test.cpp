// eetool run, diff and explain against the plain model: its blocks make every stage once more, from random
// frames and settings, and once more again from one changed sample.
#include <sys/wait.h>

#include <random>
#include <regex>
#include <sstream>

#include "files.h"
#include "random_cases.h"
#include "stage_files.h"
#include "test_frames.h"

namespace {

namespace fs = std::filesystem;
using plain::Plane;
using Planes = std::map<std::string, Plane>;

struct Result {
    int status;
    std::string out, err;
};

Result eetool(const std::string& arguments) {
    const int status = std::system(("timeout 60 " EETOOL " " + arguments + " >out 2>err").c_str());
    return {WEXITSTATUS(status), read_file("out"), read_file("err")};
}

struct Change {
    std::string stage;
    int x = 0, y = 0, by = 0;
};

// All stages that the plain blocks make; the change goes in as soon as its stage is there.
Planes make_stages(plain::Model m, Planes p, bool classic, const Change& change) {
    const auto done = [&](const std::string& name, const Plane& plane) {
        p[name] = plane;
        if (name == change.stage) p[name].set(change.x, change.y, plane(change.x, change.y) + change.by);
    };
    for (const std::string name : {"cb", "cr"}) {
        Plane full = p["y"];
        full.depth = 8;
        for (int i = 0; i < full.width * full.height; ++i)
            full.data[i] = p[name](i % full.width >> 1, i / full.width);
        done(name + "_full", full);
    }
    if (classic) done("clean_y", plain::pre_process(m, p["y"]));
    const Plane& y = p[classic ? "clean_y" : "y"];
    Plane one, two;
    const auto both = [&](const std::string& a, const std::string& b) { done(a, one), done(b, two); };
    plain::extremes(y, 2, one, two);
    both("local_max", "local_min");
    done("local_range", plain::delta_ref(m, p["local_max"], p["local_min"]));
    if (classic) plain::classic_delta(m, y, one, two), both("mf_delta", "hf_delta");
    Plane ref = plain::low_pass(y, p["cb_full"], p["cr_full"]);
    const char* const channels[] = {"lpf_y", "lpf_cb", "lpf_cr"};
    for (int c = 0; c < 3; ++c) {
        Plane channel(ref.width, ref.height, 1, ref.depth);
        for (size_t i = 0; i < channel.data.size(); ++i) channel.data[i] = ref.data[3 * i + c];
        done(channels[c], channel);
        for (size_t i = 0; i < channel.data.size(); ++i) ref.data[3 * i + c] = p[channels[c]].data[i];
    }
    if (!classic && m.reg("ee_texture_mode") == 1) {
        plain::pre_delta(m, p["yfusion"], one, two, ""), both("yfusion_mf", "yfusion_hf");
        plain::pre_delta(m, y, one, two, ""), both("y_mf", "y_hf");
        for (const std::string band : {"mf", "hf"})
            done(band + "_delta",
                 plain::flat_det(m, y, p["yfusion"], p["y_" + band], p["yfusion_" + band], ""));
    } else if (!classic) {
        plain::pre_delta(m, y, one, two, ""), both("mf_delta", "hf_delta");
    }
    done("coring_level", plain::calc_core(m, y, ref, p["mmap"]));
    done("cored_delta", plain::coring(m, p["mf_delta"], p["hf_delta"], p["coring_level"]));
    done("delta_gain", plain::delta_gain(m, p["local_range"]));
    done("luma_gain", plain::luma_gain(m, y, ref));
    done("chroma_gain", plain::chroma_gain(m, p["cb_full"], p["cr_full"], ref));
    done("motion_gain", plain::motion_gain(m, p["mmap"]));
    done("total_gain",
         plain::total_gain(m, p["delta_gain"], p["luma_gain"], p["chroma_gain"], p["motion_gain"]));
    done("total_delta", plain::total_delta(m, p["cored_delta"], p["total_gain"]));
    done("limited_delta", plain::shoot(m, p["total_delta"], y, p["local_max"], p["local_min"], !classic));
    done("sharpened", plain::merge(m, p["limited_delta"], p["ynr"]));
    return p;
}

Plane read_stage(const std::string& path, const eetool::Expected& expected) {
    eetool::StageFile file(path, expected);
    Plane plane(file.size().width, file.size().height, 1, 8);
    eetool::Samples part;
    while (file.next(part)) {
        file.decode(part);
        std::copy(part.value.begin(), part.value.end(), plane.data.begin() + static_cast<long>(part.first));
    }
    return plane;
}

void write_stage(const std::string& path, eetool::Format format, const cmodel_stage_info& info,
                 const Plane& p) {
    const size_t bytes = static_cast<size_t>(eetool::type_of(info).bytes);
    std::vector<uint8_t> samples;
    for (const int32_t v : p.data) {
        samples.resize(samples.size() + bytes);
        put_sample(&samples[samples.size() - bytes], v, bytes);
    }
    eetool::write_stage(path, format, info, {p.width, p.height}, samples.data());
}

class Stages : public FileTest {
  protected:
    // One frame with its setting; inputs as files, and as options.
    void draw(Random& r) {
        classic = r.chance(40);
        const int width = r.size(1, 20), height = r.size(1, 16), depth = r.chance(70) ? 8 : r.size(8, 12);
        const int fusion_depth = r.size(8, 20);
        std::map<std::string, std::string> set = draw_settings(r, (I{1} << fusion_depth) - 1);
        set["reg_ee_enable"] = "1";
        std::string ini = "[ee]\n";
        for (const auto& [key, value] : set) ini += key + " = " + value + "\n";
        spill("x.ini", ini);
        model = plain::Model("NULL");
        model.load("x.ini");
        inputs.clear();
        options = std::string(" --pipeline ") + (classic ? "classic" : "pre_ee") + " --ini x.ini";
        for (const std::string name : {"y", "cb", "cr", "ynr", "mmap", "yfusion"}) {
            const bool chroma = name[0] == 'c';
            Plane p(chroma ? (width + 1) / 2 : width, height, 1,
                    name == "y"         ? classic ? 8 : depth
                    : name == "yfusion" ? fusion_depth
                                        : 8);
            const std::vector<I> picture = draw_picture(r, p.width, p.height);
            for (size_t i = 0; i < p.data.size(); ++i)
                p.data[i] = static_cast<int32_t>((picture[i] << 4) >> (20 - p.depth));
            inputs[name] = p;
            const Frame frame = make_plane(p.width, p.height, {p.data.begin(), p.data.end()}, p.depth);
            CM_WritePPM5((name + ".pgm").c_str(), frame);
            options += " --" + name + " " + name + ".pgm";
        }
    }

    void read_run(const std::string& format) {
        stages.clear();
        got.clear();
        const char* const pipeline = classic ? "classic" : "pre_ee";
        for (int i = 0; i < cmodel_stage_count(pipeline); ++i) {
            const cmodel_stage_info* const info = cmodel_stage(pipeline, i);
            char path[80];
            std::snprintf(path, sizeof path, "model/%02d_%s.%s", i + 1, info->name, format.c_str());
            if (info->making[model.reg("ee_texture_mode")].block == nullptr) continue;
            stages.push_back(info);
            got[info->name] = read_stage(path, {info, eetool::Size{inputs["y"].width, inputs["y"].height}});
        }
    }

    // What is said of a pixel: values, classes, the segment of one curve, the limiters of overshoot.
    void check_explained(const Planes& want, int x, int y) {
        const Result said =
            eetool("explain" + options + " --at " + std::to_string(x) + "," + std::to_string(y));
        ASSERT_EQ(said.status, 0) << said.err;
        const auto value = [&](const std::string& name) { return want.at(name)(x, y); };
        size_t seen = 0;
        std::istringstream lines(said.out);
        std::string stage;
        std::smatch m;
        static const char* const kClasses[] = {"dark flat", "dark edge",   "mid-tone",
                                               "line",      "bright edge", "bright flat"};
        const bool over = value("total_delta") >= 0;
        const std::string side = over ? "oshtthrd" : "ushtthrd";
        const I luma = value(classic ? "clean_y" : "y");
        const I room = 8 * ((over ? value("local_max") - luma : luma - value("local_min")) +
                            model.reg("ee_total_" + side));
        bool threshold = false;
        I clipped = 0;
        for (std::string line; std::getline(lines, line);) {
            static const std::regex kPlane("^([a-z_]+) +(-?[0-9]+)  .*"), kClass("^ +class: (.*)"),
                kSegment("^ +mmap .* segment . from \\(([0-9]+), .* to \\(([0-9]+), .*"),
                kClip("^ +limiter: (over|under)shoot clip, .*; cut by ([0-9]+)");
            if (std::regex_match(line, m, kPlane)) {
                stage = m[1];
                seen += got.contains(stage);
                EXPECT_EQ(std::stoll(m[2]), value(stage)) << stage;
            } else if (std::regex_match(line, m, kClass)) {
                EXPECT_EQ(m[1], kClasses[value(stage)]);
            } else if (stage == "motion_gain" && std::regex_match(line, m, kSegment)) {
                EXPECT_TRUE(std::stoi(m[1]) < value("mmap") && value("mmap") <= std::stoi(m[2])) << line;
            } else if (stage == "limited_delta") {
                threshold |= line.find("shoot threshold;") != line.npos;
                if (std::regex_match(line, m, kClip)) clipped = std::stoll(m[2]);
            }
        }
        EXPECT_EQ(seen, got.size());
        EXPECT_EQ(threshold, std::abs(value("total_delta")) > room) << said.out;
        // Without the clip, but for what the range of the block cuts itself.
        plain::Model free = model;
        for (plain::Register& reg : free.registers)
            if (reg.key == "reg_ee_total_" + side + "_clp") reg.value = 1 << 20;
        const auto pixel = [&](const std::string& name) {
            Plane p(1, 1, 1, want.at(name).depth);
            p.data[0] = static_cast<int32_t>(value(name));
            return p;
        };
        const Plane unclipped = plain::shoot(free, pixel("total_delta"), pixel(classic ? "clean_y" : "y"),
                                             pixel("local_max"), pixel("local_min"), !classic);
        if (std::abs(unclipped.data[0]) < 255) {
            EXPECT_EQ(clipped, std::abs(unclipped.data[0]) - std::abs(value("limited_delta"))) << said.out;
        }
    }

    bool classic = false;
    plain::Model model{"NULL"};
    Planes inputs, got;
    std::vector<const cmodel_stage_info*> stages;  // that the setting makes, in order
    std::string options;
};

TEST_F(Stages, AreThePlainModelsAndAChangeIsFoundInItsPlace) {
    log_set_quiet(true);
    for (I n = 0; n < from_environment("CMODEL_TEST_CASES", 500) && !HasFailure(); ++n) {
        SCOPED_TRACE("case " + std::to_string(n));
        std::mt19937_64 generator(static_cast<uint64_t>(n));
        Random r{[&] { return generator(); }};
        draw(r);
        const std::string format = r.pick<const char*>({"npy", "raw", "hex"});
        const Result run = eetool("run" + options + " --stages model --format " + format);
        ASSERT_EQ(run.status, 0) << run.err;
        read_run(format);
        Planes want = make_stages(model, inputs, classic, {});
        want.insert(got.begin(), got.end());  // flags and classes are no planes of the plain model
        for (const auto& [name, plane] : got) EXPECT_EQ(plane.data, want[name].data) << name;

        const cmodel_stage_info& info = *stages[static_cast<size_t>(r.below(static_cast<I>(stages.size())))];
        Change change{info.name, r.size(0, inputs["y"].width - 1), r.size(0, inputs["y"].height - 1), 1};
        const I before = want[info.name](change.x, change.y);
        if (before == info.greatest) change.by = -1;
        Planes dump = make_stages(model, inputs, classic, change);
        dump.insert(got.begin(), got.end());
        dump[info.name].set(change.x, change.y, before + change.by);
        fs::remove_all("dump");
        fs::create_directory("dump");
        std::string differ;
        for (const cmodel_stage_info* const stage : stages) {
            const eetool::Format to =
                r.pick({eetool::Format::kNpy, eetool::Format::kRaw, eetool::Format::kHex,
                        stage->is_signed ? eetool::Format::kNpy : eetool::Format::kPgm});
            write_stage("dump/" + std::string(stage->name) + "." + extension_of(to), to, *stage,
                        dump[stage->name]);
            if (dump[stage->name].data != want[stage->name].data) differ += std::string(" ") + stage->name;
        }
        const Result diff = eetool("diff model dump");
        EXPECT_EQ(diff.status, 1) << diff.err;
        const std::string first = "first difference: stage " + change.stage + ", x " +
                                  std::to_string(change.x) + ", y " + std::to_string(change.y) +
                                  ": expected " + std::to_string(before) + ", actual " +
                                  std::to_string(before + change.by) + "\n";
        EXPECT_EQ(diff.out.substr(0, first.size()), first);
        std::string listed;
        static const std::regex kStage("(first difference|also different): stage ([a-z_]+)");
        for (std::sregex_iterator it(diff.out.begin(), diff.out.end(), kStage), end; it != end; ++it)
            listed += " " + (*it)[2].str();
        EXPECT_EQ(listed, differ);
        check_explained(want, r.size(0, inputs["y"].width - 1), r.size(0, inputs["y"].height - 1));
        check_explained(want, r.size(0, inputs["y"].width - 1), r.size(0, inputs["y"].height - 1));
    }
}

TEST_F(Stages, FilesThatCannotBeComparedEndInOneLine) {
    const std::string npy("\x93NUMPY\x01\x00\x46\x00", 10);
    const auto header = [&](const std::string& text) {
        return npy + text + std::string(70 - text.size(), ' ');
    };
    const std::string good = header("{'descr': '<i2', 'fortran_order': False, 'shape': (1, 3), }");
    spill("mf_delta.npy", good + std::string("\xff\xff\x00\x00\x01\x00", 6));
    const struct {
        const char* name;
        std::string bytes;
        int status;
        const char* said;  // a part of it
    } cases[] = {
        {"same.hex", "// three\nffff 00_00 /* of\nthem */ @2 f", 1, "x 2, y 0: expected 1, actual -1"},
        {"same.hex", "ffff 0000 @2 0001", 0, "equal (1): mf_delta"},
        {"same.hex", "ffff 00x0 0001", 1, "x 1, y 0: expected 0, actual 00x0"},
        {"same.raw", std::string("\xff\xff\x00\x00\x02\x00", 6), 1, "x 2, y 0: expected 1, actual 2"},
        {"same.raw", "\xff\xff\x01", 2, "ends early: 1 of 3 samples"},
        {"same.raw", "1234567", 2, "goes on after its 3 samples"},
        {"same.hex", "ffff 0000", 2, "ends early: 2 of 3 samples"},
        {"same.hex", "ffff 0000 1 2", 2, "goes on"},
        {"same.hex", "ffff zero 1", 2, "no number at x 1, y 0: 'zero'"},
        {"same.hex", "ffff @4 0000 1", 2, "address"},
        {"same.npy", good.substr(0, 30), 2, "header"},
        {"same.npy", good + "1234", 2, "ends early"},
        {"same.npy", header("{'descr': '<i2', 'fortran_order': False, 'shape': (3, 1), }") + "123456", 2,
         "3x1"},
        {"same.npy", header("{'descr': '<f2', 'fortran_order': False, 'shape': (1, 3), }") + "123456", 2,
         "integers"},
        {"same.pgm", "P5\n# c\n1 3\n255\n123", 2, "1x3"},
        {"same.pgm", "P5\n3 1\n0\n123", 2, "greatest value"},
        {"same.pgm", "P2\n3 1\n255\n1 2 3", 2, "no PGM"},
        {"same.doc", "", 2, "format is not known"},
    };
    for (const auto& c : cases) {
        spill(c.name, c.bytes);
        const Result r = eetool(std::string("diff mf_delta.npy ") + c.name);
        EXPECT_EQ(r.status, c.status) << c.said << '\n' << r.out << r.err;
        EXPECT_NE((r.out + r.err).find(c.said), std::string::npos) << c.said << '\n' << r.out << r.err;
        if (c.status == 2) {
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
            EXPECT_EQ(r.out, "");
        }
    }
    EXPECT_EQ(eetool("diff mf_delta.npy none.npy").status, 2);
    fs::create_directory("a");
    fs::create_directory("b");
    for (const char* const to : {"a/mf_delta.npy", "b/mf_delta.npy", "a/hf_delta.npy"})
        fs::copy_file("mf_delta.npy", to);
    EXPECT_EQ(eetool("diff a b").status, 0);
    EXPECT_EQ(eetool("diff a b --all").status, 2);
    EXPECT_EQ(eetool("diff a b --stage hf_delta").status, 2);
    // Within the tolerance, and said so.
    spill("same.raw", std::string("\xfd\xff\x00\x00\x01\x00", 6));
    EXPECT_EQ(eetool("diff mf_delta.npy same.raw --tolerance 1").status, 1);
    const Result near = eetool("diff mf_delta.npy same.raw --tolerance 2");
    EXPECT_EQ(near.status, 0);
    EXPECT_EQ(near.out, "equal (1): mf_delta (tolerance 2)\n");
}

}  // namespace
