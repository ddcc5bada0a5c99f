// eetool planes: the six planes of a photograph for pre_ee_main.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "plane_files.h"

namespace eetool {
namespace {

struct Options {
    std::string photo, dir, ynr, motion, fusion;
};

struct Plane {
    std::string file;
    const cm::PackedImage* image;
};

// One of the planes beside luma and chroma: of luma's size, with `least` to `most` bits.
Input read_beside(const char* name, const std::string& path, const cm::PackedImage& luma, int least,
                  int most) {
    Input input = read_input(name, path, false);
    const cm::PackedImage& file = input->file;
    if (file.width != luma.width || file.height != luma.height) {
        throw Cannot(path + " is " + std::to_string(file.width) + "x" + std::to_string(file.height) +
                     " but the photograph is " + std::to_string(luma.width) + "x" +
                     std::to_string(luma.height));
    }
    if (file.depth < least || file.depth > most) {
        throw Cannot(path + " has " + std::to_string(file.depth) + " bits a sample; the block takes " +
                     std::to_string(least) + (least < most ? " to " + std::to_string(most) : ""));
    }
    return input;
}

int write_planes(const Options& o) {
    const std::vector<Input> photo = inputs_of(read_photo(o.photo), o.photo);
    const cm::PackedImage& luma = photo[0]->file;
    Input ynr, motion, fusion;
    cm::PackedImage still;
    if (!o.ynr.empty()) {
        ynr = read_beside("ynr", o.ynr, luma, 8, 8);
    }
    if (!o.motion.empty()) {
        motion = read_beside("mmap", o.motion, luma, 8, 8);
    } else {
        still.depth = 8;
        still.bytes = cm::allocate_bytes(luma.samples());
        std::memset(still.bytes.get(), 0, luma.samples());
    }
    still.width = luma.width;
    still.height = luma.height;
    if (!o.fusion.empty()) {
        fusion = read_beside("yfusion", o.fusion, luma, 8, 20);
    }
    if (mkdir(o.dir.c_str(), 0777) != 0 && errno != EEXIST) {
        throw Cannot(o.dir + " cannot be made: " + std::strerror(errno));
    }
    const Plane planes[] = {{"y.pgm", &luma},
                            {"cb.pgm", &photo[1]->file},
                            {"cr.pgm", &photo[2]->file},
                            {"src_ynr.pgm", ynr ? &ynr->file : &luma},
                            {"mmap.pgm", motion ? &motion->file : &still},
                            {"yfusion.pgm", fusion ? &fusion->file : &luma}};
    for (const Plane& plane : planes) {
        const std::string path = o.dir + "/" + plane.file;
        if (!can_write(path)) {
            return report_cannot("written", path);
        }
    }
    for (const Plane& plane : planes) {
        cm::write_pgm((o.dir + "/" + plane.file).c_str(), plane.image->width, plane.image->height,
                      plane.image->depth, plane.image->bytes.get());
    }
    return kOk;
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    app.add_option("photo", o->photo, "JPEG, PNG, TIFF, PPM or PGM")->option_text("(required)")->required();
    app.add_option("directory", o->dir, "where the planes go; it is made if it is not there")
        ->option_text("(required)")
        ->required();
    app.add_option("--ynr", o->ynr, "noise-reduced luma, 8 bits; without it luma itself")
        ->option_text("FILE");
    app.add_option("--motion", o->motion, "motion map, 8 bits; without it nothing moves")
        ->option_text("FILE");
    app.add_option("--fusion", o->fusion, "fused luma, 8 to 20 bits; without it luma itself")
        ->option_text("FILE");
    return [o] { return write_planes(*o); };
}

}  // namespace

const Command kPlanes = {
    "planes", "Write the six planes of a photograph for pre_ee_main",
    "  eetool pattern checkerboard --rgb photo.ppm\n"
    "  eetool pattern star --y motion.pgm\n"
    "  eetool planes photo.ppm planes --motion motion.pgm\n",
    "The files are y.pgm, cb.pgm, cr.pgm, src_ynr.pgm, mmap.pgm and yfusion.pgm, in P5. A plane may be a "
    "file\n"
    "of any of the formats of photographs; of one with colours, for --ynr and --fusion, luma is taken.\n",
    declare};

}  // namespace eetool
