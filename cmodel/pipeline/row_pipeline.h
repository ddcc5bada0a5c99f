// A pipeline on its way through a frame, row by row, as the hardware does it.
//
// For each output row every block makes its next row. A block that others look down from runs ahead by as
// many rows as they look; of each plane only the rows that somebody still looks at are held, so intermediates
// stay in the cache. A plane is kept whole by whoever wants it: a sink gets its rows as they are made.
#ifndef CMODEL_ROW_PIPELINE_H
#define CMODEL_ROW_PIPELINE_H

#include "pipelines.h"

namespace cm {

inline constexpr int kOutputDepth = 8;

// The blocks of a pipeline, configured for frames of one kind.
class ConfiguredPipeline {
  public:
    // `pixels` says how much is to come; tables that pay for large frames only are made by it. False: no
    // memory. Once it was done, the same again is free.
    bool configure(const PipelineRow& pipeline, const Registers& registers, int luma_depth, int fusion_depth,
                   size_t pixels);

    Variant variant() const { return variant_; }
    int steps() const { return steps_; }
    const Step& step(int i) const { return *step_[i]; }
    const void* config(int i) const { return config_[i]; }

    // Null: the sharpened luma goes out.
    const DebugView* view() const { return view_; }
    int view_shift() const { return view_shift_; }
    // The plane that the output shows.
    Plane output() const { return view_ != nullptr ? view_->plane : Plane::sharpened; }

    // Whether 16-bit rows hold every sample, given fused luma up to kNarrowFusionMax and other inputs of
    // 8 bits.
    bool fits_narrow() const { return fits_narrow_; }

  private:
    const PipelineRow* pipeline_ = nullptr;
    Registers registers_;
    int luma_depth_ = 0, fusion_depth_ = 0;
    size_t pixels_ = 0;

    Memory memory_;
    Variant variant_ = kPlain;
    int steps_ = 0;
    const Step* step_[kMostSteps];
    void* config_[kMostSteps];
    const DebugView* view_ = nullptr;
    int view_shift_ = 0;
    bool fits_narrow_ = false;
};

// Where a run's rows come from and go to; null for what is not there and what nobody wants.
struct RunPlanes {
    const RowSource* input[kInputs] = {};
    RowSink* wanted[kPlanes] = {};  // by plane, inputs too
    RowSink* output = nullptr;
};

// What is looked at for an area of a frame: as much around it as the blocks reach, from an even column on.
Area region_around(const Area& area, int width, int height, Variant variant);

// Whether the inputs allow 16-bit rows, by their values in a region. Looks through those that their type does
// not bound.
bool fits_narrow(const ConfiguredPipeline& pipeline, const RunPlanes& planes, const Area& region);

template <typename T>
class RowPipeline {
  public:
    // Runs the part `area` of a frame of width x height. The pipeline and the sources stay the caller's.
    // Memory that cannot be had shows in memory.failed(); do not run then.
    RowPipeline(const ConfiguredPipeline& pipeline, const RunPlanes& planes, int width, int height,
                const Area& area, Memory& memory);

    // All rows.
    void run() {
        while (next_ < last_) {
            advance();
        }
    }

    // A row of each input, and all that can be made then. The output's row y comes with step y; the first
    // step is -look_ahead(), so that everything goes a row at a time from the start.
    void advance();
    int next_advance() const { return next_; }
    // Rows of luma and fused luma below the output's row that it is made of.
    int look_ahead() const { return held_[index_of(Plane::y)].lead; }

    // What a step counted for its report.
    int64_t events(int step) const { return step_[step].events; }

  private:
    // The rows of a plane that are held; row y, of the region, at index y & mask.
    struct Held {
        T* samples = nullptr;
        size_t pitch = 0;
        int mask = 0;  // lines - 1; a power of two of them, which spares a division a row
        int width = 0;
        int lead = -1;    // rows ahead of the output; -1: nobody reads the plane
        int history = 0;  // rows behind the output that are still looked at; below 0 if none is
        int next = 0;     // row to be made
        bool padded = false;
        bool half_width = false;

        T* line(int y) const { return samples + pitch * static_cast<size_t>(y & mask) + kMargin; }
    };
    struct StepState {
        BlockRows<T> rows;
        const T* window[kMostInputs][2 * kMaxReach + 1];
        int lead;
        int next;
        int64_t events;
    };
    static constexpr size_t kMargin = 64 / sizeof(T);

    Held& held(Plane plane) { return held_[index_of(plane)]; }
    void look_at(Plane plane, int lead, const BlockInput& how);
    void plan();
    void take_rows(Memory& memory);
    void finish_row(Plane plane, int y);
    void read_inputs(int y);
    void run_step(int step, int y);
    void put_output(int y);

    const ConfiguredPipeline& pipeline_;
    RunPlanes planes_;
    Area region_;      // the area and what is looked at around it
    Area area_;        // in the region
    int next_, last_;  // rows of the region; the next step, the area's end
    Held held_[kPlanes];
    StepState step_[kMostSteps];
    T* view_row_ = nullptr;
};

}  // namespace cm

#endif
