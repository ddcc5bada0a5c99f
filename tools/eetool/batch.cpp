// eetool batch: runs a list or a clip, or puts the results of shards together.
#include <cstdio>
#include <filesystem>

#include "batch_run.h"
#include "commands.h"
#include "crew.h"
#include "job_list.h"
#include "raw_options.h"
#include "result.h"
#include "shell_word.h"
#include "stage_files.h"

namespace eetool {
namespace {

struct Options : BatchOptions {
    std::string shard_text, clip;
    RawOptions raw_words;
    ClipRunOptions clip_run;
    std::string pipeline = "pre_ee", ini, instance = "NULL", out;
    std::vector<std::string> set, merge;
    bool with_times = false;
};

void take_shard(Options& o) {
    if (o.shard_text.empty()) {
        return;
    }
    unsigned long long shard = 0, shards = 0;
    char rest = 0;
    if (std::sscanf(o.shard_text.c_str(), "%9llu/%9llu%c", &shard, &shards, &rest) != 2 || shard >= shards) {
        throw CLI::ValidationError("--shard", o.shard_text + ": give K/N, K from 0 to N-1");
    }
    o.shard = shard;
    o.shards = shards;
}

int merge(const Options& o) {
    const ResultSet results(o.merge);
    results.for_each([&](const Result& r) {
        const std::string line = line_of(r, o.with_times);
        std::fwrite(line.data(), 1, line.size(), stdout);
    });
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        return report_cannot("written", "standard output");
    }
    if (!o.junit.empty()) {
        write_junit(o.junit, results);
    }
    uint64_t bad = 0;
    results.for_each([&](const Result& r) { bad += r.outcome != Outcome::kOk ? 1 : 0; });
    uint64_t jobs = results.last_line();
    if (!o.list.empty()) {
        jobs = 0;
        read_lines(o.list, [&](std::string_view line, uint64_t, uint64_t) {
            jobs += line.find_first_not_of(" \t\r") != line.npos ? 1 : 0;
        });
    }
    if (results.size() < jobs) {
        std::fprintf(stderr, "eetool: %llu of %llu jobs have no result\n",
                     static_cast<unsigned long long>(jobs - results.size()),
                     static_cast<unsigned long long>(jobs));
    }
    return bad > 0 || results.size() < jobs ? kSomeFailed : kAllGood;
}

int run_one_clip(const Options& o) {
    ClipRunOptions run = o.clip_run;
    run.clip = o.clip;
    run.raw = raw_format(o.raw_words);
    run.out = o.out;
    run.results = o.results;
    run.threads = o.threads;
    run.setting.pipeline = o.pipeline;
    run.setting.ini = o.ini;
    run.setting.instance = o.instance;
    for (const std::string& assignment : o.set) {
        run.setting.set.push_back(parse_assignment(assignment));
    }
    run.name = o.ini.empty() ? "defaults" : std::filesystem::path(o.ini).replace_extension().string();
    return run_clip(run);
}

int run(Options& o) {
    if (!o.merge.empty()) {
        return merge(o);
    }
    if (!o.clip.empty()) {
        return run_one_clip(o);
    }
    if (o.list.empty()) {
        throw CLI::RequiredError("LIST, --clip or --merge");
    }
    if (o.results.empty() && (o.resume || !o.junit.empty())) {
        throw CLI::RequiredError("--results");
    }
    take_shard(o);
    std::string command = "eetool batch " + shell_word(o.list);
    command += o.results.empty() ? "" : " --results " + shell_word(o.results) + " --resume";
    command += " --jobs " + std::to_string(o.threads);
    command += o.shard_text.empty() ? "" : " --shard " + o.shard_text;
    command += o.failed_from.empty() ? "" : " --failed-from " + shell_word(o.failed_from);
    command += o.junit.empty() ? "" : " --junit " + shell_word(o.junit);
    command += o.stop_on_failure ? " --stop-on-failure" : "";
    o.go_on = std::move(command);
    return run_batch(o);
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    o->threads = usable_cores();
    CLI::Option* const list = app.add_option("LIST", o->list, "jobs, a line of JSON each (eetool jobs)");
    app.add_option("--results", o->results, "a line for each job; without it standard output")
        ->option_text("R.jsonl");
    app.add_option("--jobs", o->threads, "frames that are computed at a time; without it one a core")
        ->option_text("N")
        ->check(CLI::Range(1, kMostThreads - 1));
    app.add_flag("--resume", o->resume,
                 "go on: only jobs without a good line for the same job, inputs and version")
        ->needs(list);
    app.add_option("--failed-from", o->failed_from, "only jobs that failed, or were unlike, there")
        ->option_text("R.jsonl")
        ->needs(list);
    app.add_option("--shard", o->shard_text, "every Nth job, from job K on; K from 0")
        ->option_text("K/N")
        ->needs(list);
    app.add_option("--only", o->only, "only this job")->option_text("ID")->needs(list);
    app.add_flag("--stop-on-failure", o->stop_on_failure, "start no job after one that failed")->needs(list);
    app.add_option("--junit", o->junit, "a report in JUnit's XML, too")->option_text("FILE");
    CLI::Option* const merge =
        app.add_option("--merge", o->merge, "print the results of shards together, in the order of the list")
            ->option_text("R0 R1 ...");
    app.add_flag("--with-times", o->with_times, "with times, which differ from run to run")->needs(merge);

    CLI::Option* const clip =
        app.add_option("--clip,--y4m", o->clip, "run every frame of a clip, Y4M or raw; - is standard input")
            ->option_text("FILE")
            ->excludes(list)
            ->excludes(merge);
    declare_raw_options(app, o->raw_words);
    app.add_option("--rate", o->clip_run.rate, "frames a second of a raw clip, for the output's header")
        ->option_text("N:M [25:1]")
        ->needs(clip);
    app.add_option("--out", o->out, "the sharpened clip, Y4M; - is standard output")
        ->option_text("FILE")
        ->needs(clip);
    app.add_option("--pipeline", o->pipeline, "of a clip: pre_ee or classic")
        ->option_text("NAME [pre_ee]")
        ->check(CLI::IsMember({"pre_ee", "classic"}))
        ->needs(clip);
    app.add_option("--ini", o->ini, "register setting of a clip")->option_text("FILE")->needs(clip);
    app.add_option("--instance", o->instance,
                   "registers are read from section [eeNAME]; without it from [ee]")
        ->option_text("NAME")
        ->needs(clip);
    app.add_option("--set", o->set, "give a register this value; may be repeated")
        ->option_text("KEY=VALUE")
        ->allow_extra_args(false)
        ->needs(clip);
    return [o] { return run(*o); };
}

}  // namespace

const Command kBatch = {
    "batch", "Run a list of jobs, or every frame of a clip, in threads",
    "  eetool pattern star --width 320 --height 240 --sigma 2 --y 1_y.pgm --cb 1_cb.pgm --cr 1_cr.pgm\n"
    "  eetool jobs --frames '%d_{y,cb,cr}.pgm' --set reg_ee_texture_mode=0 --out list.jsonl\n"
    "  eetool batch list.jsonl --results r0.jsonl --shard 0/2\n"
    "  eetool batch list.jsonl --results r1.jsonl --shard 1/2\n"
    "  eetool batch list.jsonl --merge r0.jsonl r1.jsonl\n",
    "A clip: ffmpeg -i in.mp4 -f yuv4mpegpipe - | eetool batch --y4m - --ini tuned.ini --out - | ffplay -\n"
    "Status: 0 when all jobs are good, 1 when some failed or are unlike what they expect (or --merge lacks\n"
    "some), 2 when the list cannot be run or the results cannot be written, 130 after Ctrl-C.\n",
    declare};

}  // namespace eetool
