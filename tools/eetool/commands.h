// eetool's subcommands. To add one: write its file, declare it here, put it into the table in main.cpp.
#ifndef CMODEL_EETOOL_COMMANDS_H
#define CMODEL_EETOOL_COMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>

#include "owned_frame.h"

namespace eetool {

// Exit statuses; bad usage has those of the command-line parser (100 and above).
enum Status : int { kOk = 0, kFindings = 1, kCannot = 2 };

struct Command {
    const char* name;
    const char* summary;
    const char* examples;  // command lines that work one after the other in an empty directory
    const char* notes;     // printed after the options
    // Declares the options; the result is run once they are parsed, and gives the exit status. A Cannot or
    // pictures::Error that it throws is told on standard error.
    std::function<int()> (*declare)(CLI::App& app);
};

extern const Command kBatch;
extern const Command kClassic;
extern const Command kDiff;
extern const Command kExplain;
extern const Command kIni;
extern const Command kJobs;
extern const Command kList;
extern const Command kPattern;
extern const Command kPlanes;
extern const Command kResults;
extern const Command kRun;
extern const Command kSweep;

using Frame = cm::OwnedFrame;

// Says on standard error that `path` cannot be `done` ("read", "written"), and why.
int report_cannot(const char* done, const std::string& path);

// Whether `path` can be written; errno says why not. It is neither created nor changed. Asked before the
// frame library is given a path, since it waits until a file can be opened.
bool can_write(const std::string& path);

// Splits a three-channel frame into luma and half-width chroma.
struct Planes {
    Frame y, cb, cr;
};
Planes split_planes(const FRAME& ycbcr);

}  // namespace eetool

#endif
