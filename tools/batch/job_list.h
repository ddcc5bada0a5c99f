// Lists of jobs from patterns: frames times settings. The same options give the same list.
#ifndef CMODEL_BATCH_JOB_LIST_H
#define CMODEL_BATCH_JOB_LIST_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "job.h"

namespace eetool {

struct JobListOptions {
    // Frames, each source after the other.
    std::string frames;              // "clip/%05d_{y,cb,cr,ynr}.pgm"; without braces colour pictures (P6)
    std::vector<std::string> clips;  // Y4M, or raw
    std::optional<RawFormat> raw;
    std::vector<std::string> photos;
    std::optional<uint64_t> start, count;  // of numbered frames and of each clip; all without them
    std::string ynr, mmap, yfusion;        // patterns of planes beside clips and photographs

    // Settings: each register file with each combination of the sweeps, or some at random.
    std::string pipeline = "pre_ee", instance = "NULL";
    std::vector<std::string> inis;
    std::vector<std::string> set;     // KEY=VALUE, over all settings
    std::vector<std::string> sweeps;  // KEY=VALUE,VALUE,...
    uint64_t random = 0, seed = 1;    // settings of the seeds `seed`, `seed` + 1, ...

    std::string out_dir;  // "": hashes only; else DIR/SETTING/FRAME.pgm
    std::vector<std::string> stages;
    std::string expect_from;  // results that give each job its `expect`
};

// Gives the jobs in order, frame by frame. Throws Cannot: a pattern or an assignment that cannot be, a file
// that is missing (a gap among numbered frames, too), settings that the frames do not suit.
void make_jobs(const JobListOptions& options, const std::function<void(const Job&)>& take);

// KEY=VALUE as a register and a value that fits it. Throws Cannot.
std::pair<std::string, int32_t> parse_assignment(const std::string& text);

// Into how many shards a list goes so that each takes about `minutes` on `cores` cores: at least 1, at most
// `most`.
uint64_t count_shards(const std::string& list, double ms_a_job, int cores, double minutes, uint64_t most);

// The mean time of the jobs of a file of results that ran to their end, in milliseconds. Throws Cannot for
// none.
double mean_ms(const std::string& results);

}  // namespace eetool

#endif
