// The model object from the inside.
#ifndef CMODEL_MODEL_H
#define CMODEL_MODEL_H

#include <optional>
#include <string>
#include <vector>

#include "cmodel.h"
#include "plane_array.h"
#include "row_pipeline.h"

// Inputs by their names: the planes of the pipelines, then the colours.
inline constexpr int kRed = cm::kInputs;
inline constexpr int kGreen = cm::kInputs + 1;
inline constexpr int kBlue = cm::kInputs + 2;
inline constexpr int kBindings = cm::kInputs + 3;

class RowFrame;

struct cmodel {
    ~cmodel();

    const cm::PipelineRow* pipeline = nullptr;
    cm::Registers registers;

    std::optional<cmodel_plane> input[kBindings];
    std::optional<cmodel_plane> output;
    std::optional<cmodel_plane> stage[cm::kPlanes];

    // Configured when a run needs it; by how many pixels were run since the registers changed.
    cm::ConfiguredPipeline configured;
    size_t pixels = 0;
    cm::Memory memory;

    // Frames that come row by row, the newest first; and what they keep.
    RowFrame* frames = nullptr;
    int frames_begun = 0;
    bool keeps[cm::kPlanes] = {};  // stages by plane
    bool keeps_output = true;

    std::vector<std::string> findings;
    void (*log)(void* user, int level, const char* text) = nullptr;
    void* log_user = nullptr;
    char error[512] = "";

    // Keeps the text of a failure and returns `status`.
    int fail(int status, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
};

// The input, or the stage of the model's pipeline, by that name; -1 for none.
int find_input(const char* name);
int find_stage(const cm::PipelineRow& pipeline, const char* name);
const char* name_of_input(int input);

#endif
