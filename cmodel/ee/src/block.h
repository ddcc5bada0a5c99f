// A block of the hardware: a configuration that is filled once a frame, a datapath from rows to rows, and a
// report after the frame. Each lies in a file of its own and says here how it is wired:
//
//     struct Coring {                                          // the configuration
//         int32_t mf_wgt_q8, hf_wgt_q8;
//         void configure(const Registers& r, const BlockSetup&) { ... }
//         template <typename T> void run(const BlockRows<T>& rows) const { ... }
//         void report(const BlockReport& report) const { ... }
//     };
//     const Block kCoring = make_block<Coring>({"EE_Coring", "what it does", ""}, {{}, {}, {}}, {{}});
//
// Which planes its inputs and outputs are is written in the table of the pipelines.
#ifndef CMODEL_BLOCK_H
#define CMODEL_BLOCK_H

#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <type_traits>

#include "ee_reg_table.h"
#include "line_pad.h"
#include "memory.h"
#include "record_log.h"
#include "row_source.h"

namespace cm {

// Most inputs and outputs of a block; it looks up and down as far as left and right.
inline constexpr int kMostInputs = 6;
inline constexpr int kMostOutputs = 8;

// How a debug image shows a plane: not at all, saturated to 16 bits, or every sample.
enum class Shown : uint8_t { kNo, kPicture, kSamples };

struct BlockInput {
    int reach = 0;                         // rows that the block looks up and down
    bool padded = false;                   // whether it looks left and right, up to kMaxReach columns
    bool half_width = false;               // rows of half the samples, rounded up
    std::optional<int32_t> when_off = {};  // what samples count as when a switched-off block is called alone
    Shown shown = Shown::kNo;
};

struct BlockOutput {
    Shown shown = Shown::kNo;
    bool optional = false;  // the row is null unless somebody wants the plane
};

// Frames of fewer pixels are done before a table of all chroma values is.
inline constexpr size_t kManyPixels = 3 * 256 * 256;

// Up to it, fused luma goes in 16-bit rows: flat detection adds up seven samples in 16 bits.
inline constexpr int32_t kNarrowFusionMax = 32767 / 7;

// What a configuration depends on beside the registers.
struct BlockSetup {
    int in_depth;    // of the first input
    int out_depth;   // of the first output
    size_t pixels;   // to come with this configuration, at least
    Memory& memory;  // for tables; check failed() before they are used
};

// One row of each plane, at luma width.
template <typename T>
struct BlockRows {
    // Input i: rows above, the current row at [reach], rows below.
    const T* const* window[kMostInputs];
    const T* in[kMostInputs];  // the current row alone
    T* out[kMostOutputs];
    int width;
    int64_t* events;  // what the block counts for its report
};

inline constexpr size_t kMaxImagePath = 1023;

// What a report is made of. In a pipeline only planes that are marked as shown are there, and those only when
// images are wanted: they are kept whole while the rows run, and the block's report() writes the images
// after.
struct BlockReport {
    RecordLog& log;
    const char* image_dir;  // null when images are not wanted
    const char* tag;        // of the images' names; may be empty
    int64_t events;
    const RowSource* in[kMostInputs];
    const RowSource* out[kMostOutputs];

    bool images() const { return image_dir != nullptr; }
    // image_dir/name or image_dir/tag_name, cut to kMaxImagePath characters. (ee_dbg_out.cpp)
    std::string image_path(const char* name) const;
};

// For the pages and for users.
struct BlockText {
    const char* name;     // of the public function
    const char* summary;  // what it does to its planes
    const char* images;   // its debug images
};

struct Block : BlockText {
    int inputs;
    int outputs;
    BlockInput in[kMostInputs];
    BlockOutput out[kMostOutputs];
    size_t config_size;
    void (*configure)(void* config, const Registers& registers, const BlockSetup& setup);
    void (*run)(const void* config, const BlockRows<int32_t>& rows);
    void (*run_narrow)(const void* config, const BlockRows<int16_t>& rows);
    // For run_narrow() when the block is called alone: the magnitude that no input sample may pass. 0: it
    // does not pay.
    int32_t narrow_bound;
    // Whether 16-bit rows hold whatever the block makes of fused luma up to kNarrowFusionMax and other inputs
    // of 8 bits.
    bool (*fits_narrow)(const void* config);
    void (*report)(const void* config, const BlockReport& report);
};

// `Config` has configure() and run() and, where there is anything to say, fits_narrow() and report().
template <typename Config>
constexpr Block make_block(const BlockText& text, std::initializer_list<BlockInput> in,
                           std::initializer_list<BlockOutput> out, int32_t narrow_bound = 0) {
    static_assert(std::is_trivially_destructible_v<Config>);
    Block block{};
    static_cast<BlockText&>(block) = text;
    block.inputs = static_cast<int>(in.size());
    block.outputs = static_cast<int>(out.size());
    for (int i = 0; i < block.inputs; ++i) {
        block.in[i] = in.begin()[i];
    }
    for (int i = 0; i < block.outputs; ++i) {
        block.out[i] = out.begin()[i];
    }
    block.narrow_bound = narrow_bound;
    block.config_size = sizeof(Config);
    block.configure = [](void* config, const Registers& registers, const BlockSetup& setup) {
        (new (config) Config)->configure(registers, setup);
    };
    block.run = [](const void* config, const BlockRows<int32_t>& rows) {
        static_cast<const Config*>(config)->run(rows);
    };
    block.run_narrow = [](const void* config, const BlockRows<int16_t>& rows) {
        static_cast<const Config*>(config)->run(rows);
    };
    block.fits_narrow = [](const void* config) {
        if constexpr (requires { static_cast<const Config*>(config)->fits_narrow(); }) {
            return static_cast<const Config*>(config)->fits_narrow();
        }
        return true;
    };
    block.report = [](const void* config, const BlockReport& report) {
        if constexpr (requires { static_cast<const Config*>(config)->report(report); }) {
            static_cast<const Config*>(config)->report(report);
        }
    };
    return block;
}

}  // namespace cm

#endif
