// Planes and photographs from image files of any format, as the model object takes them.
#ifndef CMODEL_EETOOL_PLANE_FILES_H
#define CMODEL_EETOOL_PLANE_FILES_H

#include <memory>
#include <string>
#include <vector>

#include "owned_frame.h"
#include "photo_planes.h"
#include "pnm.h"
#include "stage_files.h"

namespace eetool {

// One input of the model: samples in the machine's order, interleaved if it has colours.
struct InputImage {
    std::string name;  // of the input, or "rgb"
    std::string path;
    cm::PackedImage file;
    SampleType type;               // unsigned, of as many bytes as the file has
    std::vector<int32_t> samples;  // where the file has more than a byte each

    const void* data() const {
        return samples.empty() ? file.bytes.get() : static_cast<const void*>(samples.data());
    }
    std::string sha256() const;
};
using Input = std::unique_ptr<InputImage>;

// Reads a plane, or for "rgb" a colour picture of 8 bits. P5 and P6 come as they are; of another format a
// plane is grey, with as many bits as the file has samples of, and of a colour picture given for "ynr" or
// "yfusion" its luma is taken. Alpha has no part in it. If `wait` is set, a file that is not there is waited
// for, which must be P5 or P6 then. Throws Cannot or pictures::Error.
Input read_input(const std::string& name, const std::string& path, bool wait);

// The planes y, cb and cr of a photograph. Throws Cannot or pictures::Error.
std::vector<Input> inputs_of(const pictures::Picture& photo, const std::string& path);

// Reads a photograph; what is odd about its file goes to standard error. Throws Cannot or pictures::Error.
pictures::Picture read_photo(const std::string& path);

// Reads a P5 file (P6 if `colour`), for which it waits as the frame library does, or a picture of another
// format, as read_input() does.
cm::OwnedFrame read_frame(const std::string& path, bool colour);

}  // namespace eetool

#endif
