// Lists, clips and shards through eetool, against the plain model. CMODEL_TEST_SEED and CMODEL_TEST_CASES
// choose other jobs.
#include <sys/wait.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "random_cases.h"
#include "stage_files.h"
#include "test_frames.h"

namespace {

namespace fs = std::filesystem;
using plain::Plane;

struct Result {
    int status;
    std::string out, err;
};

Result eetool(const std::string& arguments) {
    const int status = std::system(("timeout 600 " EETOOL " " + arguments + " >out 2>err").c_str());
    return {WEXITSTATUS(status), read_file("out"), read_file("err")};
}

// The samples, each in `bytes`.
std::string pack(const Plane& p, int bytes, bool big_endian) {
    std::string text;
    for (const int32_t v : p.data)
        for (int k = 0; k < bytes; ++k) text += static_cast<char>(v >> 8 * (big_endian ? bytes - 1 - k : k));
    return text;
}

std::string sha256_of_plane(const Plane& p) {
    const std::string bytes = pack(p, p.depth > 8 ? 2 : 1, true);
    return eetool::sha256_of(bytes.data(), bytes.size(), {1, false, false});
}

Plane draw_plane(Random& r, int width, int height, int depth) {
    Plane p(width, height, 1, depth);
    const std::vector<I> picture = draw_picture(r, width, height);
    for (size_t i = 0; i < picture.size(); ++i)
        p.data[i] = static_cast<int32_t>(picture[i] << 4 >> (20 - depth));
    return p;
}

// By the rules of clips: rounded to 8 bits; chroma row y / 2; grey where there is none.
Plane rounded(Plane p) {
    for (int32_t& v : p.data)
        v = p.depth > 8 ? std::min((v + (1 << (p.depth - 9))) >> (p.depth - 8), 255) : v;
    p.depth = 8;
    return p;
}

// One random frame, how a job names it, and what the plain model has to work on.
struct Drawn {
    std::string words;  // of the job: the inputs
    Plane y, cb, cr, ynr, mmap, fusion;
    std::string clip, raw, after_luma;  // of a clip: path, options; the chroma that its sharpened frame has
    bool fails = false, no_fusion = false;
};

std::string draw_file(Random& r, Drawn& d, const std::string& stem, const char* name, const Plane& p) {
    const std::string path = stem + name + ".pgm";
    std::string text = "P5\n" + std::to_string(p.width) + " " + std::to_string(p.height) + "\n" +
                       std::to_string((1 << p.depth) - 1) + "\n" + pack(p, (p.depth + 7) / 8, true);
    if (r.chance(2)) {
        d.fails = true;
        const I how = r.below(3);
        if (how == 0) text.resize(text.size() - 1);
        if (how == 1) text = "P2" + text.substr(2);
        if (how == 2) return fs::remove(path), path;
    }
    return write_file(path, text);
}

void draw_planes(Random& r, Drawn& d, const std::string& stem, int width, int height) {
    const auto add = [&](const char* name, const Plane& p) {
        d.words += std::string(",\"") + name + "\":\"" + draw_file(r, d, stem, name, p) + "\"";
    };
    const int half = (width + 1) / 2;
    add("y", d.y = draw_plane(r, width, height, r.pick({8, 8, r.size(9, 12)})));
    add("cb", d.cb = draw_plane(r, half, height, 8));
    add("cr", d.cr = draw_plane(r, half, height, 8));
    d.ynr = d.y;
    if (d.y.depth > 8 || r.chance(60)) add("ynr", d.ynr = draw_plane(r, width, height, 8));
    if (r.chance(80)) add("yfusion", d.fusion = draw_plane(r, width, height, r.size(8, 20)));
    d.no_fusion = d.fusion.data.empty();
}

void draw_rgb(Random& r, Drawn& d, const std::string& stem, int width, int height) {
    Plane colours(width, height, 3, 8);
    for (int32_t& v : colours.data) v = static_cast<int32_t>(r.below(256));
    const Plane converted = plain::rgb_to_ycbcr(colours);
    d.y = d.ynr = take_channel(converted, 0);
    d.cb = d.cr = Plane((width + 1) / 2, height, 1, 8);
    for (int i = 0; i < height * d.cb.width; ++i) {
        const int x = i % d.cb.width, y = i / d.cb.width;
        d.cb.set(x, y, converted(2 * x, y, 1));
        d.cr.set(x, y, converted(2 * x, y, 2));
    }
    d.no_fusion = true;
    d.words = ",\"rgb\":\"" +
              write_file(stem + "rgb.ppm", "P6\n" + std::to_string(width) + " " + std::to_string(height) +
                                               "\n255\n" + pack(colours, 1, true)) +
              "\"";
}

// A clip of three frames, of which the middle one is meant.
void draw_clip(Random& r, Drawn& d, const std::string& stem, int width, int height) {
    const int chroma = r.size(0, 2), depth = r.pick({8, 8, r.size(9, 16), 16}), bytes = depth > 8 ? 2 : 1;
    const bool raw = r.chance(50), pairs = raw && chroma == 1 && depth == 8 && r.chance(50);
    const int half = (width + 1) / 2, rows = chroma == 1 ? (height + 1) / 2 : height;
    const std::string suffix = depth > 8 ? (chroma == 0 ? "" : "p") + std::to_string(depth) : "";
    const std::string tags[] = {"mono" + suffix,
                                "420" + (depth > 8 ? suffix : r.pick<const char*>({"", "jpeg", "mpeg2"})),
                                "422" + suffix};
    std::string file = raw ? ""
                           : "YUV4MPEG2 W" + std::to_string(width) + " H" + std::to_string(height) +
                                 " F30:1 Ip C" + tags[chroma] + "\n";
    for (int frame = 0; frame < 3; ++frame) {
        const Plane y = draw_plane(r, width, height, depth), cb = draw_plane(r, half, rows, depth),
                    cr = draw_plane(r, half, rows, depth);
        file += (raw ? "" : r.chance(50) ? "FRAME\n" : "FRAME Ip\n") + pack(y, bytes, false);
        if (pairs)
            for (size_t i = 0; i < cb.data.size(); ++i)
                file += {static_cast<char>(cb.data[i]), static_cast<char>(cr.data[i])};
        else if (chroma != 0)
            file += pack(cb, bytes, false) + pack(cr, bytes, false);
        if (frame != 1) continue;
        d.fusion = y;
        d.y = d.ynr = rounded(y);
        d.cb = d.cr = Plane(half, height, 1, 8);
        for (int i = 0; i < half * height; ++i) {
            const int at = i / half / (chroma == 1 ? 2 : 1) * half + i % half;
            d.cb.data[i] = chroma == 0 ? 128 : rounded(cb).data[at];
            d.cr.data[i] = chroma == 0 ? 128 : rounded(cr).data[at];
        }
        if (chroma != 0) d.after_luma = pack(rounded(cb), 1, true) + pack(rounded(cr), 1, true);
    }
    const std::string path = stem + (raw ? "clip.yuv" : "clip.y4m");
    if (r.chance(4)) d.fails = true, file = r.chance(50) ? file.substr(0, file.size() / 2) : "ab" + file;
    write_file(path, file);
    d.words = ",\"clip\":\"" + path + "\",\"frame\":1";
    d.clip = path;
    const char* const formats[] = {"mono", "i420", "i422"};
    const std::string format = pairs ? "nv12" : formats[chroma];
    if (raw)
        d.raw = " --raw " + format + " --size " + std::to_string(width) + "x" + std::to_string(height) +
                " --depth " + std::to_string(depth);
    if (raw)
        d.words += ",\"raw\":{\"format\":\"" + format + "\",\"width\":" + std::to_string(width) +
                   ",\"height\":" + std::to_string(height) + ",\"depth\":" + std::to_string(depth) + "}";
}

struct JobCase {
    std::string line, want;  // the status, and the hash where it is "ok" or "unlike"
};

JobCase draw_job(I number) {
    static const I seed = from_environment("CMODEL_TEST_SEED", 20261121);
    Random r{std::mt19937_64(static_cast<uint64_t>(seed * 1000003 + number))};
    const std::string id = "job " + std::to_string(number), stem = std::to_string(number) + "_";
    const bool classic = r.chance(30);
    const int width = r.size(1, r.pick({9, 40})), height = r.size(1, r.pick({9, 30}));
    Drawn d;
    const I source = r.below(100);
    source < 45   ? draw_planes(r, d, stem, width, height)
    : source < 60 ? draw_rgb(r, d, stem, width, height)
                  : draw_clip(r, d, stem, width, height);
    d.mmap = Plane(width, height, 1, 8);
    if (r.chance(50)) {
        d.mmap = draw_plane(r, width, height, 8);
        d.words += ",\"mmap\":\"" + draw_file(r, d, stem, "mmap", d.mmap) + "\"";
    }

    plain::Model model("7");
    const std::map<std::string, std::string> settings = draw_settings(r, I{1} << d.fusion.depth);
    std::string line =
        "{\"id\":\"" + id + "\",\"pipeline\":\"" + (classic ? "classic" : "pre_ee") + "\"" + d.words;
    if (r.chance(50)) {
        const std::string path = write_file(stem + "set.ini", draw_ini(r, settings, "ee7"));
        model.load(path);
        line += ",\"ini\":\"" + path + "\",\"instance\":\"7\"";
    } else {
        for (const auto& [key, text] : settings) model.assign("ee7", key, text);
        std::string set;
        for (const plain::Register& reg : model.registers)
            set += (set.empty() ? "\"" : ",\"") + reg.key + "\":" + std::to_string(reg.value);
        line += ",\"set\":{" + set + "}";
    }
    const bool on = model.reg("ee_enable") == 1;
    d.fails = d.fails || (!classic && on && model.reg("ee_texture_mode") == 1 && d.no_fusion);
    if (d.fails) return {line + "}", "failed"};
    const Plane out = classic ? model.ee_hw(d.y, d.cb, d.cr, d.ynr, d.mmap)
                              : model.pre_ee_hw(d.y, d.cb, d.cr, d.ynr, d.mmap, &d.fusion);
    const std::string sha256 = sha256_of_plane(out);
    const bool unlike = r.chance(5);
    if (unlike || r.chance(20)) line += ",\"expect\":\"" + (unlike ? std::string(64, '0') : sha256) + "\"";
    return {line + "}", (unlike ? "unlike\",\"sha256\":\"" : "ok\",\"sha256\":\"") + sha256};
}

class Batch : public FileTest {};

TEST_F(Batch, RandomJobsAreThoseOfThePlainModelInAnyShards) {
    const I cases = from_environment("CMODEL_TEST_CASES", 300);
    std::string list, want;
    std::vector<JobCase> jobs;
    for (I n = 0; n < cases; ++n) {
        jobs.push_back(draw_job(n));
        list += jobs.back().line + "\n";
    }
    spill("list.jsonl", list);
    std::string merged;
    for (const int shards : {1, 2, 3, 7}) {
        std::string files;
        for (int k = 0; k < shards; ++k) {
            const std::string name = "r" + std::to_string(shards) + "_" + std::to_string(k);
            files += " " + name;
            EXPECT_LE(eetool("batch list.jsonl --results " + name + " --jobs " + std::to_string(1 + k) +
                             " --shard " + std::to_string(k) + "/" + std::to_string(shards))
                          .status,
                      1);
        }
        const Result merge = eetool("batch list.jsonl --merge" + files);
        EXPECT_TRUE(merged.empty() || merged == merge.out) << shards;
        merged = merge.out;
    }
    std::istringstream lines(merged);
    I n = 0, failed = 0;
    for (std::string line; std::getline(lines, line) && n < cases; ++n) {
        const std::string start = "{\"line\":" + std::to_string(n + 1) + ",\"id\":\"job " +
                                  std::to_string(n) + "\",\"status\":\"" + jobs[static_cast<size_t>(n)].want;
        ASSERT_TRUE(line.starts_with(start))
            << "expected " << start << "\ngot " << line << "\nof " << jobs[static_cast<size_t>(n)].line;
        failed += line.find("failed") != line.npos;
    }
    EXPECT_EQ(n, cases);
    EXPECT_TRUE(failed > cases / 20 && failed < cases / 3) << failed;

    // Resumed, nothing is done but what failed; of a line that was torn, its job, too.
    std::string r = slurp("r1_0");
    r.resize(r.size() - 9);
    r.erase(0, r.find("\"ok\"") < r.find('\n') ? r.find('\n') + 1 : 0);
    spill("r1_0", r);
    const Result again = eetool("batch list.jsonl --results r1_0 --resume --junit r.xml");
    const std::string more =
        slurp("r1_0").substr(static_cast<size_t>(slurp("r1_0").find(r.substr(0, r.rfind('\n')))));
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(eetool("batch list.jsonl --merge r1_0").out, merged);
    EXPECT_LE(std::count(more.begin(), more.end(), '\n'), cases + failed + cases / 10);
    EXPECT_NE(slurp("r.xml").find("tests=\"" + std::to_string(cases) + "\""), std::string::npos);
}

// Through a pipe, every frame is what a list gives, in order, with its own chroma behind it.
TEST_F(Batch, ClipsComeOutInOrderWithTheirChroma) {
    int clips = 0;
    for (I n = 0; clips < 20; ++n) {
        Random r{std::mt19937_64(static_cast<uint64_t>(n))};
        Drawn d;
        draw_clip(r, d, "c", r.size(1, 40), r.size(1, 30));
        if (d.fails) continue;
        ++clips;
        const std::string setting = " --set reg_ee_texture_mode=0 --set reg_ee_total_gain=255";
        eetool("jobs --clip " + d.clip + d.raw + setting + " --out-dir sharp --out list.jsonl");
        EXPECT_EQ(eetool("batch list.jsonl").status, 0);
        const Result piped =
            eetool("batch --y4m - --out - --jobs 3 --results r.jsonl" + d.raw + setting + " <" + d.clip);
        EXPECT_EQ(piped.status, 0) << piped.err;
        std::string rest = piped.out.substr(piped.out.find('\n') + 1);
        for (int frame = 0; frame < 3; ++frame) {
            std::string luma = slurp(("sharp/defaults/cclip#0000" + std::to_string(frame) + ".pgm").c_str());
            luma = luma.substr(luma.size() - d.y.data.size());
            ASSERT_TRUE(rest.starts_with("FRAME\n" + luma)) << n << " " << frame;
            rest = rest.substr(6 + luma.size());
            EXPECT_TRUE(frame != 1 || rest.starts_with(d.after_luma)) << n;
            rest = rest.substr(d.after_luma.size());
        }
        EXPECT_EQ(rest, "");
        fs::remove("r.jsonl");
    }
}

TEST_F(Batch, BrokenClipsFailByNameAndFrame) {
    const std::string head = "YUV4MPEG2 W3 H2 F25:1 C420jpeg\n", frame = "FRAME\n" + std::string(10, 'y');
    const struct {
        std::string bytes, more, said;
    } cases[] = {
        {head.substr(0, 20), "", "clip has a header that does not end"},
        {"YUV4MPEG2 W3 H2 C444\n", "", "clip has the chroma subsampling C444; 420, 422 and mono are taken"},
        {"YUV4MPEG2 W3 H2 Cmono17\n", "", "clip has Cmono17; samples of 8 to 16 bits are taken"},
        {"YUV4MPEG2 W3 H0 C422\n", "", "clip has a header with the size H0"},
        {"YUV4MPEG2 W3\n", "", "clip has a header without a size"},
        {head + frame + frame.substr(0, 12), "", "clip: frame 1 ends early: 6 of 10 bytes"},
        {head + frame + "abc", "", "clip: frame 1 does not begin with FRAME"},
        {head + "frame\n", "", "clip: frame 0 does not begin with FRAME"},
        {std::string("\0\0\0\x20"
                     "ftypisom",
                     12) +
             std::string(48, 'm'),
         "", "clip is no Y4M file: it does not begin with YUV4MPEG2"},
        {std::string("\0\0\0\x20"
                     "ftypisom",
                     12) +
             std::string(48, 'm'),
         " --raw i420 --size 3x2", "clip is an MP4 file, not raw planes"},
        {std::string(23, 'r'), " --raw nv12 --size 3x2", "clip: frame 2 ends early: 3 of 10 bytes"},
        {"YUV4MPEG2 W1 H1 Cmono10\nFRAME\nxx", "", "has samples of more than 10 bits"}};
    for (const auto& c : cases) {
        spill("clip", c.bytes);
        const Result streamed = eetool("batch --clip clip --out o.y4m --set reg_ee_texture_mode=0" + c.more);
        EXPECT_NE(streamed.err.find(c.said), std::string::npos) << streamed.err;
        EXPECT_TRUE(streamed.status == 1 || streamed.status == 2);
        EXPECT_FALSE(fs::exists("o.y4m"));
        const Result listed = eetool("jobs --clip clip --out list.jsonl" + c.more);
        const Result run = listed.status == 0 ? eetool("batch list.jsonl") : listed;
        EXPECT_NE((run.err + run.out).find(c.said), std::string::npos) << run.err;
        EXPECT_NE(run.status, 0);
    }
}

TEST_F(Batch, ListsAreTheSameEachTimeAndRefuseGaps) {
    for (const int number : {8, 9, 10})
        for (const std::string plane : {"y", "u", "v"})
            spill(("a" + std::string(number < 10 ? "0" : "") + std::to_string(number) + "_" + plane + ".pgm")
                      .c_str(),
                  "P5\n2 1\n255\nxy");
    const std::string words = "jobs --frames 'a%02d_{y,cb=u,cr=v}.pgm' --set reg_ee_texture_mode=0";
    const Result swept = eetool(words + " --sweep reg_ee_total_gain=1,2 --sweep reg_ee_shoot_mode=0,1");
    EXPECT_EQ(std::count(swept.out.begin(), swept.out.end(), '\n'), 12);
    EXPECT_TRUE(swept.out.starts_with(
        "{\"id\":\"a08@defaults+reg_ee_total_gain=1+reg_ee_shoot_mode=0\",\"pipeline\":\"pre_ee\",\"set\":"
        "{\"reg_ee_texture_mode\":0,\"reg_ee_total_gain\":1,\"reg_ee_shoot_mode\":0},\"y\":\"a08_y.pgm\","
        "\"cb\":\"a08_u.pgm\",\"cr\":\"a08_v.pgm\",\"out\":null}\n"))
        << swept.out;
    const std::string random = words + " --random 5 --seed 9";
    EXPECT_EQ(eetool(random).out, eetool(random).out);
    EXPECT_EQ(eetool(words + " --count 4").err, "eetool: a11_y.pgm is missing\n");
    fs::remove("a09_v.pgm");
    EXPECT_EQ(eetool(words + " --out list").err, "eetool: a09_v.pgm is missing\n");
    EXPECT_FALSE(fs::exists("list") || fs::exists("list.part"));

    const struct {
        const char *line, *said;
    } bad[] = {{"{\"id\":\"a\",\"rgb\":\"x\"", "list:2: this is no JSON"},
               {"{\"id\":\"a\",\"rgb\":\"x\",\"sets\":{}}", "list:2: there is no key sets"},
               {"{\"id\":\"a\",\"y\":\"x\"}", "list:2: a job has one of y with cb and cr"},
               {"{\"id\":\"b\",\"rgb\":\"x\"}", "list:2: there is a job b already"},
               {"{\"id\":\"a\",\"rgb\":\"x\",\"out\":\"o\"}", "list:2: a job before writes to o, too"},
               {"{\"id\":\"a\",\"rgb\":\"x\",\"expect\":\"12\"}", "list:2: expect is no SHA-256"}};
    for (const auto& b : bad) {
        spill("list", std::string("{\"id\":\"b\",\"rgb\":\"x\",\"out\":\"o\"}\n") + b.line + "\n");
        const Result refused = eetool("batch list --results r.jsonl");
        EXPECT_EQ(refused.status, 2);
        EXPECT_NE(refused.err.find(b.said), std::string::npos) << refused.err;
        EXPECT_FALSE(fs::exists("r.jsonl"));
    }
}

TEST_F(Batch, GoesOnWhereItWas) {
    for (const std::string name : {"1.ppm", "2.ppm", "3.ppm"})
        spill(name.c_str(), "P6\n1 1\n255\n" + name.substr(0, 3));
    const std::string off = " --set reg_ee_texture_mode=0";
    EXPECT_EQ(eetool("jobs --frames %d.ppm --out-dir o --out list" + off).status, 0);
    fs::rename("2.ppm", "away");
    const auto said = [](const std::string& options) {
        const Result result = eetool("batch list " + options);
        return std::to_string(result.status) + " " + result.err.substr(8, result.err.find(" unlike") - 8);
    };
    EXPECT_EQ(said("--results r --jobs 1"), "1 3 of 3 jobs: 2 ok, 1 failed, 0");
    EXPECT_EQ(said("--results r").substr(0, 2), "2 ") << "it has results already";
    EXPECT_EQ(said("--results r --resume"), "1 1 of 3 jobs: 0 ok, 1 failed, 0");
    EXPECT_EQ(said("--results s --failed-from r --stop-on-failure"), "1 1 of 3 jobs: 0 ok, 1 failed, 0");
    EXPECT_NE(slurp("s").find("\"message\":\"2.ppm cannot be read: No such file or directory\",\"repeat\":"
                              "\"eetool batch list --only 2@defaults\""),
              std::string::npos)
        << slurp("s");
    fs::rename("away", "2.ppm");
    EXPECT_EQ(said("--only 2@defaults"), "0 1 of 1 jobs: 1 ok, 0 failed, 0");
    spill("1.ppm", "P6\n1 1\n255\nnew");  // another time
    fs::remove("o/defaults/3.pgm");
    EXPECT_EQ(said("--results r --resume"), "0 3 of 3 jobs: 3 ok, 0 failed, 0");
    EXPECT_EQ(said("--results r --resume"), "0 0 of 3 jobs: 0 ok, 0 failed, 0");

    // A photograph gives what `run` makes of it.
    eetool("run --photo 1.ppm --stages st --out x.ppm" + off);
    eetool("jobs --photo 1.ppm --out photo" + off);
    const std::string line = eetool("batch photo").out, hash = line.substr(line.find("sha256") + 9, 64);
    EXPECT_NE(slurp("st/run.json").find("\"sha256\": \"" + hash + "\"\n  }\n}"), std::string::npos) << hash;

    // Ended by a signal as soon as it has a result.
    std::string gains = "1";
    for (int k = 2; k < 256; ++k) gains += "," + std::to_string(k);
    eetool("jobs --frames %d.ppm --out many --sweep reg_ee_total_gain=" + gains +
           " --sweep reg_ee_total_coring=1,2,3,4,5,6,7,8" + off);
    const int status =
        std::system(EETOOL
                    " batch many --results m --jobs 1 2>err & p=$!; until [ -s m ]; do :; done; "
                    "kill $p; wait $p");
    EXPECT_EQ(WEXITSTATUS(status), 143);
    EXPECT_NE(slurp("err").find("go on with: eetool batch many --results m --resume --jobs 1\n"),
              std::string::npos);
    EXPECT_EQ(eetool("batch many --results m --resume").status, 0);
    EXPECT_EQ(eetool("batch many --results n").status, 0);
    EXPECT_EQ(eetool("batch --merge m").out, eetool("batch --merge n").out);
    const Result summary = eetool("results r s");
    EXPECT_TRUE(summary.out.starts_with("3 jobs: 2 ok, 1 failed, 0 unlike")) << summary.out;
}

}  // namespace
