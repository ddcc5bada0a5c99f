// eetool jobs: writes lists of runs.
#include <cstdio>

#include "commands.h"
#include "crew.h"
#include "job_list.h"
#include "raw_options.h"
#include "stage_files.h"
#include "whole_file.h"

namespace eetool {
namespace {

struct Options : JobListOptions {
    RawOptions raw_words;
    std::string out, split, results;
    double ms = 0, minutes = 5;
    uint64_t most = 1000;
    int cores = 1;
};

int split(const Options& o) {
    if (o.ms <= 0 && o.results.empty()) {
        throw CLI::RequiredError("--ms or --times");
    }
    const double ms = o.ms > 0 ? o.ms : mean_ms(o.results);
    std::printf("%llu\n",
                static_cast<unsigned long long>(count_shards(o.split, ms, o.cores, o.minutes, o.most)));
    return std::fflush(stdout) == 0 ? kOk : report_cannot("written", "standard output");
}

int write_list(const Options& o) {
    if (o.out.empty()) {
        make_jobs(o, [](const Job& job) { std::printf("%s\n", line_of(job).c_str()); });
        const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
        return written ? kOk : report_cannot("written", "standard output");
    }
    WholeFile file(o.out);
    make_jobs(o, [&](const Job& job) { file.write(line_of(job) + "\n"); });
    file.finish();
    return kOk;
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    app.add_option("--frames", o->frames,
                   "numbered planes, 'clip/%05d_{y,cb,cr,ynr,mmap,yfusion}.pgm', or colour pictures, "
                   "'clip/%05d.ppm'")
        ->option_text("PATTERN");
    app.add_option("--clip", o->clips, "every frame of a Y4M file, or of a raw one; may be repeated")
        ->option_text("FILE")
        ->allow_extra_args(false);
    declare_raw_options(app, o->raw_words);
    app.add_option("--photo", o->photos, "a photograph; may be repeated")
        ->option_text("FILE")
        ->allow_extra_args(false);
    app.add_option("--start", o->start, "the first frame; without it the first that there is")
        ->option_text("N");
    app.add_option("--count", o->count, "how many frames; without it all")->option_text("N");
    for (const auto& [name, pattern] :
         {std::pair{"--ynr", &o->ynr}, {"--mmap", &o->mmap}, {"--yfusion", &o->yfusion}}) {
        app.add_option(name, *pattern, "that plane beside each frame of a clip, by the frame's number")
            ->option_text("PATTERN");
    }
    app.add_option("--pipeline", o->pipeline, "pre_ee, which pre_ee_main runs, or classic")
        ->option_text("NAME [pre_ee]")
        ->check(CLI::IsMember({"pre_ee", "classic"}));
    CLI::Option* const ini = app.add_option("--ini", o->inis, "register setting; may be repeated")
                                 ->option_text("FILE")
                                 ->allow_extra_args(false);
    app.add_option("--instance", o->instance,
                   "registers are read from section [eeNAME]; without it from [ee]")
        ->option_text("NAME");
    app.add_option("--set", o->set, "give a register this value in all settings; may be repeated")
        ->option_text("KEY=VALUE")
        ->allow_extra_args(false);
    app.add_option("--sweep", o->sweeps, "each of these values in turn; several sweeps are combined")
        ->option_text("KEY=A,B,...")
        ->allow_extra_args(false);
    CLI::Option* const random =
        app.add_option("--random", o->random,
                       "so many settings at random, as `eetool ini --random` draws them")
            ->option_text("N")
            ->excludes(ini);
    app.add_option("--seed", o->seed, "the seed of the first; the others follow it")
        ->option_text("S [1]")
        ->needs(random);
    app.add_option("--out-dir", o->out_dir, "write DIR/SETTING/FRAME.pgm; without it hashes only")
        ->option_text("DIR");
    app.add_option("--stages", o->stages, "keep these stages, too")
        ->option_text("NAME,...")
        ->delimiter(',')
        ->allow_extra_args(false);
    app.add_option("--expect-from", o->expect_from, "expect the hashes of these results")
        ->option_text("R.jsonl");
    app.add_option("--out", o->out, "the list; without it standard output")->option_text("LIST");
    CLI::Option* const sizes =
        app.add_option("--split", o->split, "print into how many shards this list goes, nothing else")
            ->option_text("LIST");
    app.add_option("--ms", o->ms, "time of a job, milliseconds")->needs(sizes);
    app.add_option("--times", o->results, "results of some of the jobs, in place of --ms")
        ->option_text("R.jsonl")
        ->needs(sizes);
    app.add_option("--cores", o->cores, "cores that a shard uses")
        ->option_text("N [1]")
        ->needs(sizes)
        ->check(CLI::Range(1, kMostThreads));
    app.add_option("--minutes", o->minutes, "how long a shard takes at least")
        ->option_text("M [5]")
        ->needs(sizes)
        ->check(CLI::PositiveNumber);
    app.add_option("--most", o->most, "shards at most")->option_text("N [1000]")->needs(sizes);
    return [o] {
        o->raw = raw_format(o->raw_words);
        return o->split.empty() ? write_list(*o) : split(*o);
    };
}

}  // namespace

const Command kJobs = {
    "jobs", "Write a list of runs: frames times settings",
    "  eetool pattern star --width 320 --height 240 --sigma 2 --y 1_y.pgm --cb 1_cb.pgm --cr 1_cr.pgm\n"
    "  eetool pattern star --width 320 --height 240 --sigma 9 --y 2_y.pgm --cb 2_cb.pgm --cr 2_cr.pgm\n"
    "  eetool jobs --frames '%d_{y,cb,cr}.pgm' --set reg_ee_texture_mode=0 --sweep reg_ee_total_gain=16,32 "
    "--out sweep.jsonl\n"
    "  eetool batch sweep.jsonl --results sweep_results.jsonl\n"
    "  eetool jobs --split sweep.jsonl --times sweep_results.jsonl\n",
    "A line of JSON is a run: id (FRAME@SETTING), pipeline, ini, instance, set, the inputs (y, cb, cr, ynr, "
    "mmap,\n"
    "yfusion; or rgb; or photo; or clip and frame), out, stages, expect. The same words give the same list. "
    "A number\n"
    "that is missing among the frames is an error. docs/sequences.md tells more.\n",
    declare};

}  // namespace eetool
