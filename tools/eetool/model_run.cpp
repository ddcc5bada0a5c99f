// What `run` and `explain` share: options, registers and inputs of one frame.
#include "model_run.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <sstream>

#include "ee_no_effect.h"
#include "ee_reg.h"
#include "mild_setting.h"

namespace eetool {
namespace {

const struct {
    const char* name;
    const char* meaning;
} kImages[] = {{"photo", "a photograph (JPEG, PNG, TIFF, PPM or PGM) in place of --y, --cb, --cr and --rgb"},
               {"y", "luma, 8 to 12 bits (P5)"},
               {"cb", "chroma, 8 bits (P5), half as wide as luma"},
               {"cr", "chroma, 8 bits (P5), half as wide as luma"},
               {"rgb", "a colour picture, 8 bits (P6), in place of --y, --cb and --cr"},
               {"ynr", "noise-reduced luma, 8 bits (P5), which is sharpened; without it luma is"},
               {"mmap", "motion map, 8 bits (P5); without it nothing moves"},
               {"yfusion", "fused luma of texture mode 1, 8 to 20 bits (P5)"}};

void to_logger(void*, int level, const char* text) {
    log_log(level, "cmodel", 0, "%s", text);
}

void set_register(cmodel* model, const std::string& assignment) {
    const size_t equals = assignment.find('=');
    const std::string key = assignment.substr(0, equals);
    int32_t value = 0;
    const char* const last = assignment.data() + assignment.size();
    const auto parsed = equals == assignment.npos
                            ? std::from_chars_result{nullptr, std::errc::invalid_argument}
                            : std::from_chars(assignment.data() + equals + 1, last, value);
    if (parsed.ec != std::errc() || parsed.ptr != last) {
        throw CLI::ValidationError("--set", assignment + ": give KEY=VALUE, the value a decimal integer");
    }
    if (cmodel_set(model, key.c_str(), value) < 0) {
        throw CLI::ValidationError("--set", cmodel_error(model));
    }
}

void bind_image(cmodel* model, const InputImage& image, const char* input) {
    const cm::PackedImage& file = image.file;
    const bool wide = !image.samples.empty();
    const ptrdiff_t bytes = wide ? 4 : 1;
    const ptrdiff_t step = bytes * static_cast<ptrdiff_t>(file.channels);
    uint8_t* const data =
        wide ? static_cast<uint8_t*>(static_cast<void*>(const_cast<int32_t*>(image.samples.data())))
             : image.file.bytes.get();
    const char* const colours[] = {"red", "green", "blue"};
    for (uint32_t c = 0; c < file.channels; ++c) {
        const cmodel_plane plane{data + static_cast<ptrdiff_t>(c) * bytes,
                                 wide ? CMODEL_S32 : CMODEL_U8,
                                 static_cast<int>(file.width),
                                 static_cast<int>(file.height),
                                 step * static_cast<ptrdiff_t>(file.width),
                                 step,
                                 file.depth};
        const char* const name = file.channels == 3 ? colours[c] : input;
        if (cmodel_bind_input(model, name, &plane) < 0) {
            throw Cannot(image.path + ": " + cmodel_error(model));
        }
    }
}

}  // namespace

void declare_frame_options(CLI::App& app, FrameOptions& o) {
    app.add_option("--pipeline", o.pipeline, "pre_ee, which pre_ee_main runs, or classic")
        ->option_text("NAME [pre_ee]")
        ->check(CLI::IsMember({"pre_ee", "classic"}));
    app.add_option(
           "--ini", o.ini,
           "register setting; without it all registers have their defaults; with --photo settings/mild.ini")
        ->option_text("FILE");
    app.add_option("--instance", o.instance, "registers are read from section [eeNAME]; without it from [ee]")
        ->option_text("NAME");
    app.add_option("--set", o.set, "give a register this value; may be repeated")
        ->option_text("KEY=VALUE")
        ->allow_extra_args(false);
    for (const auto& image : kImages) {
        app.add_option(std::string("--") + image.name, o.image[image.name], image.meaning)
            ->option_text("FILE");
    }
    for (const char* const plane : {"--y", "--cb", "--cr"}) {
        app.get_option("--rgb")->excludes(app.get_option(plane));
        app.get_option("--photo")->excludes(app.get_option(plane));
    }
    app.get_option("--photo")->excludes(app.get_option("--rgb"));
    app.add_flag("--wait", o.wait, "wait until an image can be opened");
    CLI::Option* const log = app.add_option("--log", o.log, "log file, appended to")->option_text("FILE");
    app.add_option("--log-level", o.log_level, "least level that is logged, 0 (all) to 5 (fatal)")
        ->option_text("0..5 [2]")
        ->check(CLI::Range(int{LOG_TRACE}, int{LOG_FATAL}))
        ->needs(log);
}

std::vector<std::string> words_of(const FrameOptions& o) {
    std::vector<std::string> words = {"--pipeline", o.pipeline};
    const auto add = [&](const std::string& option, const std::string& value) {
        if (!value.empty()) {
            words.push_back(option);
            words.push_back(value);
        }
    };
    add("--ini", o.ini);
    add("--instance", o.instance == "NULL" ? "" : o.instance);
    for (const std::string& assignment : o.set) {
        add("--set", assignment);
    }
    for (const auto& image : kImages) {
        add(std::string("--") + image.name, o.image.at(image.name));
    }
    return words;
}

ModelRun::ModelRun(const FrameOptions& o) : pipeline_(o.pipeline) {
    const auto given = [&](const char* name) { return !o.image.at(name).empty(); };
    if (!given("photo") && !given("rgb") && !(given("y") && given("cb") && given("cr"))) {
        throw CLI::RequiredError("--photo, or --y, --cb and --cr, or --rgb,");
    }
    cmodel* made = nullptr;
    if (cmodel_new(o.pipeline.c_str(), &made) < 0) {
        throw Cannot("no memory for a model");
    }
    model_.reset(made);
    open_log(o);
    take_registers(o);
    const bool texture =
        o.pipeline == "pre_ee" && value("reg_ee_enable") == 1 && value("reg_ee_texture_mode") == 1;
    if (texture && !given("yfusion") && !given("photo")) {
        throw Cannot(
            "reg_ee_texture_mode is 1, which needs the fused luma: give --yfusion FILE, or --set "
            "reg_ee_texture_mode=0");
    }
    for (const auto& [name, meaning] : kImages) {
        const std::string& path = o.image.at(name);
        if (given(name) && std::string(name) == "photo") {
            photo_ = read_photo(path);
            images_ = inputs_of(*photo_, path);
        } else if (given(name)) {
            images_.push_back(read_input(name, path, o.wait));
        }
    }
    bind_inputs(model());
    const cm::PackedImage& luma = images_[0]->file;
    size_ = {static_cast<int>(luma.width), static_cast<int>(luma.height)};
    luma_depth_ = luma.depth;
}

ModelRun::~ModelRun() {
    if (log_ != nullptr) {
        std::fclose(log_);
    }
}

void ModelRun::open_log(const FrameOptions& o) {
    if (o.log.empty()) {
        return;
    }
    log_path_ = o.log;
    log_ = std::fopen(o.log.c_str(), "a");
    if (log_ == nullptr) {
        throw Cannot(o.log + " cannot be written: " + std::strerror(errno));
    }
    log_add_fp(log_, o.log_level);
    cmodel_set_log(model(), to_logger, nullptr);
}

void ModelRun::finish_log() {
    FILE* const log = log_;
    log_ = nullptr;
    if (log == nullptr) {
        return;
    }
    const bool failed = std::ferror(log) != 0;
    if (std::fclose(log) != 0 || failed) {
        throw Cannot(log_path_ + " could not be written whole");
    }
}

void ModelRun::take_registers(const FrameOptions& o) {
    if (!o.ini.empty()) {
        const int findings = cmodel_load_ini(model(), o.ini.c_str(), o.instance.c_str());
        require(findings);
        if (findings > 0) {
            std::fprintf(stderr, "eetool: %s: %d finding%s; the first, at line %s\n", o.ini.c_str(), findings,
                         findings == 1 ? "" : "s", cmodel_finding(model(), 0));
        }
    }
    if (o.ini.empty() && !o.image.at("photo").empty()) {
        require(cmodel_load_ini_text(model(), kMildSetting.data(), kMildSetting.size(), nullptr));
        std::fprintf(stderr, "eetool: without --ini the setting is settings/mild.ini\n");
    }
    for (const std::string& assignment : o.set) {
        set_register(model(), assignment);
    }
    if (pipeline_ != "pre_ee") {
        return;
    }
    EE_REG_HW set;
    ee_reg_hw_init(&set, nullptr);
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        set.slot[slot].value = value(cmodel_register(slot)->key);
    }
    constexpr size_t kMostNamed = 6;
    for (const std::vector<int>& slots : cm::find_no_effect(set)) {
        std::string list;
        for (size_t i = 0; i < slots.size() && i < kMostNamed; ++i) {
            list += std::string(i == 0 ? "" : ", ") + cmodel_register(slots[i])->key + " = " +
                    std::to_string(set.slot[slots[i]].value);
        }
        const size_t more = slots.size() - std::min(slots.size(), kMostNamed);
        list += more > 0 ? " and " + std::to_string(more) + " more" : "";
        std::fprintf(stderr, "eetool: this setting changes no picture: %s\n", list.c_str());
    }
}

