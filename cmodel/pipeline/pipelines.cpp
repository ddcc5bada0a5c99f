#include "pipelines.h"

#include <algorithm>
#include <iterator>

#include "ee_blocks.h"
#include "pre_ee_blocks.h"

namespace cm {
namespace {

constexpr int kPreEeBoth = kPlain | kTexture;
constexpr int kAll = kPlain | kTexture | kClassic;

using enum Plane;

// clang-format off
const Step kSteps[] = {
    {kAll,       &kDupCbCr,          {cb, cr},                                      {cb_full, cr_full},                               ""},
    {kClassic,   &kPreProcess,       {y},                                           {clean_y},                                        ""},
    {kAll,       &kCal5x5MinMax,     {luma},                                        {local_max, local_min},                           ""},
    {kAll,       &kCalcDeltaRef,     {local_max, local_min},                        {local_range},                                    ""},
    {kClassic,   &kCalcDelta,        {clean_y},                                     {mf_delta, hf_delta},                             ""},
    {kAll,       &kGenLpf3x3,        {luma, cb_full, cr_full},                      {lpf_y, lpf_cb, lpf_cr},                          ""},
    {kTexture,   &kTextureModeOn,    {},                                            {},                                               ""},
    {kTexture,   &kPreCalcDelta,     {yfusion},    {yfusion_mf, yfusion_hf, yfusion_mf_over, yfusion_hf_over},                 "Yfusion"},
    {kTexture,   &kPreCalcDelta,     {y},                                           {y_mf, y_hf, y_mf_over, y_hf_over},            "Yin"},
    {kTexture,   &kFlatDet,          {y, yfusion, y_mf, yfusion_mf, y_hf, yfusion_hf}, {mf_delta, mf_texture, hf_delta, hf_texture}, ""},
    {kPlain,     &kPreCalcDelta,     {y},                                           {mf_delta, hf_delta, y_mf_over, y_hf_over},    "Yin"},
    {kPlain,     &kTextureModeOff,   {},                                            {},                                               ""},
    {kAll,       &kCalcCore,         {luma, lpf_y, mmap},                           {coring_level},                                   ""},
    {kAll,       &kCoring,           {mf_delta, hf_delta, coring_level},            {cored_delta},                                    ""},
    {kAll,       &kCalcDeltaGain,    {local_range},                                 {delta_gain},                                     ""},
    {kAll,       &kLumaAdptGainCal,  {luma, lpf_y},                                 {luma_gain},                                      ""},
    {kAll,       &kChromaGain,       {cb_full, cr_full, lpf_cb, lpf_cr},            {chroma_gain},                                    ""},
    {kAll,       &kMotionGain,       {mmap},                                        {motion_gain},                                    ""},
    {kAll,       &kTotalGain,        {delta_gain, luma_gain, chroma_gain, motion_gain}, {total_gain},                                 ""},
    {kAll,       &kTotalDelta,       {cored_delta, total_gain},                     {total_delta},                                    ""},
    {kPreEeBoth, &kIOShootPro,       {total_delta, luma, local_max, local_min},     {limited_delta},                                  ""},
    {kClassic,   &kIOShoot,          {total_delta, luma, local_max, local_min},     {limited_delta},                                  ""},
    {kAll,       &kSharpenMerge,     {limited_delta, ynr},                          {sharpened},                                      ""},
};
// clang-format on
static_assert(std::size(kSteps) <= kMostSteps);

}  // namespace

Steps all_steps() {
    return {std::begin(kSteps), std::end(kSteps)};
}

const PipelineRow* find_pipeline(std::string_view name) {
    for (const PipelineRow* const pipeline : kPipelines) {
        if (pipeline->name == name) {
            return pipeline;
        }
    }
    return nullptr;
}

Variant variant_of(const PipelineRow& pipeline, const Registers& registers) {
    return &pipeline == &kClassicEe ? kClassic : registers[reg_ee_texture_mode] == 1 ? kTexture : kPlain;
}

const Step* find_writer(Plane plane, Variant variant) {
    for (const Step& step : kSteps) {
        const Plane* const end = step.writes + step.block->outputs;
        if ((step.variants & variant) != 0 && std::find(step.writes, end, plane) != end) {
            return &step;
        }
    }
    return nullptr;
}

int look_ahead_of(Plane plane, Variant variant) {
    const Step* const step = find_writer(plane, variant);
    int rows = 0;
    for (int i = 0; step != nullptr && i < step->block->inputs; ++i) {
        rows = std::max(rows, step->block->in[i].reach + look_ahead_of(step->read(i, variant), variant));
    }
    return rows;
}

}  // namespace cm
