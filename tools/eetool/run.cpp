// eetool run: either pipeline on one frame, with its stages as files and a record of the run.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "model_run.h"

namespace eetool {
namespace {

using Json = nlohmann::ordered_json;

struct Options : FrameOptions {
    std::string out, before_after, stages, format = "npy";
    std::vector<std::string> stage;
};

using Array = std::vector<uint8_t>;

struct Wanted {
    const cmodel_stage_info* info;
    std::string file;
    Array samples;
};

// The stages that are asked for, or all that the setting makes, in the order of the pipeline.
std::vector<Wanted> choose_stages(const Options& o, const ModelRun& run, Format format) {
    for (const std::string& name : o.stage) {
        if (cmodel_find_stage(run.pipeline(), name.c_str()) < 0) {
            throw CLI::ValidationError("--stage", "pipeline " + o.pipeline + " has no stage " + name);
        }
    }
    std::vector<Wanted> wanted;
    std::string left_out;
    for (int i = 0; i < cmodel_stage_count(run.pipeline()); ++i) {
        const cmodel_stage_info* const info = cmodel_stage(run.pipeline(), i);
        const bool named = std::find(o.stage.begin(), o.stage.end(), info->name) != o.stage.end();
        if (o.stage.empty() ? run.making(*info).block == nullptr : !named) {
            continue;
        }
        if (format == Format::kPgm && info->is_signed) {
            left_out += std::string(left_out.empty() ? "" : ", ") + info->name;
            continue;
        }
        char number[16];
        std::snprintf(number, sizeof number, "%02d_", i + 1);
        wanted.push_back({info, std::string(number) + info->name + "." + extension_of(format), {}});
    }
    if (!left_out.empty() && !o.stage.empty()) {
        throw CLI::ValidationError("--format", "PGM has no sign, but " + left_out + " has");
    }
    if (!left_out.empty()) {
        std::fprintf(stderr, "eetool: PGM has no sign; not written: %s\n", left_out.c_str());
    }
    return wanted;
}

// The directory, without the stages of an earlier run: those that its run.json names.
void prepare_directory(const std::string& dir) {
    if (mkdir(dir.c_str(), 0777) != 0 && errno != EEXIST) {
        throw Cannot(dir + " cannot be made: " + std::strerror(errno));
    }
    const std::string record = dir + "/run.json";
    if (access(record.c_str(), F_OK) != 0) {
        return;
    }
    const Json old = Json::parse(read_text(record), nullptr, false);
    const auto stages = old.is_object() ? old.find("stages") : old.end();
    if (stages == old.end() || !stages->is_object()) {
        throw Cannot(record + " is not of a run; it stays as it is");
    }
    for (const auto& [name, stage] : stages->items()) {
        const Json file = stage.is_object() ? stage.value("file", Json()) : Json();
        if (file.is_string() && file.get<std::string>().find('/') == std::string::npos &&
            format_of(file.get<std::string>())) {
            unlink((dir + "/" + file.get<std::string>()).c_str());
        }
    }
    unlink(record.c_str());
}

Json record_of(const Options& o, const ModelRun& run, const std::vector<Wanted>& stages,
               const std::string& output_sha) {
    const std::string version = cmodel_version();
    const size_t blank = version.find(' '), commit = version.find("commit ") + 7;
    Json record = {{"version", version.substr(0, blank)},
                   {"commit", version.substr(commit, version.find(')') - commit)},
                   {"pipeline", run.pipeline()},
                   {"width", run.size().width},
                   {"height", run.size().height}};
    std::vector<std::string> command = {"eetool", "run"};
    const std::vector<std::string> words = words_of(o);
    command.insert(command.end(), words.begin(), words.end());
    const auto add = [&](const char* option, const std::string& value) {
        if (!value.empty()) {
            command.insert(command.end(), {option, value});
        }
    };
    std::string names;
    for (const std::string& name : o.stage) {
        names += (names.empty() ? "" : ",") + name;
    }
    add("--out", o.out);
    add("--before-after", o.before_after);
    add("--stages", o.stages);
    add("--stage", names);
    add("--format", o.format == "npy" ? "" : o.format);
    record["command"] = command;
    for (int i = 0; i < cmodel_register_count(); ++i) {
        const char* const key = cmodel_register(i)->key;
        record["registers"][key] = run.value(key);
    }
    for (const auto& image : run.images()) {
        record["inputs"][image->name] = {{"file", image->path},
                                         {"width", image->file.width},
                                         {"height", image->file.height},
                                         {"depth", image->file.depth},
                                         {"sha256", image->sha256()}};
    }
    record["stages"] = Json::object();
    for (const Wanted& stage : stages) {
        const SampleType type = type_of(*stage.info);
        record["stages"][stage.info->name] = {
            {"file", stage.file},
            {"type", type.name()},
            {"unit", stage.info->unit},
            {"sha256", sha256_of(stage.samples.data(), run.size().samples(), type)}};
    }
    if (!o.out.empty()) {
        record["output"]["file"] = o.out;
    }
    record["output"]["sha256"] = output_sha;
    return record;
}

// Whether the output is a view of a stage.
bool is_view(const ModelRun& run) {
    const int mode = run.value("reg_ee_debug_mode");
    for (int i = 0; mode != 0 && i < cmodel_stage_count(run.pipeline()); ++i) {
        if (cmodel_stage(run.pipeline(), i)->view_mode == mode) {
            return run.value("reg_ee_enable") == 1;
        }
    }
    return false;
}

// The photograph with its luma sharpened, or the view in its place, and beside what it was.
void write_photo(const Options& o, ModelRun& run, const uint8_t* output) {
    pictures::Picture& photo = *run.photo();
    const std::string& path = o.image.at("photo");
    std::optional<pictures::Picture> before;
    if (!o.before_after.empty()) {
        before = pictures::copy_of(photo, path);
    }
    if (is_view(run)) {
        pictures::set_grey(photo, output);
    } else {
        pictures::change_luma(photo, static_cast<const uint8_t*>(run.image("y").data()), output);
    }
    // Everything is encoded before anything is written.
    std::vector<uint8_t> both;
    if (before) {
        both =
            pictures::encode_picture(o.before_after, pictures::side_by_side(*before, photo, o.before_after));
    }
    if (!o.out.empty()) {
        pictures::write_picture(o.out, photo);
    }
    if (before) {
        pictures::write_file(o.before_after, both.data(), both.size());
    }
}

// Luma, in the machine's order.
void write_luma(const std::string& path, Size size, int depth, uint8_t* output) {
    const SampleType machine = type_of(*cmodel_stage("pre_ee", 0));
    const bool wide = depth > 8;
    if (pictures::names_compressed_picture(path)) {
        pictures::Picture luma = pictures::new_picture(path, size.width, size.height, 1, (1 << depth) - 1);
        std::memcpy(luma.memory.get(), output, luma.bytes());
        pictures::write_picture(path, luma);
        return;
    }
    for (size_t i = 0; wide && !machine.big_endian && i < 2 * size.samples(); i += 2) {
        std::swap(output[i], output[i + 1]);
    }
    cm::write_pgm(path.c_str(), static_cast<uint32_t>(size.width), static_cast<uint32_t>(size.height), depth,
                  output);
}

int run(const Options& o) {
    if (o.out.empty() && o.before_after.empty() && o.stages.empty()) {
        throw CLI::RequiredError("--out, --before-after or --stages");
    }
    const Format format = *format_of("." + o.format);
    ModelRun run(o);
    const Size size = run.size();
    for (const std::string* const path : {&o.out, &o.before_after}) {
        if (path->empty()) {
            continue;
        }
        if (run.photo() != nullptr) {
            pictures::require_format(*path, run.photo()->channels, run.photo()->max);
        }
        if (!can_write(*path)) {
            return report_cannot("written", *path);
        }
    }
    std::vector<Wanted> stages;
    if (!o.stages.empty()) {
        stages = choose_stages(o, run, format);
    }
    for (Wanted& stage : stages) {
        const SampleType type = type_of(*stage.info);
        stage.samples.resize(size.samples() * static_cast<size_t>(type.bytes));
        const cmodel_plane plane{stage.samples.data(), model_type_of(*stage.info),         size.width,
                                 size.height,          ptrdiff_t{type.bytes} * size.width, type.bytes,
                                 stage.info->depth};
        run.require(cmodel_bind_stage(run.model(), stage.info->name, &plane));
    }
    // The output has a byte a sample, but for deeper luma that goes out as it is.
    const bool is_copy = run.value("reg_ee_enable") != 1 && o.pipeline == "pre_ee";
    const int out_depth = is_copy ? run.luma_depth() : 8;
    const SampleType out_type{out_depth > 8 ? 2 : 1, false, type_of(*cmodel_stage("pre_ee", 0)).big_endian};
    const pictures::Memory memory = pictures::allocate(size.samples() * static_cast<size_t>(out_type.bytes));
    if (memory == nullptr) {
        throw Cannot("no memory for the output");
    }
    uint8_t* const output = memory.get();
    const cmodel_plane plane{output,      out_type.bytes == 1 ? CMODEL_U8 : CMODEL_U16, size.width,
                             size.height, ptrdiff_t{out_type.bytes} * size.width,       out_type.bytes,
                             out_depth};
    run.require(cmodel_bind_output(run.model(), &plane));
    run.require(cmodel_run(run.model()));
    run.finish_log();
    // Before the output's bytes are swapped for its file.
    const std::string output_sha = o.stages.empty() ? "" : sha256_of(output, size.samples(), out_type);

    if (!o.stages.empty()) {
        prepare_directory(o.stages);
    }
    for (const Wanted& stage : stages) {
        write_stage(o.stages + "/" + stage.file, format, *stage.info, size, stage.samples.data());
    }
    if (run.photo() != nullptr) {
        write_photo(o, run, output);
    } else if (!o.out.empty()) {
        write_luma(o.out, size, out_depth, output);
    }
    // Last, so that a run that failed half-way has none.
    if (!o.stages.empty()) {
        const Json record = record_of(o, run, stages, output_sha);
        write_text(o.stages + "/run.json", record.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
    }
    return kOk;
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    declare_frame_options(app, *o);
    app.add_option("--out", o->out,
                   "the sharpened luma (P5, or by its name PNG, JPEG or TIFF); with --photo the photograph, "
                   "in the format of its name")
        ->option_text("FILE");
    app.add_option("--before-after", o->before_after, "the photograph and the sharpened one side by side")
        ->option_text("FILE")
        ->needs("--photo");
    CLI::Option* const stages =
        app.add_option("--stages", o->stages, "write every stage, and run.json, to this directory")
            ->option_text("DIR");
    app.add_option("--stage", o->stage, "write only these stages")
        ->option_text("NAME,...")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->needs(stages);
    app.add_option("--format", o->format, "npy, raw (little-endian), hex ($readmemh) or pgm (without sign)")
        ->option_text("NAME [npy]")
        ->check(CLI::IsMember({"npy", "raw", "hex", "pgm"}))
        ->needs(stages);
    return [o] { return run(*o); };
}

}  // namespace

const Command kRun = {
    "run", "Run either pipeline on one frame, and write its stages",
    "  eetool pattern star --sigma 2 --y y.pgm --cb cb.pgm --cr cr.pgm --rgb photo.ppm\n"
    "  eetool run --photo photo.ppm --out sharp.png --before-after both.png\n"
    "  eetool run --set reg_ee_texture_mode=0 --y y.pgm --cb cb.pgm --cr cr.pgm --out sharp.pgm\n"
    "  eetool run --pipeline classic --y y.pgm --cb cb.pgm --cr cr.pgm --stages stages\n",
    "A stage NAME is DIR/NN_NAME.npy, in uint8, int16 or int32, whichever holds the stage over all "
    "settings;\n"
    "DIR/run.json has the registers, the sizes and the SHA-256 of all samples (big-endian). Stages that an\n"
    "earlier run.json of the directory names are removed first.\n",
    declare};

}  // namespace eetool
