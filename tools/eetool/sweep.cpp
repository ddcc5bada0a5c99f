// eetool sweep: one photograph under many settings, as a contact sheet and a table.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "contact_sheet.h"
#include "photo_planes.h"
#include "sweep_run.h"

namespace eetool {
namespace {

using pictures::Picture;

struct Options : FrameOptions {
    std::vector<std::string> axes, at;
    std::string out, crop = "200x150";
    size_t places = 1;
    int zoom = 1;
};

constexpr size_t kMostVariants = 1000;
constexpr int kSheetWidth = 1600;  // from which a sweep of one axis goes on in the next row

// KEY=a,b,c: the registers that it names, and the values they take.
struct Axis {
    std::vector<std::string> keys;
    std::string name;
    std::vector<std::string> values;
};

std::vector<std::string> split(const std::string& text, char at) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, at);) {
        parts.push_back(part);
    }
    return parts;
}

// One key, or those of "..._lut_00..07", all members from the first to the last.
std::vector<std::string> keys_of(const std::string& word) {
    const size_t dots = word.find("..");
    if (dots == std::string::npos) {
        return {word};
    }
    const std::string stem = word.substr(0, word.rfind('_', dots) + 1);
    const int first = cmodel_find_register(word.substr(0, dots).c_str());
    const int last = cmodel_find_register((stem + word.substr(dots + 2)).c_str());
    if (first < 0 || last < first) {
        throw CLI::ValidationError(word, "no members of one table, from first to last");
    }
    std::vector<std::string> keys;
    for (int i = first; i <= last; ++i) {
        keys.emplace_back(cmodel_register(i)->key);
    }
    return keys;
}

Axis axis_of(const std::string& word) {
    const size_t equals = word.find('=');
    Axis axis;
    if (equals != std::string::npos) {
        axis.values = split(word.substr(equals + 1), ',');
        for (const std::string& part : split(word.substr(0, equals), '+')) {
            for (const std::string& key : keys_of(part)) {
                if (key != "ini" && cmodel_find_register(key.c_str()) < 0) {
                    throw CLI::ValidationError(word, "there is no register " + key);
                }
                axis.keys.push_back(key);
            }
            constexpr std::string_view kCommon = "reg_ee_";
            axis.name += (axis.name.empty() ? "" : "+") +
                         (part.starts_with(kCommon) ? part.substr(kCommon.size()) : part);
        }
    }
    if (axis.keys.empty() || axis.values.empty()) {
        throw CLI::ValidationError(word, "give KEY=VALUE,VALUE,...");
    }
    return axis;
}

// All combinations, the last axis changing fastest.
std::vector<Variant> variants_of(const std::vector<Axis>& axes) {
    std::vector<Variant> variants(1);
    for (const Axis& axis : axes) {
        std::vector<Variant> longer;
        for (const Variant& variant : variants) {
            for (const std::string& value : axis.values) {
                Variant next = variant;
                for (const std::string& key : axis.keys) {
                    next.assignments.emplace_back(key, value);
                }
                const size_t slash = axis.keys[0] == "ini" ? value.rfind('/') + 1 : 0;
                next.labels.push_back(axis.name + "=" + value.substr(slash));
                longer.push_back(std::move(next));
            }
        }
        variants = std::move(longer);
        if (variants.size() > kMostVariants) {
            throw CLI::ValidationError("KEY=...", "more than " + std::to_string(kMostVariants) + " settings");
        }
    }
    return variants;
}

std::pair<int, int> two_numbers(const std::string& option, const std::string& text, char between) {
    int a = 0, b = 0, end = 0;
    const std::string format = std::string("%9d") + between + "%9d%n";
    if (std::sscanf(text.c_str(), format.c_str(), &a, &b, &end) != 2 ||
        text[static_cast<size_t>(end)] != '\0' || a < 0 || b < 0) {
        throw CLI::ValidationError(option, text + ": give two numbers with " + between + " between them");
    }
    return {a, b};
}

std::vector<Place> places_of(const Options& o, const Sweep& sweep, Size size) {
    const auto [width, height] = two_numbers("--crop", o.crop, 'x');
    if (width == 0 || height == 0) {
        throw CLI::ValidationError("--crop", o.crop + ": a crop has pixels");
    }
    if (o.at.empty()) {
        return sweep.places(o.places, width, height);
    }
    std::vector<Place> places;
    for (const std::string& at : o.at) {
        const auto [x, y] = two_numbers("--at", at, ',');
        if (x >= size.width || y >= size.height) {
            throw CLI::ValidationError("--at", at + " lies outside the photograph of " + size.text());
        }
        Place place{0, 0, std::min(width, size.width), std::min(height, size.height)};
        place.x = std::clamp(x - place.width / 2, 0, size.width - place.width);
        place.y = std::clamp(y - place.height / 2, 0, size.height - place.height);
        places.push_back(place);
    }
    return places;
}

Picture sheet_of(const Picture& photo, Sweep& sweep, const std::vector<Place>& places, size_t columns,
                 int zoom) {
    const auto cell_of = [&](const std::vector<std::string>& labels, const size_t* variant) {
        Cell cell{labels, {}};
        for (const Place& place : places) {
            Picture crop = crop_of(photo, place.x, place.y, place.width, place.height);
            if (variant != nullptr) {
                const pictures::PhotoPlanes planes = pictures::planes_of(crop, "a crop");
                pictures::change_luma(crop, planes.y.get(), sweep.luma(*variant, place).data());
            }
            cell.pictures.push_back(as_rgb8(crop, zoom));
        }
        return cell;
    };
    std::vector<std::vector<Cell>> rows;
    for (size_t i = 0; i < sweep.variants().size(); ++i) {
        if (i % columns == 0) {
            rows.emplace_back();
            rows.back().push_back(cell_of({"before"}, nullptr));
        }
        rows.back().push_back(cell_of(sweep.variants()[i].labels, &i));
    }
    return contact_sheet(rows);
}

