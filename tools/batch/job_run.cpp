#include "job_run.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "whole_file.h"

namespace eetool {
namespace {

constexpr SampleType kMachineType{1, false, std::endian::native == std::endian::big};

void require(int result, const cmodel* model) {
    if (result < 0) {
        throw Cannot(cmodel_error(model));
    }
}

// The stamp of a file, which changes when it does; "absent" for none.
std::string stamp_of(const std::string& path) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        return "absent";
    }
    return std::to_string(info.st_size) + " " + std::to_string(info.st_mtim.tv_sec) + "." +
           std::to_string(info.st_mtim.tv_nsec);
}

void swap_pairs(uint8_t* bytes, size_t samples) {
    for (size_t i = 0; i < 2 * samples; i += 2) {
        std::swap(bytes[i], bytes[i + 1]);
    }
}

void make_directory_of(const std::string& path) {
    const std::filesystem::path directory = std::filesystem::path(path).parent_path();
    std::error_code error;
    if (!directory.empty() && !std::filesystem::is_directory(directory, error)) {
        std::filesystem::create_directories(directory, error);
        if (error) {
            throw Cannot(directory.string() + " cannot be made: " + error.message());
        }
    }
}

}  // namespace

// ---- Inputs ----

void FrameInputs::add(const char* name, const cmodel_plane& plane) {
    const auto same = std::find_if(planes_.begin(), planes_.end(),
                                   [&](const auto& p) { return std::strcmp(p.first, name) == 0; });
    if (same != planes_.end()) {
        same->second = plane;  // what a job names takes the place of what its clip has
    } else {
        planes_.emplace_back(name, plane);
    }
}

void FrameInputs::take_clip_frame(const ClipFormat& format) {
    planes_.clear();
    clip_planes_.set(format, clip_bytes_.data());
    add("y", clip_planes_.y);
    add("cb", clip_planes_.cb);
    add("cr", clip_planes_.cr);
    add("yfusion", clip_planes_.yfusion);
    size_ = {format.width, format.height};
    luma_depth_ = 8;
}

void FrameInputs::read(const Job& job) {
    planes_.clear();
    if (!job.clip.empty()) {
        const bool same_raw = clip_ != nullptr && clip_->raw().has_value() == job.raw.has_value() &&
                              (!job.raw || (clip_->raw()->name == job.raw->name &&
                                            clip_->raw()->format.width == job.raw->format.width &&
                                            clip_->raw()->format.height == job.raw->format.height &&
                                            clip_->raw()->format.depth == job.raw->format.depth));
        if (!same_raw || clip_->path() != job.clip) {
            clip_.reset();
            clip_ = std::make_unique<ClipFile>(job.clip, job.raw);
        }
        clip_->read(job.frame, clip_bytes_);
        try {
            take_clip_frame(clip_->format());
        } catch (const Cannot& e) {
            throw Cannot(job.clip + ": frame " + std::to_string(job.frame) + " " + e.what());
        }
    }
    for (const auto& [name, path] : job.image) {
        if (name == "photo") {
            read_photo(path);
        }
    }
    size_t next = 0;
    for (const auto& [name, path] : job.image) {
        if (name != "photo") {
            read_image(name, path, images_[next++ % kImages]);
        }
    }
}

// The planes are those of `eetool run --photo`; fused luma is luma itself.
void FrameInputs::read_photo(const std::string& path) try {
    photo_ = pictures::planes_of(pictures::read_picture(path), path);
    const auto plane = [&](const pictures::Memory& samples, int width) {
        return cmodel_plane{samples.get(), CMODEL_U8, width, photo_.height, width, 1, 8};
    };
    add("y", plane(photo_.y, photo_.width));
    add("cb", plane(photo_.cb, photo_.chroma_width));
    add("cr", plane(photo_.cr, photo_.chroma_width));
    add("yfusion", plane(photo_.y, photo_.width));
    size_ = {photo_.width, photo_.height};
    luma_depth_ = 8;
} catch (const pictures::Error& e) {
    throw Cannot(e.what());
}

