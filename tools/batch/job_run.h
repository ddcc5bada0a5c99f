// One job at a time on a model of its own: what a thread of a batch has.
#ifndef CMODEL_BATCH_JOB_RUN_H
#define CMODEL_BATCH_JOB_RUN_H

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "clip.h"
#include "cmodel.h"
#include "job.h"
#include "photo_planes.h"
#include "pnm.h"
#include "stage_files.h"

namespace eetool {

struct FreeModel {
    void operator()(cmodel* model) const { cmodel_free(model); }
};
using Model = std::unique_ptr<cmodel, FreeModel>;

// The inputs of a frame as planes. Buffers are used again from frame to frame.
class FrameInputs {
  public:
    // Reads what the job names. Throws Cannot.
    void read(const Job& job);
    // Takes a frame of a clip that lies in clip_bytes().
    void take_clip_frame(const ClipFormat& format);
    std::vector<uint8_t>& clip_bytes() { return clip_bytes_; }

    const std::vector<std::pair<const char*, cmodel_plane>>& planes() const { return planes_; }
    Size size() const { return size_; }
    int luma_depth() const { return luma_depth_; }
    const ClipPlanes& clip_planes() const { return clip_planes_; }

  private:
    static constexpr size_t kImages = 7;
    struct Image {
        std::vector<uint8_t> bytes;
        std::vector<int32_t> wide;  // samples of other than one or two bytes
    };

    void read_photo(const std::string& path);
    void read_image(const std::string& name, const std::string& path, Image& image);
    void add(const char* name, const cmodel_plane& plane);

    std::array<Image, kImages> images_;
    std::vector<uint8_t> clip_bytes_;
    ClipPlanes clip_planes_;
    pictures::PhotoPlanes photo_;
    std::unique_ptr<ClipFile> clip_;  // the one that was read last
    std::vector<std::pair<const char*, cmodel_plane>> planes_;
    Size size_;
    int luma_depth_ = 8;
};

// The registers of jobs, each setting made once and kept while it is used. `warn` gets a line for a register
// file with findings.
class SettingCache {
  public:
    explicit SettingCache(std::function<void(const std::string&)> warn) : warn_(std::move(warn)) {}
    // Gives the model of that pipeline with the job's registers. Throws Cannot.
    cmodel* model_for(const Job& job);

  private:
    struct Ready {
        Model model;
        std::string setting;  // that it has
    };
    static constexpr size_t kMostFiles = 64;

    const cmodel* file_registers(const Job& job, const std::string& name);

    const std::function<void(const std::string&)> warn_;
    std::map<std::string, Ready> ready_;  // by pipeline
    std::map<std::string, Model> files_;  // by path, instance, size and time
};

// What a run makes: the output's samples, and the stages'.
class FrameOutputs {
  public:
    // Runs the model on the planes. Throws Cannot.
    void run(cmodel* model, const Job& job, const FrameInputs& inputs);

    std::string sha256() const;
    std::vector<std::pair<std::string, std::string>> stage_hashes() const;
    // Writes job.out as a P5 file, and the stages beside it as NumPy files, OUT without its extension and
    // ".STAGE.npy"; directories are made. Each takes its name when it is whole. Throws Cannot.
    void write(const Job& job) const;

    const std::vector<uint8_t>& samples() const { return samples_; }
    int depth() const { return depth_; }

  private:
    struct Stage {
        const cmodel_stage_info* info;
        std::vector<uint8_t> samples;
    };
    SampleType type() const;

    Size size_;
    int depth_ = 8;
    std::vector<uint8_t> samples_;
    std::vector<Stage> stages_;
};

// The digest of names, sizes and times of the files that a job reads.
uint64_t digest_of_inputs(const Job& job);

}  // namespace eetool

#endif
