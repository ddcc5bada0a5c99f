#include "sweep_run.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <mutex>
#include <thread>

namespace eetool {
namespace {

constexpr int kReach = 2;  // of the 5x5 window

// The extreme of each window along one axis: samples `step` apart, `count` of them in a line, `lines` lines.
template <typename Pick>
void extreme_along(std::vector<uint8_t>& plane, size_t count, size_t step, size_t lines, size_t line_step,
                   const Pick& pick) {
    std::vector<uint8_t> line(count);
    for (size_t l = 0; l < lines; ++l) {
        uint8_t* const samples = plane.data() + l * line_step;
        for (size_t i = 0; i < count; ++i) {
            line[i] = samples[i * step];
        }
        for (size_t i = 0; i < count; ++i) {
            uint8_t v = line[i];
            for (size_t k = i < kReach ? 0 : i - kReach; k <= std::min(i + kReach, count - 1); ++k) {
                v = pick(v, line[k]);
            }
            samples[i * step] = v;
        }
    }
}

template <typename Pick>
std::vector<uint8_t> local_extreme(const uint8_t* plane, Size size, const Pick& pick) {
    const auto width = static_cast<size_t>(size.width), height = static_cast<size_t>(size.height);
    std::vector<uint8_t> result(plane, plane + size.samples());
    extreme_along(result, width, 1, height, width, pick);
    extreme_along(result, height, width, width, 1, pick);
    return result;
}

uint8_t larger(uint8_t a, uint8_t b) {
    return std::max(a, b);
}
uint8_t smaller(uint8_t a, uint8_t b) {
    return std::min(a, b);
}

}  // namespace

Sweep::Sweep(const ModelRun& run, const std::string& instance, std::vector<Variant> variants)
    : run_(run), instance_(instance), variants_(std::move(variants)), out_(run.size().samples()) {
    const InputImage* const ynr = run.find_image("ynr");
    before_ = static_cast<const uint8_t*>((ynr != nullptr ? *ynr : run.image("y")).data());
    model_ = run.another();
    for (const Variant& variant : variants_) {
        configure(model_.get(), variant);
    }
    bind(model_.get(), out_);
}

void Sweep::configure(cmodel* model, const Variant& variant) const {
    cmodel_copy_registers(model, run_.model());
    for (const auto& [key, text] : variant.assignments) {
        if (key == "ini") {
            if (cmodel_load_ini(model, text.c_str(), instance_.c_str()) < 0) {
                throw Cannot(cmodel_error(model));
            }
            continue;
        }
        int32_t value = 0;
        const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
        if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size()) {
            throw Cannot(std::string(key).append("=").append(text).append(": a value is a decimal integer"));
        }
        if (cmodel_set(model, key.c_str(), value) < 0) {
            throw Cannot(cmodel_error(model));
        }
    }
}

void Sweep::bind(cmodel* model, Plane& out) const {
    const Size size = run_.size();
    const cmodel_plane plane{out.data(), CMODEL_U8, size.width, size.height, size.width, 1, 8};
    if (cmodel_bind_output(model, &plane) < 0) {
        throw Cannot(cmodel_error(model));
    }
}

Figures Sweep::measure(const Plane& out) const {
    struct Sum {
        uint64_t count = 0, change = 0;
        double mean() const {
            return count == 0 ? 0 : static_cast<double>(change) / static_cast<double>(count);
        }
    } edges, flat;
    Figures figures;
    uint64_t changed = 0, beyond = 0;
    for (size_t i = 0; i < out.size(); ++i) {
        const int change = std::abs(out[i] - before_[i]);
        const int range = local_max_[i] - local_min_[i];
        const int over = out[i] - local_max_[i], under = local_min_[i] - out[i];
        changed += change != 0 ? 1 : 0;
        beyond += over > 0 || under > 0 ? 1 : 0;
        figures.over = std::max(figures.over, over);
        figures.under = std::max(figures.under, under);
        if (range >= Figures::kEdgeRange) {
            ++edges.count;
            edges.change += static_cast<uint64_t>(change);
        } else if (range <= Figures::kFlatRange) {
            ++flat.count;
            flat.change += static_cast<uint64_t>(change);
        }
    }
    const auto all = static_cast<double>(out.size());
    figures.changed = static_cast<double>(changed) / all;
    figures.beyond = static_cast<double>(beyond) / all;
    figures.edges = edges.mean();
    figures.flat = flat.mean();
    return figures;
}