void FrameInputs::read_image(const std::string& name, const std::string& path, Image& image) {
    const bool colour = name == "rgb";
    cm::PackedImage file;
    const std::string wrong =
        cm::read_whole_pnm(path, colour ? cm::PnmKind::kColour : cm::PnmKind::kGrey, file, image.bytes);
    if (!wrong.empty()) {
        throw Cannot(wrong);
    }
    // One and two bytes stay where they are, in the machine's order.
    int bytes = file.sample_bytes, type = bytes == 1 ? CMODEL_U8 : CMODEL_U16;
    uint8_t* data = file.bytes.get();
    if (bytes == 2 && std::endian::native == std::endian::little) {
        swap_pairs(data, file.samples());
    } else if (bytes != 1) {
        if (colour) {
            throw Cannot(path + " has " + std::to_string(file.depth) + " bits a sample; colours have 8");
        }
        image.wide.resize(file.samples());
        for (uint32_t y = 0; y < file.height; ++y) {
            file.read_row(y, 0, 0, file.width, image.wide.data() + size_t{y} * file.width);
        }
        data = reinterpret_cast<uint8_t*>(image.wide.data());
        bytes = 4;
        type = CMODEL_S32;
    }
    const ptrdiff_t step = ptrdiff_t{bytes} * static_cast<ptrdiff_t>(file.channels);
    static constexpr const char* kColours[] = {"red", "green", "blue"};
    static constexpr const char* kNames[] = {"y", "cb", "cr", "ynr", "mmap", "yfusion"};
    const auto* const known =
        std::find_if(std::begin(kNames), std::end(kNames), [&](const char* n) { return name == n; });
    for (uint32_t c = 0; c < file.channels; ++c) {
        add(colour ? kColours[c] : *known,
            {data + static_cast<ptrdiff_t>(c) * bytes, type, static_cast<int>(file.width),
             static_cast<int>(file.height), step * static_cast<ptrdiff_t>(file.width), step, file.depth});
    }
    if (name == "y" || colour) {
        size_ = {static_cast<int>(file.width), static_cast<int>(file.height)};
        luma_depth_ = file.depth;
    }
}

// ---- Registers ----

const cmodel* SettingCache::file_registers(const Job& job, const std::string& name) {
    const auto known = files_.find(name);
    if (known != files_.end()) {
        return known->second.get();
    }
    cmodel* made = nullptr;
    if (cmodel_new("pre_ee", &made) < 0) {
        throw Cannot("no memory for a model");
    }
    Model model(made);
    const int findings = cmodel_load_ini(made, job.ini.c_str(), job.instance.c_str());
    require(findings, made);
    if (findings > 0) {
        warn_(job.ini + ": " + std::to_string(findings) + (findings == 1 ? " finding" : " findings") +
              "; the first, at line " + cmodel_finding(made, 0));
    }
    if (files_.size() >= kMostFiles) {
        files_.clear();
    }
    return files_.emplace(name, std::move(model)).first->second.get();
}

cmodel* SettingCache::model_for(const Job& job) {
    Ready& ready = ready_[job.pipeline];
    if (ready.model == nullptr) {
        cmodel* made = nullptr;
        if (cmodel_new(job.pipeline.c_str(), &made) < 0) {
            throw Cannot("no memory for a model");
        }
        ready.model.reset(made);
    }
    cmodel* const model = ready.model.get();
    const std::string file = job.ini.empty() ? "" : job.ini + "\n" + job.instance + "\n" + stamp_of(job.ini);
    std::string setting = file;
    for (const auto& [key, value] : job.set) {
        setting.append("\n").append(key).append("=").append(std::to_string(value));
    }
    if (setting == ready.setting && !setting.empty()) {
        return model;
    }
    ready.setting = "";
    require(job.ini.empty() ? cmodel_reset(model) : cmodel_copy_registers(model, file_registers(job, file)),
            model);
    for (const auto& [key, value] : job.set) {
        require(cmodel_set(model, key.c_str(), value), model);
    }
    ready.setting = std::move(setting);
    return model;
}