int32_t ModelRun::value(const char* key) const {
    int32_t v = 0;
    cmodel_get(model(), key, &v);
    return v;
}

const InputImage* ModelRun::find_image(const char* name) const {
    const auto found =
        std::find_if(images_.begin(), images_.end(), [&](const Input& input) { return input->name == name; });
    return found == images_.end() ? nullptr : found->get();
}

std::unique_ptr<cmodel, DeleteModel> ModelRun::another() const {
    cmodel* made = nullptr;
    if (cmodel_new(pipeline_.c_str(), &made) < 0) {
        throw Cannot("no memory for a model");
    }
    std::unique_ptr<cmodel, DeleteModel> model(made);
    cmodel_copy_registers(made, model_.get());
    bind_inputs(made);
    return model;
}

// A photograph's luma is its fused luma, too, unless there is another.
void ModelRun::bind_inputs(cmodel* model) const {
    if (photo_) {
        bind_image(model, image("y"), "yfusion");
    }
    for (const Input& input : images_) {
        bind_image(model, *input, input->name.c_str());
    }
}

std::vector<std::string> register_lines(const std::string& keys,
                                        const std::function<int32_t(const char*)>& value) {
    std::vector<std::string> lines;
    std::istringstream in(keys);
    for (std::string key; in >> key;) {
        const int index = cmodel_find_register(key.c_str());
        if (index < 0) {
            continue;
        }
        const cmodel_register_info& info = *cmodel_register(index);
        const std::string number = std::to_string(value(info.key));
        const bool grouped = std::string(info.group) != "single";
        if (grouped && info.place > 0 && !lines.empty()) {
            const bool starts = std::string(info.group) == "curve" && (info.place == 4 || info.place == 8);
            lines.back() += (starts ? (info.place == 4 ? "; out " : "; slope ") : " ") + number;
        } else if (grouped) {
            const size_t end = key.rfind("_lut_") + 4;
            const bool curve = std::string(info.group) == "curve";
            lines.push_back(key.substr(0, end).append(curve ? " = in " : " = ").append(number));
        } else {
            lines.push_back(key);
            lines.back().append(" = ").append(number);
        }
    }
    return lines;
}

}  // namespace eetool
