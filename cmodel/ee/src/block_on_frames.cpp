#include "block_on_frames.h"

#include <algorithm>

#include "fatal.h"
#include "frame_internal.h"

namespace cm {
namespace {

constexpr int kRows = 2 * kMaxReach + 1;

// An input of the block: rows around the current one, each read when it comes into view. The rows of one
// window are neighbours after reflection too, so each has a line of its own.
template <typename T>
class WindowReader {
  public:
    // 32-bit rows of `plain` serve as they are if it is given; it must be as wide as the block's rows.
    void open(const RowSource& source, const FRAME* plain, const BlockInput& how, int width, Memory& memory) {
        source_ = &source;
        plain_ = plain;
        how_ = how;
        width_ = how.half_width ? half_up(width) : width;
        lines_ = 2 * how.reach + 1;
        for (int k = 0; k < lines_; ++k) {
            samples_[k] = memory.take<T>(static_cast<size_t>(width_) + 2 * kMaxReach);
            held_[k] = -1;
        }
    }

    const T* const* around(int64_t y) {
        if constexpr (std::is_same_v<T, int32_t>) {
            if (plain_ != nullptr) {
                const size_t own_y = static_cast<size_t>(mirror(y, source_->height()));
                rows_[0] = plain_->data + own_y * plain_->width;
                return rows_;
            }
        }
        for (int k = 0; k < lines_; ++k) {
            const int own_y = mirror(y + k - how_.reach, source_->height());
            T* const samples = samples_[own_y % lines_];
            if (held_[own_y % lines_] != own_y) {
                read(own_y, samples);
                held_[own_y % lines_] = own_y;
            }
            rows_[k] = samples + kMaxReach;
        }
        return rows_;
    }
    const T* current() const { return rows_[how_.reach]; }

  private:
    void read(int y, T* samples) const {
        source_->read(y, 0, width_, samples + kMaxReach);
        for (int k = 1; k <= kMaxReach && how_.padded; ++k) {
            source_->read(y, mirror(-k, source_->width()), 1, samples + kMaxReach - k);
            source_->read(y, int64_t{width_} - 1 + k, 1, samples + int64_t{kMaxReach} + width_ - 1 + k);
        }
    }

    const RowSource* source_;
    const FRAME* plain_;
    BlockInput how_;
    int width_;
    int lines_;
    T* samples_[kRows];
    int held_[kRows];
    const T* rows_[kRows];
};

// The block on all rows. `sources` are the inputs, or what they count as while the block is off.
template <typename T>
int64_t run_rows(const Block& block, const void* config, const RowSource* const* sources,
                 const FRAME* const* plain, std::initializer_list<FrameOutput> out, int width, int64_t height,
                 Memory& memory) {
    WindowReader<T> windows[kMostInputs];
    int64_t events = 0;
    BlockRows<T> rows{};
    rows.width = width;
    rows.events = &events;
    for (int i = 0; i < block.inputs; ++i) {
        windows[i].open(*sources[i], plain[i], block.in[i], width, memory);
    }
    for (int k = 0; k < block.outputs; ++k) {
        const bool wanted = out.begin()[k].frame != nullptr;
        rows.out[k] = wanted ? memory.take<T>(static_cast<size_t>(width)) : nullptr;
    }
    int32_t* const wide_row = memory.take<int32_t>(static_cast<size_t>(width));
    if (memory.failed()) {
        fail_without_memory();
    }
    for (int64_t y = 0; y < height; ++y) {
        for (int i = 0; i < block.inputs; ++i) {
            rows.window[i] = windows[i].around(y);
            rows.in[i] = windows[i].current();
        }
        if constexpr (std::is_same_v<T, int32_t>) {
            block.run(config, rows);
        } else {
            block.run_narrow(config, rows);
        }
        for (int k = 0; k < block.outputs; ++k) {
            if (rows.out[k] == nullptr) {
                continue;
            }
            const int32_t* row = wide_row;
            if constexpr (std::is_same_v<T, int32_t>) {
                row = rows.out[k];
            } else {
                std::copy_n(rows.out[k], width, wide_row);
            }
            write_row(*out.begin()[k].frame, y, row, width, out.begin()[k].channel);
        }
    }
    return events;
}

}  // namespace

void run_on_frames(const Block& block, std::initializer_list<FrameInput> in,
                   std::initializer_list<FrameOutput> out, const FRAME& size, const char* tag,
                   int extra_rows) try {
    const Registers registers(ee_reg.hw);
    const int width = static_cast<int>(size.width);
    const int height = static_cast<int>(size.height);
    Memory memory;
    void* const config = memory.take<uint8_t>(block.config_size);
    if (config != nullptr) {
        const BlockSetup setup{in.begin()->frame->depth, out.begin()->frame->depth,
                               size_t{size.width} * size.height, memory};
        block.configure(config, registers, setup);
    }
    if (memory.failed()) {
        fail_without_memory();
    }

    std::optional<FrameSource> frames[kMostInputs];
    std::optional<ConstantSource> constants[kMostInputs];
    const RowSource* sources[kMostInputs];
    const FRAME* plain[kMostInputs];
    bool narrow = block.narrow_bound > 0 && block.fits_narrow(config);
    for (int i = 0; i < block.inputs; ++i) {
        const BlockInput& how = block.in[i];
        const FRAME& frame = *in.begin()[i].frame;
        const int channel = std::min(in.begin()[i].channel, static_cast<int>(frame.channels) - 1);
        const bool off = how.when_off && registers[reg_ee_enable] != 1;
        sources[i] = &frames[i].emplace(frame, channel);
        if (off) {
            sources[i] = &constants[i].emplace(width, height, frame.depth, *how.when_off);
        }
        const bool direct =
            !off && frame.channels == 1 && frame.width >= size.width && how.reach == 0 && !how.padded;
        plain[i] = direct ? &frame : nullptr;
        narrow = narrow && sources[i]->within(-block.narrow_bound, block.narrow_bound);
    }
    const auto run = narrow ? run_rows<int16_t> : run_rows<int32_t>;
    const int64_t events =
        run(block, config, sources, plain, out, width, int64_t{height} + extra_rows, memory);

    BlockReport report{global_log(), dump_dbg_img != 0 ? dbg_path : nullptr, tag, events, {}, {}};
    std::optional<FrameSource> results[kMostOutputs];
    for (int i = 0; i < block.inputs; ++i) {
        report.in[i] = &*frames[i];
    }
    for (int k = 0; k < block.outputs; ++k) {
        const FrameOutput& output = out.begin()[k];
        report.out[k] =
            output.frame != nullptr ? &results[k].emplace(*output.frame, output.channel) : nullptr;
    }
    block.report(config, report);
} catch (const std::bad_alloc&) {  // of the images
    fail_without_memory();
}

}  // namespace cm
