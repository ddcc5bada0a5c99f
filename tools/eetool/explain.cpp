// eetool explain: every stage at one pixel, and what decided it.
#include <cstdlib>

#include "mirror.h"
#include "model_run.h"
#include "reasons.h"
#include "row_source.h"

namespace eetool {
namespace {

struct Options : FrameOptions {
    std::string at;
};

// Planes of a frame, sample by sample: stages are computed for the one pixel that is looked at.
class Planes {
  public:
    explicit Planes(const ModelRun& run)
        : run_(run), samples_(static_cast<int32_t*>(std::calloc(run.size().samples(), sizeof(int32_t)))) {
        if (samples_ == nullptr) {
            throw Cannot("no memory for a stage of " + run.size().text());
        }
    }

    int32_t at(const char* name, int x, int y) const {
        x = cm::mirror(x, run_.size().width);
        y = cm::mirror(y, run_.size().height);
        const auto key = std::make_pair(std::string(name), at_index(x, y));
        const auto known = known_.find(key);
        if (known != known_.end()) {
            return known->second;
        }
        const int32_t value =
            cmodel_find_stage(run_.pipeline(), name) >= 0 ? stage_at(name, x, y) : input_at(name, x, y);
        known_.emplace(key, value);
        return value;
    }

  private:
    struct Free {
        void operator()(void* p) const { std::free(p); }
    };

    size_t at_index(int x, int y) const {
        return static_cast<size_t>(y) * static_cast<size_t>(run_.size().width) + static_cast<size_t>(x);
    }

    // All stages in turn use one array, of which the run writes one sample.
    int32_t stage_at(const char* name, int x, int y) const {
        const Size size = run_.size();
        const cmodel_plane plane{
            samples_.get(), CMODEL_S32, size.width, size.height, ptrdiff_t{4} * size.width, 4, 32};
        run_.require(cmodel_bind_stage(run_.model(), name, &plane));
        const int result = cmodel_run_rect(run_.model(), x, y, 1, 1);
        cmodel_bind_stage(run_.model(), name, nullptr);
        run_.require(result);
        return samples_.get()[at_index(x, y)];
    }

    // Without a noise-reduced luma luma stands for it, without a motion map nothing moves.
    int32_t input_at(const std::string& name, int x, int y) const {
        const InputImage* const image = find_image(name);
        if (image == nullptr && name == "mmap") {
            return 0;
        }
        if (image == nullptr && name == "ynr") {
            return input_at("y", x, y);
        }
        if (image == nullptr && name == "y") {
            return luma_of(*find_image("rgb"), x, y);
        }
        return sample_of(*image, 0, x, y);
    }

    const InputImage* find_image(const std::string& name) const {
        for (const auto& image : run_.images()) {
            if (image->name == name) {
                return image.get();
            }
        }
        return nullptr;
    }

    static int32_t sample_of(const InputImage& image, int channel, int x, int y) {
        int32_t value = 0;
        image.file.read_row(static_cast<uint32_t>(y), static_cast<uint32_t>(channel),
                            static_cast<uint32_t>(x), 1, &value);
        return value;
    }

    static int32_t luma_of(const InputImage& rgb, int x, int y) {
        const cm::ConstantSource red(1, 1, 8, sample_of(rgb, 0, x, y)),
            green(1, 1, 8, sample_of(rgb, 1, x, y)), blue(1, 1, 8, sample_of(rgb, 2, x, y));
        int32_t luma = 0;
        cm::ColourSource(red, green, blue, cm::ColourSource::kLuma).read(0, 0, 1, &luma);
        return luma;
    }

    const ModelRun& run_;
    std::unique_ptr<int32_t[], Free> samples_;
    mutable std::map<std::pair<std::string, size_t>, int32_t> known_;
};

void print_plane(const char* name, int32_t value, const char* unit, const char* meaning) {
    std::printf("%-16s %8d  %-12s %s\n", name, value, unit, meaning);
}

int explain(const Options& o) {
    int x = 0, y = 0, end = 0;
    if (std::sscanf(o.at.c_str(), "%9d,%9d%n", &x, &y, &end) != 2 || o.at.c_str()[end] != '\0') {
        throw CLI::ValidationError("--at", o.at + ": give X,Y");
    }
    const ModelRun run(o);
    const Size size = run.size();
    if (x < 0 || y < 0 || x >= size.width || y >= size.height) {
        throw CLI::ValidationError("--at", o.at + " lies outside the frame of " + size.text());
    }
    if (run.value("reg_ee_enable") != 1) {
        throw Cannot("the block is off (reg_ee_enable = 0): there is nothing to explain");
    }
    const Planes planes(run);
    const bool classic = o.pipeline == "classic";
    const Pixel pixel{classic,
                      [&](const char* name, int dx, int dy) { return planes.at(name, x + dx, y + dy); },
                      [&](const std::string& key) { return run.value(key.c_str()); }};

    // Runs of the model say first what is missing or does not fit.
    planes.at("local_max", x, y);
    std::printf("pixel %d, %d of %s, pipeline %s", x, y, size.text().c_str(), run.pipeline());
    std::printf(classic ? "\n" : ", texture mode %d\n", run.value("reg_ee_texture_mode"));
    const bool texture = !classic && run.value("reg_ee_texture_mode") == 1;
    print_plane("y", pixel.plane("y"), "code", "input: luma");
    print_plane("ynr", pixel.plane("ynr"), "code", "input: noise-reduced luma, which is sharpened");
    print_plane("mmap", pixel.plane("mmap"), "motion", "input: motion map");
    if (texture) {
        print_plane("yfusion", pixel.plane("yfusion"), "code", "input: fused luma");
    }
    for (int i = 0; i < cmodel_stage_count(run.pipeline()); ++i) {
        const cmodel_stage_info& info = *cmodel_stage(run.pipeline(), i);
        const cmodel_making& making = run.making(info);
        if (making.block == nullptr) {
            continue;
        }
        print_plane(info.name, pixel.plane(info.name), info.unit, info.meaning);
        for (const std::string& reason : reasons_of(info.name, pixel)) {
            std::printf("%25s %s\n", "", reason.c_str());
        }
        std::string keys;
        for (const std::string& line : register_lines(making.registers, [](const char*) { return 0; })) {
            keys += " " + line.substr(0, line.find(' '));
        }
        if (!keys.empty()) {
            std::printf("%25s turn:%s\n", "", keys.c_str());
        }
    }
    return kOk;
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    declare_frame_options(app, *o);
    app.add_option("--at", o->at, "column and row, from 0")->option_text("X,Y (required)")->required();
    return [o] {
        try {
            return explain(*o);
        } catch (const Cannot& e) {
            std::fprintf(stderr, "eetool: %s\n", e.what());
            return int{kCannot};
        }
    };
}

}  // namespace

const Command kExplain = {
    "explain", "Tell every stage at one pixel, and what decided it",
    "  eetool pattern star --sigma 2 --y y.pgm --cb cb.pgm --cr cr.pgm\n"
    "  eetool explain --set reg_ee_texture_mode=0 --y y.pgm --cb cb.pgm --cr cr.pgm --at 100,80\n"
    "  eetool explain --pipeline classic --y y.pgm --cb cb.pgm --cr cr.pgm --at 0,0\n",
    "A line a stage: name, value, unit, meaning; below it what decided the value (class, curve segment,\n"
    "limiter), and the registers to turn.\n",
    declare};

}  // namespace eetool
