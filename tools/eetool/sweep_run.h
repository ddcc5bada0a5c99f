// One photograph under many settings: figures for each, and where the settings differ most.
#ifndef CMODEL_EETOOL_SWEEP_RUN_H
#define CMODEL_EETOOL_SWEEP_RUN_H

#include <functional>
#include <string>
#include <vector>

#include "model_run.h"

namespace eetool {

// What makes one setting of a sweep out of the run's: registers with their values, or "ini" with a file.
struct Variant {
    std::vector<std::pair<std::string, std::string>> assignments;
    std::vector<std::string> labels;  // one for each axis
};

// Of the sharpened luma against what was sharpened, codes of 8 bits. An edge is where the 5x5 window around
// has a range of kEdgeRange or more; flat is where it has kFlatRange or less.
struct Figures {
    static constexpr int kEdgeRange = 48, kFlatRange = 16;
    double changed = 0;       // share of samples, 0 to 1
    double edges = 0;         // mean change, over edges; 0 if there are none
    double flat = 0;          // the same over flat areas
    double beyond = 0;        // share of samples beyond the extremes of their window
    int over = 0, under = 0;  // the farthest above and below them
};

struct Place {
    int x, y, width, height;
};

class Sweep {
  public:
    // Applies every variant once, so that what cannot be is told before the work. Throws Cannot.
    Sweep(const ModelRun& run, const std::string& instance, std::vector<Variant> variants);

    // Runs all variants, on as many threads as the machine has processors; the result is the same for any
    // number. `progress` is called with how many are done, by one thread at a time. Throws Cannot.
    std::vector<Figures> run(const std::function<void(size_t)>& progress);

    // The places, after run(), where the results of the variants differ most (of one variant: where it
    // changes most), at most `count`; they do not overlap.
    std::vector<Place> places(size_t count, int width, int height) const;

    // The luma of a variant at one place.
    std::vector<uint8_t> luma(size_t variant, const Place& place);

    const std::vector<Variant>& variants() const { return variants_; }

  private:
    using Model = std::unique_ptr<cmodel, DeleteModel>;
    using Plane = std::vector<uint8_t>;

    void configure(cmodel* model, const Variant& variant) const;
    void bind(cmodel* model, Plane& out) const;
    Figures measure(const Plane& out) const;

    const ModelRun& run_;
    std::string instance_;
    std::vector<Variant> variants_;
    const uint8_t* before_;
    Plane local_max_, local_min_;
    Plane greatest_, least_;  // over all variants
    Model model_;             // for single places
    Plane out_;
};

}  // namespace eetool

#endif