// ---- Outputs ----

SampleType FrameOutputs::type() const {
    return {depth_ > 8 ? 2 : 1, false, kMachineType.big_endian};
}

void FrameOutputs::run(cmodel* model, const Job& job, const FrameInputs& inputs) {
    const auto value = [&](const char* key) {
        int32_t v = 0;
        cmodel_get(model, key, &v);
        return v;
    };
    require(cmodel_unbind(model), model);
    for (const auto& [name, plane] : inputs.planes()) {
        if (cmodel_bind_input(model, name, &plane) < 0) {
            throw Cannot(std::string(name) + ": " + cmodel_error(model));
        }
    }
    size_ = inputs.size();
    // The output has a byte a sample, but for deeper luma that goes out as it is.
    depth_ = value("reg_ee_enable") != 1 && job.pipeline == "pre_ee" ? inputs.luma_depth() : 8;
    const SampleType out = type();
    samples_.resize(size_.samples() * static_cast<size_t>(out.bytes));
    const cmodel_plane plane{samples_.data(), out.bytes == 1 ? CMODEL_U8 : CMODEL_U16, size_.width,
                             size_.height,    ptrdiff_t{out.bytes} * size_.width,      out.bytes,
                             depth_};
    require(cmodel_bind_output(model, &plane), model);
    stages_.resize(job.stages.size());
    for (size_t i = 0; i < stages_.size(); ++i) {
        const int index = cmodel_find_stage(job.pipeline.c_str(), job.stages[i].c_str());
        if (index < 0) {
            throw Cannot("pipeline " + job.pipeline + " has no stage " + job.stages[i]);
        }
        Stage& stage = stages_[i];
        stage.info = cmodel_stage(job.pipeline.c_str(), index);
        const SampleType stage_type = type_of(*stage.info);
        stage.samples.resize(size_.samples() * static_cast<size_t>(stage_type.bytes));
        const cmodel_plane bound{stage.samples.data(),
                                 model_type_of(*stage.info),
                                 size_.width,
                                 size_.height,
                                 ptrdiff_t{stage_type.bytes} * size_.width,
                                 stage_type.bytes,
                                 stage.info->depth};
        require(cmodel_bind_stage(model, stage.info->name, &bound), model);
    }
    require(cmodel_run(model), model);
}

std::string FrameOutputs::sha256() const {
    return sha256_of(samples_.data(), size_.samples(), type());
}

std::vector<std::pair<std::string, std::string>> FrameOutputs::stage_hashes() const {
    std::vector<std::pair<std::string, std::string>> hashes;
    for (const Stage& stage : stages_) {
        hashes.emplace_back(stage.info->name,
                            sha256_of(stage.samples.data(), size_.samples(), type_of(*stage.info)));
    }
    return hashes;
}

void FrameOutputs::write(const Job& job) const {
    make_directory_of(job.out);
    const std::string stem = std::filesystem::path(job.out).replace_extension().string();
    for (const Stage& stage : stages_) {
        const std::string path = stem + "." + stage.info->name + ".npy";
        write_stage(path + ".part", Format::kNpy, *stage.info, size_, stage.samples.data());
        if (std::rename((path + ".part").c_str(), path.c_str()) != 0) {
            throw Cannot(path + " cannot be written: " + std::strerror(errno));
        }
    }
    const std::string header =
        cm::pgm_header(static_cast<uint32_t>(size_.width), static_cast<uint32_t>(size_.height), depth_);
    WholeFile out(job.out);
    out.write(header);
    if (type().bytes == 2 && !kMachineType.big_endian) {
        std::vector<uint8_t> turned = samples_;
        swap_pairs(turned.data(), size_.samples());
        out.write(turned.data(), turned.size());
    } else {
        out.write(samples_.data(), samples_.size());
    }
    out.finish();
}

uint64_t digest_of_inputs(const Job& job) {
    std::string text;
    for (const std::string& path : job.inputs()) {
        text += path + "\n" + stamp_of(path) + "\n";
    }
    return digest_of(text);
}

}  // namespace eetool
