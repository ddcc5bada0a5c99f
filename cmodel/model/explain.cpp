// The text of a pixel: every stage, and what decided it.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <utility>

#include "mirror.h"
#include "model.h"
#include "reasons.h"

namespace {

using namespace cm;

// A run that failed; the model has the text.
struct Failed {
    int status;
};

// All planes at single pixels, each made by a run of that pixel alone. What the caller bound to be written
// and the log are set aside meanwhile; the first pixel gives the records of a run.
class Pixels {
  public:
    Pixels(cmodel& m, int width, int height) : m_(m), log_(m.log), width_(width), height_(height) {
        std::swap(stage_, m_.stage);
        std::swap(output_, m_.output);
        const Variant variant = variant_of(*m_.pipeline, m_.registers);
        const auto is_there = [&](Plane plane) {
            return plane == Plane::y || plane == Plane::ynr || plane == Plane::mmap ||
                   (plane == Plane::yfusion && variant == kTexture) || find_writer(plane, variant) != nullptr;
        };
        for (int i = 0; i < kPlanes; ++i) {
            if (is_there(static_cast<Plane>(i))) {
                // All samples lie at one place: a run writes one of them.
                m_.stage[i] = cmodel_plane{nullptr, CMODEL_S32, width, height, 0, 0, 32};
            }
        }
    }
    Pixels(const Pixels&) = delete;
    Pixels& operator=(const Pixels&) = delete;
    ~Pixels() {
        std::swap(stage_, m_.stage);
        std::swap(output_, m_.output);
        m_.log = log_;
    }

    int32_t at(const char* name, int x, int y) {
        for (int i = 0; i < kPlanes; ++i) {
            if (std::strcmp(kPlaneTable[i].name, name) == 0) {
                return values_at(mirror(x, width_), mirror(y, height_))[static_cast<size_t>(i)];
            }
        }
        return 0;
    }

  private:
    using Values = std::array<int32_t, kPlanes>;

    const Values& values_at(int x, int y) {
        const auto [known, is_new] = known_.try_emplace({x, y});
        Values& values = known->second;
        if (is_new) {
            for (int i = 0; i < kPlanes; ++i) {
                if (m_.stage[i]) {
                    m_.stage[i]->data = &values[static_cast<size_t>(i)];
                }
            }
            const int status = cmodel_run_rect(&m_, x, y, 1, 1);
            m_.log = nullptr;
            if (status < 0) {
                throw Failed{status};
            }
        }
        return values;
    }

    cmodel& m_;
    std::optional<cmodel_plane> stage_[kPlanes], output_;
    void (*log_)(void* user, int level, const char* text);
    int width_, height_;
    std::map<std::pair<int, int>, Values> known_;
};

void add_plane(std::string& text, const char* name, int32_t value, const char* unit, const char* meaning) {
    char columns[80];
    std::snprintf(columns, sizeof columns, "%-16s %8d  %-12s ", name, value, unit);
    text.append(columns).append(meaning).append("\n");
}

void add_line(std::string& text, const std::string& line) {
    text.append(26, ' ').append(line).append("\n");
}

// Of a list of keys the names; a curve or table has one.
std::string names_of(const std::string& keys) {
    std::string names;
    for (size_t first = 0, end; first < keys.size(); first = end + 1) {
        end = std::min(keys.find(' ', first), keys.size());
        const std::string key = keys.substr(first, end - first);
        const RegRow& row = kRegTable[find_register(key.c_str())];
        if (row.group == kSingle) {
            names.append(" ").append(key);
        } else if (row.place == 0) {
            names.append(" ").append(key, 0, key.rfind("_lut_") + 4);
        }
    }
    return names;
}

std::string explain(cmodel& m, int x, int y) {
    if (m.registers[reg_ee_enable] != 1) {
        throw Failed{
            m.fail(CMODEL_NOT_READY, "the block is off (reg_ee_enable = 0): there is nothing to explain")};
    }
    const std::optional<cmodel_plane>& y_plane = m.input[index_of(Plane::y)];
    const std::optional<cmodel_plane>& luma = y_plane ? y_plane : m.input[kRed];
    if (!luma) {
        throw Failed{cmodel_run(&m)};  // fails, and says what is missing
    }
    if (x < 0 || y < 0 || x >= luma->width || y >= luma->height) {
        throw Failed{m.fail(CMODEL_BAD_ARGUMENT, "pixel (%d, %d) lies outside the frame of %dx%d", x, y,
                            luma->width, luma->height)};
    }
    const bool classic = m.pipeline == &kClassicEe;
    const int mode = m.registers[reg_ee_texture_mode];
    Pixels pixels(m, luma->width, luma->height);
    const Pixel pixel{classic,
                      [&](const char* name, int dx, int dy) { return pixels.at(name, x + dx, y + dy); },
                      [&](const std::string& key) { return m.registers[find_register(key.c_str())]; }};
    char title[160];
    std::snprintf(title, sizeof title,
                  classic ? "pixel %d, %d of %dx%d, pipeline %s\n"
                          : "pixel %d, %d of %dx%d, pipeline %s, texture mode %d\n",
                  x, y, luma->width, luma->height, m.pipeline->name, mode);
    std::string text = title;
    add_plane(text, "y", pixel.plane("y"), "code", "input: luma");
    add_plane(text, "ynr", pixel.plane("ynr"), "code", "input: noise-reduced luma, which is sharpened");
    add_plane(text, "mmap", pixel.plane("mmap"), "motion", "input: motion map");
    if (!classic && mode == 1) {
        add_plane(text, "yfusion", pixel.plane("yfusion"), "code", "input: fused luma");
    }
    const int stages = cmodel_stage_count(m.pipeline->name);
    if (stages == 0) {
        throw std::bad_alloc();
    }
    for (int i = 0; i < stages; ++i) {
        const cmodel_stage_info& info = *cmodel_stage(m.pipeline->name, i);
        const cmodel_making& making = info.making[mode];
        if (making.block == nullptr) {
            continue;
        }
        add_plane(text, info.name, pixel.plane(info.name), info.unit, info.meaning);
        for (const std::string& reason : reasons_of(info.name, pixel)) {
            add_line(text, reason);
        }
        if (making.registers[0] != '\0') {
            add_line(text, "turn:" + names_of(making.registers));
        }
    }
    return text;
}

}  // namespace

int cmodel_explain(cmodel* model, int x, int y, char* text, size_t size) try {
    if (model == nullptr || (text == nullptr && size > 0)) {
        return model == nullptr ? CMODEL_BAD_ARGUMENT
                                : model->fail(CMODEL_BAD_ARGUMENT, "nowhere to put the text");
    }
    const std::string whole = explain(*model, x, y);
    if (size > 0) {
        const size_t length = std::min(whole.size(), size - 1);
        std::memcpy(text, whole.data(), length);
        text[length] = '\0';
    }
    return static_cast<int>(whole.size());
} catch (const Failed& failed) {
    return failed.status;
} catch (const std::bad_alloc&) {
    return model->fail(CMODEL_NO_MEMORY, "no memory for the text of a pixel");
}
