// A second, deliberately slow model of the whole program, for comparison with the built one. Every
// block works on whole frames, pixel by pixel, with the reflected index and 64-bit intermediate
// sums, and shares no code and no table with the library.
#ifndef CMODEL_TESTS_PLAIN_MODEL_H
#define CMODEL_TESTS_PLAIN_MODEL_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace plain {

using I = int64_t;

struct Plane {
    int width = 0, height = 0, channels = 1, depth = 8;
    std::vector<int32_t> data;
    Plane() = default;
    Plane(int w, int h, int c, int d)
        : width(w), height(h), channels(c), depth(d), data(static_cast<size_t>(w) * h * c) {}
    I operator()(I x, I y, int c = 0) const;  // reflected
    void set(I x, I y, I value, int c = 0);   // reflected, value cut to 32 bits
    void set3(I x, I y, I c0, I c1, I c2) { set(x, y, c0), set(x, y, c1, 1), set(x, y, c2, 2); }
};

struct Record {
    int level;
    std::string source;
    int line;
    std::string text;
};

struct Register {
    std::string key;
    int width;
    bool is_signed;
    I value;
    int line;
    bool set;
};

// What the program leaves behind when it stops early. err "*" stands for any text.
struct Exit {
    int status;
    std::string err;
};

struct Model {
    bool dump = false;
    std::string dbg;
    std::string name, sw_name;
    std::vector<Register> registers;
    std::vector<Record> log;
    std::map<std::string, std::string> files;  // path -> bytes, debug images included
    std::map<std::string, Plane> stages;       // what the blocks of the last run made

    explicit Model(const std::string& instance);
    void load(const std::string& path);
    void print();
    I reg(const std::string& key) const;
    Plane pre_ee_hw(const Plane& in, const Plane& cb, const Plane& cr, const Plane& ynr, const Plane& mmap,
                    const Plane* fusion);
    Plane ee_hw(const Plane& in, const Plane& cb, const Plane& cr, const Plane& image, const Plane& motion);
    Plane read(const std::string& path, bool colour);
    void assign(const std::string& section, const std::string& key, const std::string& value);
};

// Curve of four knots, slopes in sixteenths.
struct Curve {
    int in[4], out[4], slope[3];
    I operator()(I x) const;
};

Plane take_channel(const Plane& in, int c);
Plane rgb_to_ycbcr(const Plane& rgb);

// Hue (256 a turn) and approximate length of a vector.
I hue_of(I a, I b);
I length_of(I a, I b);

// The blocks; each result has the size of its first plane.
void extremes(const Plane& in, int reach, Plane& max, Plane& min);
Plane delta_ref(Model& m, const Plane& max, const Plane& min);
Plane low_pass(const Plane& y, const Plane& cb, const Plane& cr);
void pre_delta(Model& m, const Plane& in, Plane& mf, Plane& hf, const std::string& tag);
Plane flat_det(Model& m, const Plane& in, const Plane& fusion, const Plane& delta_in,
               const Plane& delta_fusion, const std::string& tag);
void classic_delta(Model& m, const Plane& in, Plane& mf, Plane& hf);
Plane pre_process(Model& m, const Plane& in);
Plane calc_core(Model& m, const Plane& y, const Plane& ref, const Plane& motion);
Plane coring(Model& m, const Plane& mf, const Plane& hf, const Plane& core);
Plane delta_gain(Model& m, const Plane& range);
Plane luma_gain(Model& m, const Plane& y, const Plane& ref);
Plane chroma_gain(Model& m, const Plane& cb, const Plane& cr, const Plane& ref);
Plane motion_gain(Model& m, const Plane& motion);
Plane total_gain(Model& m, const Plane& delta, const Plane& luma, const Plane& chroma, const Plane& motion);
Plane total_delta(Model& m, const Plane& delta, const Plane& gain);
Plane shoot(Model& m, const Plane& delta, const Plane& y, const Plane& max, const Plane& min, bool pro);
Plane merge(Model& m, const Plane& delta, const Plane& src);

struct Outcome {
    int status = 0;
    std::string out, err;
    std::vector<Record> log;
    std::map<std::string, std::string> files;
};

// Predicts one run; args[0] is the program's path. Reads the input files, writes nothing.
Outcome run_program(const std::vector<std::string>& args);

}  // namespace plain

#endif
