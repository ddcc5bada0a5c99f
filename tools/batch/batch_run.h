// A list of jobs, run in threads.
#ifndef CMODEL_BATCH_BATCH_RUN_H
#define CMODEL_BATCH_BATCH_RUN_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "clip.h"
#include "job.h"

namespace eetool {

// What ends a batch, beside the statuses that all commands have; a signal adds its number to 128.
enum BatchStatus : int { kAllGood = 0, kSomeFailed = 1, kCannotRun = 2 };

struct BatchOptions {
    std::string list, results, junit;  // results "": standard output
    int threads = 1;                   // that compute at a time
    bool resume = false, stop_on_failure = false;
    std::string failed_from;         // only jobs whose last line there is not good; "": all
    uint64_t shard = 0, shards = 1;  // jobs whose place in the list, from 0, leaves the remainder `shard`
    std::string only;                // only this id; "": all
    std::string go_on;               // the command that goes on after this one was ended
};

// Runs the list. Each thread reads, runs and writes a job at a time; there is one thread more than may
// compute, so that reading and writing go on beside computing. Every job gets a line of results as soon as it
// is done. Throws Cannot when the list cannot be run: it is not whole, or the results cannot be written.
int run_batch(const BatchOptions& options);

struct ClipRunOptions {
    std::string clip;              // "-": standard input
    std::optional<RawFormat> raw;  // none: Y4M
    std::string rate = "25:1";     // frames a second of a raw clip
    Job setting;                   // pipeline, registers
    std::string name;              // of the setting, in ids
    std::string out;               // Y4M; "-": standard output; "": none
    std::string results;           // "": none
    int threads = 1;
};

// Runs every frame of a clip under one setting, in order. The first frame that fails ends the run; an output
// file then stays under the name OUT.part. Throws Cannot when nothing can be run or written.
int run_clip(const ClipRunOptions& options);

}  // namespace eetool

#endif
