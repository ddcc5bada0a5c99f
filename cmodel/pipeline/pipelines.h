// The pipelines: which block works on which planes, in which order.
#ifndef CMODEL_PIPELINES_H
#define CMODEL_PIPELINES_H

#include <string_view>

#include "block.h"
#include "planes.h"

namespace cm {

// The pipelines that a step belongs to.
enum Variant : uint8_t {
    kPlain = 1,    // pre_ee_hw, texture mode 0
    kTexture = 2,  // pre_ee_hw, texture mode 1
    kClassic = 4   // ee_hw
};

struct Step {
    int variants;
    const Block* block;
    Plane reads[kMostInputs];
    Plane writes[kMostOutputs];
    const char* tag;  // of debug images

    // The planes as a variant has them.
    Plane read(int i, Variant variant) const {
        return reads[i] != Plane::luma ? reads[i] : variant == kClassic ? Plane::clean_y : Plane::y;
    }
};

struct Steps {
    const Step* first;
    const Step* last;
    const Step* begin() const { return first; }
    const Step* end() const { return last; }
};

// Every block of the pipelines; those of a variant are the steps that name it.
Steps all_steps();
inline constexpr int kMostSteps = 24;

struct PipelineRow {
    const char* name;      // as users choose it
    const char* function;  // that runs it on frames, and that registers name as their follower
    const char* meaning;
};

inline constexpr PipelineRow kPreEe{"pre_ee", "pre_ee_hw",
                                    "texture detection in front; what pre_ee_main runs"};
inline constexpr PipelineRow kClassicEe{"classic", "ee_hw", "spike clamp and fixed delta kernels in front"};
inline constexpr const PipelineRow* kPipelines[] = {&kPreEe, &kClassicEe};

// Null for an unknown name.
const PipelineRow* find_pipeline(std::string_view name);

// The variant that a pipeline runs under a setting.
Variant variant_of(const PipelineRow& pipeline, const Registers& registers);

// The step that writes a plane; null for inputs and for planes that the variant does not have.
const Step* find_writer(Plane plane, Variant variant);

// Rows of luma (and fused luma) below row y that row y of a plane is made of.
int look_ahead_of(Plane plane, Variant variant);

}  // namespace cm

#endif