void print_table(const std::vector<Variant>& variants, const std::vector<Figures>& figures) {
    size_t longest = 7;
    std::vector<std::string> names;
    for (const Variant& variant : variants) {
        std::string name;
        for (const std::string& label : variant.labels) {
            name += (name.empty() ? "" : " ") + label;
        }
        longest = std::max(longest, name.size());
        names.push_back(name);
    }
    const int width = static_cast<int>(longest);
    std::printf("%-*s  changed %%  at edges  in flat  beyond %%  over  under\n", width, "setting");
    for (size_t i = 0; i < names.size(); ++i) {
        const Figures& f = figures[i];
        std::printf("%-*s  %9.1f  %8.2f  %7.2f  %8.1f  %4d  %5d\n", width, names[i].c_str(), 100 * f.changed,
                    f.edges, f.flat, 100 * f.beyond, f.over, f.under);
    }
}

int run_sweep(const Options& o) {
    std::vector<Axis> axes;
    for (const std::string& word : o.axes) {
        axes.push_back(axis_of(word));
    }
    std::vector<Variant> variants = variants_of(axes);
    if (!o.out.empty()) {
        pictures::require_format(o.out, 3, 255);
        if (!can_write(o.out)) {
            return report_cannot("written", o.out);
        }
    }
    ModelRun run(o);
    Sweep sweep(run, o.instance, std::move(variants));
    const bool terminal = isatty(STDERR_FILENO) == 1;
    const std::vector<Figures> figures = sweep.run([&](size_t done) {
        if (terminal) {
            std::fprintf(stderr, "\r%zu of %zu settings%s", done, sweep.variants().size(),
                         done == sweep.variants().size() ? "\r\033[K" : "");
        }
    });
    const std::vector<Place> places = places_of(o, sweep, run.size());
    if (!o.out.empty()) {
        // A row for each combination of the other axes; of one axis as many as stand on a sheet.
        size_t columns = axes.back().values.size();
        if (axes.size() == 1) {
            const auto cell = static_cast<size_t>(places[0].width * o.zoom) * places.size();
            columns = std::min(columns, std::max(kSheetWidth / std::max(cell, size_t{1}), size_t{2}) - 1);
        }
        pictures::write_picture(o.out, sheet_of(*run.photo(), sweep, places, columns, o.zoom));
    }
    print_table(sweep.variants(), figures);
    for (const Place& place : places) {
        std::printf("crop at %d,%d: %dx%d pixels around it\n", place.x + place.width / 2,
                    place.y + place.height / 2, place.width, place.height);
    }
    return std::fflush(stdout) == 0 ? kOk : report_cannot("written", "standard output");
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    declare_frame_options(app, *o);
    for (const char* const option : {"--log-level", "--log", "--wait", "--rgb", "--y", "--cb", "--cr"}) {
        app.remove_option(app.get_option(option));
    }
    app.get_option("--photo")->required();
    app.add_option("axes", o->axes, "registers and the values that they take")
        ->option_text("KEY=VALUE,... (required)")
        ->required();
    app.add_option("--out", o->out, "the contact sheet: .png, .jpg, .tif or .ppm")->option_text("FILE");
    app.add_option("--crop", o->crop, "size of the crops")->option_text("WIDTHxHEIGHT [200x150]");
    app.add_option("--zoom", o->zoom, "pixels of the sheet for one of the photograph, each way")
        ->option_text("N [1]")
        ->check(CLI::Range(1, 8));
    app.add_option("--at", o->at,
                   "centre of a crop; may be repeated. Without it the crop is where the settings differ most")
        ->option_text("X,Y")
        ->allow_extra_args(false);
    app.add_option("--places", o->places, "how many such crops")
        ->option_text("N [1]")
        ->check(CLI::Range(1, 16))
        ->excludes("--at");
    return [o] { return run_sweep(*o); };
}

}  // namespace

const Command kSweep = {
    "sweep", "Run a photograph under many settings: a contact sheet and a table",
    "  eetool pattern scene --rgb photo.ppm\n"
    "  eetool sweep --photo photo.ppm reg_ee_total_gain=8,32,64 --out sheet.png\n"
    "  eetool sweep --photo photo.ppm reg_ee_delta_adptctrl_lut_00..04=0,16 --at 80,60 --at 240,180\n"
    "  eetool sweep --photo photo.ppm reg_ee_total_oshtthrd+reg_ee_total_ushtthrd=2,16\n",
    "Keys joined by + take one value together, and so do the members A..B of a table; ini=FILE,FILE loads\n"
    "register files. Of two axes and more every combination is run. The table, against what was sharpened:\n"
    "the share of samples that change; their mean change at edges (where the 5x5 window has a range of 48\n"
    "codes or more) and in flat areas (16 or less); the share of samples beyond the extremes of that "
    "window,\n"
    "and how far above and below them the farthest are.\n",
    declare};

}  // namespace eetool
