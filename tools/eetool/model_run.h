// A model object over image files: the options that name them, and what comes of them.
#ifndef CMODEL_EETOOL_MODEL_RUN_H
#define CMODEL_EETOOL_MODEL_RUN_H

#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cmodel.h"
#include "commands.h"
#include "plane_files.h"
#include "shell_word.h"
#include "stage_files.h"

namespace eetool {

struct FrameOptions {
    std::string pipeline = "pre_ee", ini, instance = "NULL";
    std::vector<std::string> set;
    std::map<std::string, std::string> image;  // paths by input, "rgb" and "photo" among them; "" for none
    bool wait = false;
    std::string log;
    int log_level = LOG_INFO;
};

void declare_frame_options(CLI::App& app, FrameOptions& options);

// The options as words of a command line.
std::vector<std::string> words_of(const FrameOptions& options);

struct DeleteModel {
    void operator()(cmodel* model) const { cmodel_free(model); }
};

// A model with its registers and its inputs bound, ready to run. Everything throws Cannot, or a
// CLI::ParseError for options that cannot be. Standard error gets a line where the setting changes no
// picture, and where a photograph comes without a register file: then the setting is mild.ini.
class ModelRun {
  public:
    explicit ModelRun(const FrameOptions& options);
    ModelRun(const ModelRun&) = delete;
    ModelRun& operator=(const ModelRun&) = delete;
    ~ModelRun();

    cmodel* model() const { return model_.get(); }
    const char* pipeline() const { return pipeline_.c_str(); }
    Size size() const { return size_; }
    int luma_depth() const { return luma_depth_; }
    const std::vector<Input>& images() const { return images_; }
    const InputImage* find_image(const char* name) const;  // null for none
    const InputImage& image(const char* name) const { return *find_image(name); }
    pictures::Picture* photo() { return photo_ ? &*photo_ : nullptr; }
    int32_t value(const char* key) const;
    // One more model with the same registers and inputs, for another thread.
    std::unique_ptr<cmodel, DeleteModel> another() const;

    // How the setting makes a stage; its block is null where it does not.
    const cmodel_making& making(const cmodel_stage_info& stage) const {
        return stage.making[value("reg_ee_texture_mode")];
    }

    // Throws Cannot with the model's text for a negative result.
    void require(int result) const {
        if (result < 0) {
            throw Cannot(cmodel_error(model_.get()));
        }
    }
    // Closes the log; a run whose log is not whole has no output.
    void finish_log();

  private:
    void open_log(const FrameOptions& options);
    void take_registers(const FrameOptions& options);
    void bind_inputs(cmodel* model) const;

    std::string pipeline_;
    std::unique_ptr<cmodel, DeleteModel> model_;
    std::vector<Input> images_;
    std::optional<pictures::Picture> photo_;
    Size size_;
    int luma_depth_ = 8;
    FILE* log_ = nullptr;
    std::string log_path_;
};

// The registers of a list of keys, as lines "KEY = VALUE"; of a curve or table one line with its values in
// order. `value` gives each.
std::vector<std::string> register_lines(const std::string& keys,
                                        const std::function<int32_t(const char*)>& value);

}  // namespace eetool

#endif