std::vector<Figures> Sweep::run(const std::function<void(size_t)>& progress) {
    const Size size = run_.size();
    local_max_ = local_extreme(before_, size, larger);
    local_min_ = local_extreme(before_, size, smaller);
    greatest_.assign(size.samples(), 0);
    least_.assign(size.samples(), 255);
    if (variants_.size() == 1) {
        greatest_.assign(before_, before_ + size.samples());
        least_ = greatest_;
    }
    std::vector<Figures> figures(variants_.size());
    std::mutex mutex;
    size_t next = 0, done = 0;
    std::exception_ptr failure;
    const auto work = [&] {
        try {
            const Model model = run_.another();
            Plane out(size.samples()), greatest(size.samples(), 0), least(size.samples(), 255);
            bind(model.get(), out);
            for (;;) {
                size_t at = 0;
                {
                    const std::lock_guard<std::mutex> lock(mutex);
                    if (next == variants_.size() || failure) {
                        break;
                    }
                    at = next++;
                }
                configure(model.get(), variants_[at]);
                if (cmodel_run(model.get()) < 0) {
                    throw Cannot(cmodel_error(model.get()));
                }
                figures[at] = measure(out);
                std::transform(out.begin(), out.end(), greatest.begin(), greatest.begin(), larger);
                std::transform(out.begin(), out.end(), least.begin(), least.begin(), smaller);
                const std::lock_guard<std::mutex> lock(mutex);
                progress(++done);
            }
            const std::lock_guard<std::mutex> lock(mutex);
            std::transform(greatest.begin(), greatest.end(), greatest_.begin(), greatest_.begin(), larger);
            std::transform(least.begin(), least.end(), least_.begin(), least_.begin(), smaller);
        } catch (...) {
            const std::lock_guard<std::mutex> lock(mutex);
            failure = failure ? failure : std::current_exception();
        }
    };
    std::vector<std::thread> threads;
    const size_t processors = std::max(1U, std::thread::hardware_concurrency());
    for (size_t i = 1; i < std::min(processors, variants_.size()); ++i) {
        threads.emplace_back(work);
    }
    work();
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
    return figures;
}

std::vector<Place> Sweep::places(size_t count, int width, int height) const {
    const Size size = run_.size();
    width = std::min(width, size.width);
    height = std::min(height, size.height);
    // Sums of the difference over half places; a place is two by two of them.
    const int step_x = std::max(width / 2, 1), step_y = std::max(height / 2, 1);
    const int columns = std::max((size.width - width) / step_x + 1, 1);
    const int rows = std::max((size.height - height) / step_y + 1, 1);
    struct Candidate {
        uint64_t difference;
        Place place;
    };
    std::vector<Candidate> candidates;
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            const Place place{column * step_x, row * step_y, width, height};
            uint64_t difference = 0;
            for (int y = place.y; y < place.y + height; ++y) {
                const size_t first = static_cast<size_t>(y) * static_cast<size_t>(size.width);
                for (size_t i = first + static_cast<size_t>(place.x);
                     i < first + static_cast<size_t>(place.x + width); ++i) {
                    difference += static_cast<uint64_t>(greatest_[i] - least_[i]);
                }
            }
            candidates.push_back({difference, place});
        }
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate& a, const Candidate& b) { return a.difference > b.difference; });
    std::vector<Place> chosen;
    for (const auto& [difference, place] : candidates) {
        const bool apart = std::all_of(chosen.begin(), chosen.end(), [&place = place](const Place& other) {
            return std::abs(place.x - other.x) >= place.width || std::abs(place.y - other.y) >= place.height;
        });
        if (apart && chosen.size() < count) {
            chosen.push_back(place);
        }
    }
    return chosen;
}

std::vector<uint8_t> Sweep::luma(size_t variant, const Place& place) {
    configure(model_.get(), variants_[variant]);
    if (cmodel_run_rect(model_.get(), place.x, place.y, place.width, place.height) < 0) {
        throw Cannot(cmodel_error(model_.get()));
    }
    std::vector<uint8_t> samples;
    for (int y = place.y; y < place.y + place.height; ++y) {
        const uint8_t* const row = out_.data() + static_cast<ptrdiff_t>(y) * run_.size().width + place.x;
        samples.insert(samples.end(), row, row + place.width);
    }
    return samples;
}

}  // namespace eetool
