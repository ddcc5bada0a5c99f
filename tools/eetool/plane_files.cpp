#include "plane_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>

namespace eetool {
namespace {

using pictures::Picture;

// Takes over the samples of a picture; of its channels the first `channels`, grey or colours.
cm::PackedImage packed(Picture picture, int channels) {
    cm::PackedImage image;
    image.width = static_cast<uint32_t>(picture.width);
    image.height = static_cast<uint32_t>(picture.height);
    image.channels = static_cast<uint32_t>(channels);
    image.max_value = static_cast<uint32_t>(picture.max);
    image.depth = static_cast<int>(std::bit_width(static_cast<unsigned>(picture.max) - 1));
    image.sample_bytes = picture.sample_bytes();
    uint8_t* const bytes = picture.memory.release();
    image.bytes = cm::Bytes(bytes);
    const auto all = static_cast<size_t>(picture.channels), kept = static_cast<size_t>(channels);
    const auto size = static_cast<size_t>(image.sample_bytes);
    if (all != kept) {
        for (size_t i = 0; i < picture.pixels(); ++i) {
            std::memmove(bytes + i * kept * size, bytes + i * all * size, kept * size);
        }
    }
    image.present = image.samples() * size;
    if (size == 2 && std::endian::native == std::endian::little) {
        for (size_t i = 0; i < image.present; i += 2) {
            std::swap(bytes[i], bytes[i + 1]);
        }
    }
    return image;
}

cm::PackedImage read_picture_as(const std::string& name, const std::string& path) {
    Picture picture = read_photo(path);
    const bool colour = name == "rgb", by_luma = name == "ynr" || name == "yfusion";
    if (colour && picture.colours() != 3) {
        throw Cannot(path + " is grey; a colour picture is wanted");
    }
    if (!colour && picture.colours() == 3) {
        if (!by_luma) {
            throw Cannot(path + " has colours; a grey picture is wanted");
        }
        picture = pictures::luma_of(picture, path);
    }
    return packed(std::move(picture), colour ? 3 : 1);
}

cm::PackedImage read_pnm_as(const std::string& name, const std::string& path) {
    const bool colour = name == "rgb";
    cm::PackedImage file = cm::read_pnm(path.c_str(), colour ? cm::PnmKind::kColour : cm::PnmKind::kGrey,
                                        colour ? cm::at::kReadColour : cm::at::kReadGrey);
    if (!file.complete()) {
        throw Cannot(path + " ends early: " + std::to_string(file.present) + " of " +
                     std::to_string(file.samples() * static_cast<size_t>(file.sample_bytes)) +
                     " bytes of samples");
    }
    return file;
}

// The library's readers wait for what they cannot open.
void require_readable(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        throw Cannot(path + " cannot be read: " + std::strerror(errno));
    }
    close(fd);
}

Input new_input(const std::string& name, const std::string& path, cm::PackedImage file) {
    auto image = std::make_unique<InputImage>();
    image->name = name;
    image->path = path;
    image->file = std::move(file);
    image->type = {std::max(image->file.sample_bytes, 1), false, false};
    if (image->file.sample_bytes != 1) {
        image->samples.resize(image->file.samples());
        for (uint32_t y = 0; y < image->file.height && name != "rgb"; ++y) {
            image->file.read_row(y, 0, 0, image->file.width,
                                 image->samples.data() + size_t{y} * image->file.width);
        }
    }
    return image;
}

}  // namespace

std::string InputImage::sha256() const {
    if (samples.empty()) {
        return sha256_of(data(), file.samples(), type);
    }
    std::vector<uint8_t> packed_samples;
    for (const int32_t v : samples) {
        for (int shift = 8 * (type.bytes - 1); shift >= 0; shift -= 8) {
            packed_samples.push_back(static_cast<uint8_t>(static_cast<uint32_t>(v) >> shift));
        }
    }
    return sha256_of(packed_samples.data(), packed_samples.size(), {1, false, false});
}

Input read_input(const std::string& name, const std::string& path, bool wait) {
    if (!wait) {
        require_readable(path);
    }
    const pictures::Kind kind = pictures::kind_of(path);
    const bool plain = kind != pictures::Kind::kCompressed && (kind != pictures::Kind::kPpm || name == "rgb");
    return new_input(name, path, plain ? read_pnm_as(name, path) : read_picture_as(name, path));
}

std::vector<Input> inputs_of(const Picture& photo, const std::string& path) {
    pictures::PhotoPlanes planes = pictures::planes_of(photo, path);
    std::vector<Input> inputs;
    const auto add = [&](const char* name, int width, pictures::Memory& samples) {
        cm::PackedImage image;
        image.width = static_cast<uint32_t>(width);
        image.height = static_cast<uint32_t>(planes.height);
        image.channels = 1;
        image.max_value = 255;
        image.depth = 8;
        image.sample_bytes = 1;
        image.present = image.samples();
        image.bytes = cm::Bytes(samples.release());
        inputs.push_back(new_input(name, path, std::move(image)));
    };
    add("y", planes.width, planes.y);
    add("cb", planes.chroma_width, planes.cb);
    add("cr", planes.chroma_width, planes.cr);
    return inputs;
}

Picture read_photo(const std::string& path) {
    Picture photo = pictures::read_picture(path);
    if (!photo.remark.empty()) {
        std::fprintf(stderr, "eetool: %s: %s\n", path.c_str(), photo.remark.c_str());
    }
    return photo;
}

cm::OwnedFrame read_frame(const std::string& path, bool colour) {
    constexpr int kFileType = 2;
    if (pictures::kind_of(path) != pictures::Kind::kCompressed) {
        return cm::OwnedFrame((colour ? CM_ReadPPM : CM_ReadPPM5)(path.c_str(), kFileType));
    }
    const cm::PackedImage image = read_picture_as(colour ? "rgb" : "y", path);
    cm::OwnedFrame frame(CM_NewFRAME(kFileType, colour ? CM_FORMAT_RGB : CM_FORMAT_SINGLE, image.width,
                                     image.height, image.channels, image.depth));
    std::vector<int32_t> row(image.width);
    for (uint32_t y = 0; y < image.height; ++y) {
        for (uint32_t c = 0; c < image.channels; ++c) {
            image.read_row(y, c, 0, image.width, row.data());
            for (uint32_t x = 0; x < image.width; ++x) {
                frame->data[(size_t{y} * image.width + x) * image.channels + c] = row[x];
            }
        }
    }
    return frame;
}

}  // namespace eetool
