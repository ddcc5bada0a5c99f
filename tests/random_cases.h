// Random pictures and register files, and what comes of them compared with the plain model. The numbers
// come from a generator or from the bytes of a fuzz input.
#ifndef CMODEL_RANDOM_CASES_H
#define CMODEL_RANDOM_CASES_H

#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "common.h"
#include "files.h"
#include "plain_model.h"

using plain::I;
using Files = std::map<std::string, std::string>;  // path -> bytes

struct Random {
    std::function<uint64_t()> next;
    I below(I n) { return static_cast<I>(next() % static_cast<uint64_t>(n)); }
    I between(I low, I high) { return low + below(high - low + 1); }
    int size(int low, int high) { return static_cast<int>(between(low, high)); }
    bool chance(int percent) { return below(100) < percent; }
    template <class T>
    T pick(std::initializer_list<T> list) {
        return list.begin()[below(static_cast<I>(list.size()))];
    }
};

// A number that the environment may set.
I from_environment(const char* name, I otherwise);

// A picture of values 0..65535 that the planes of one case are made from.
std::vector<I> draw_picture(Random& r, int width, int height);

// Register values as text, by key: few or all, in the useful range or anywhere.
std::map<std::string, std::string> draw_settings(Random& r, I fusion_max);

// The settings as a register file, tidy or with everything that such files may hold.
std::string draw_ini(Random& r, const std::map<std::string, std::string>& set, const std::string& section);

// A '*' in a pattern stands for any text.
bool matches(const std::string& pattern, const std::string& text);
std::string log_pattern(const std::vector<plain::Record>& log);

// "" or the first line in which a text differs from a pattern; the first file that differs.
std::string first_difference(const std::string& what, const std::string& pattern, const std::string& text);
std::string first_difference(const Files& want, const Files& got);
Files snapshot(const std::string& dir);

FRAME* to_frame(const plain::Plane& p);

// Everything logged since the last clear(), by the one sink of this process.
std::vector<plain::Record>& captured_log();

// The registers of a file in the library and in a model; the captured log has only what that logged.
plain::Model load_both(const std::string& path);

// One frame through either library pipeline; "" or how the frame, the log or the debug images in `dir`
// differ from the model's. Frames reach where files do not: negative and full-range samples,
// three-channel luma, the classic pipeline.
std::string compare_pipelines(Random& r, const std::string& dir);

#endif
