// What the two pipelines have in common: the intermediates, the blocks from local extremes to merge,
// the debug views, and the output. A pipeline feeds it luma and deltas row by row.
//
// Rows flow through the blocks one at a time; a whole plane of an intermediate exists only when a
// report will need it.
#ifndef CMODEL_EE_PIPELINE_H
#define CMODEL_EE_PIPELINE_H

#include <optional>

#include "ee_blocks.h"
#include "line_buffer.h"
#include "log_positions.h"
#include "row_io.h"

namespace cm {

// The planes of a run. All but chroma have one size.
struct EePlanes {
    RowSource luma;
    RowSource cb, cr;  // addressed by reflection against their own size
    RowSource image;   // what is sharpened
    RowSource motion;
    std::optional<RowSource> fusion;  // texture mode 1
};

// Ends the program unless `plane` has the luma's size; the message names both. `position` is that
// of the log record.
void require_luma_size(const RowSource& luma, const RowSource& plane, const char* name,
                       const LogPosition& position);

// Where output rows go.
class RowSink {
  public:
    virtual ~RowSink() = default;
    virtual void put(int y, const int32_t* row) = 0;
};

// Channel 0 of a frame.
class FrameSink : public RowSink {
  public:
    explicit FrameSink(FRAME& frame) : frame_(frame) {}
    void put(int y, const int32_t* row) override {
        write_row(frame_, y, row, static_cast<int>(frame_.width));
    }

  private:
    FRAME& frame_;
};

// Bytes, one a sample; bits above the eighth are dropped as by the file writers.
class ByteSink : public RowSink {
  public:
    ByteSink(uint8_t* bytes, int width) : bytes_(bytes), width_(width) {}
    void put(int y, const int32_t* row) override {
        pack_samples(row, static_cast<size_t>(width_), 1,
                     bytes_ + static_cast<size_t>(y) * static_cast<size_t>(width_));
    }

  private:
    uint8_t* bytes_;
    int width_;
};

// The intermediates that debug views show or reports need, in the order of their making.
enum EePlane {
    kPlaneMax,
    kPlaneMin,
    kPlaneRange,
    kPlaneMf,
    kPlaneHf,
    kPlaneCore,
    kPlaneCored,
    kPlaneDeltaGain,
    kPlaneLumaGain,
    kPlaneChromaGain,
    kPlaneMotionGain,
    kPlaneTotalGain,
    kPlaneTotalDelta,
    kPlaneClamped,
    kPlaneSharpened,
    kPlaneCount
};

// What a value of reg_ee_debug_mode shows in place of the sharpened luma.
struct DebugView {
    int mode;
    EePlane plane;
    int factor;
    int is_signed;
};

// A plane that is kept whole for a report: what its image will show of it, in 16 bits (deltas, which
// saturate far below, and maps), or every sample as it is.
class KeptPlane {
  public:
    KeptPlane(int width, int height);
    void put(int y, const int32_t* row);
    RowSource rows() const { return RowSource(samples_.get(), width_, height_); }

  private:
    int width_;
    int height_;
    AlignedSamples<int16_t> samples_;
};

class KeptFrame {
  public:
    KeptFrame(int width, int height, int depth);
    ~KeptFrame() { CM_DelFRAME(frame_); }
    KeptFrame(const KeptFrame&) = delete;
    KeptFrame& operator=(const KeptFrame&) = delete;

    void put(int y, const int32_t* row) { write_row(*frame_, y, row, static_cast<int>(frame_->width)); }
    const FRAME& frame() const { return *frame_; }

  private:
    FRAME* frame_;
};

enum class ShootVariant { kPro, kClassic };

class EePipeline {
  public:
    // `luma_depth` is that of the luma rows that run_row() gets.
    EePipeline(const EePlanes& planes, int luma_depth, ShootVariant shoot, RowSink& sink);

    int width() const { return width_; }
    int height() const { return height_; }

    // Whether the output is the sharpened luma rather than a debug view.
    static bool shows_sharpened();

    // Runs row y through all blocks. `luma` holds rows y-2 .. y+2; mf and hf are the row's deltas.
    void run_row(int y, const LineBuffer& luma, const int32_t* mf, const int32_t* hf);

    // After the last row: records and images of the blocks, in two parts, since the deltas are made in
    // between.
    void report_range();
    void report_after_deltas();

  private:
    const int32_t* row(EePlane plane) const { return rows_[plane].get(); }
    int32_t* edit(EePlane plane) { return rows_[plane].get(); }
    void keep_row(int y);
    void put_output(int y, const int32_t* mf, const int32_t* hf);

    const EePlanes& planes_;
    RowSink& sink_;
    int width_;
    int height_;
    int luma_depth_;

    CoreConfig core_;
    CoringConfig coring_;
    ByteTable delta_gain_;
    LumaGainConfig luma_gain_;
    ChromaGainConfig chroma_gain_;
    CurveTable motion_gain_;
    int32_t total_gain_;
    ShootConfig shoot_;
    ShootVariant shoot_variant_;
    MergeConfig merge_;
    const DebugView* view_;  // null: the sharpened luma goes out

    AlignedRow rows_[kPlaneCount];
    AlignedRow half_row_;  // chroma as it comes
    LineBuffer cb_, cr_;   // duplicated chroma, one padded row each
    AlignedRow lpf_luma_, lpf_cb_, lpf_cr_;
    AlignedRow motion_row_, image_row_, view_row_;
    int64_t negative_ranges_ = 0;
    // Those that images show, one way or the other.
    std::unique_ptr<KeptPlane> kept_[kPlaneCount];
    std::unique_ptr<KeptFrame> kept_frames_[kPlaneCount];
};

// The output frame of both pipelines: luma's size and channels, format YCbCr, depth 8.
FRAME* new_output_frame(const FRAME& luma);

// Channels 1 and 2 of a debug view are neutral chroma.
void set_neutral_chroma(FRAME& out);

}  // namespace cm

#endif
