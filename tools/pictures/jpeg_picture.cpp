// JPEG by libjpeg-turbo. Its errors come back by longjmp(), over frames that have nothing to destroy.
#include <cstdio>
// jpeglib.h needs <cstdio> before it.
#include <jerror.h>
#include <jpeglib.h>

#include <csetjmp>
#include <cstring>

#include "picture_formats.h"

namespace pictures {
namespace {

constexpr int kQuality = 95;
constexpr int kExif = JPEG_APP0 + 1, kIcc = JPEG_APP0 + 2;

struct Errors {
    jpeg_error_mgr base;  // first, so that the library's pointer is one to all
    std::jmp_buf back;
    char text[JMSG_LENGTH_MAX];
    char remark[JMSG_LENGTH_MAX];
};

[[noreturn]] void leave(j_common_ptr info) {
    auto* const errors = reinterpret_cast<Errors*>(info->err);
    info->err->format_message(info, errors->text);
    std::longjmp(errors->back, 1);
}

// A warning stands for samples that are made up, but for these two.
void on_message(j_common_ptr info, int level) {
    if (level >= 0 || info->err->msg_code == JWRN_JFIF_MAJOR) {
        return;
    }
    if (info->err->msg_code != JWRN_EXTRANEOUS_DATA) {
        leave(info);
    }
    info->err->format_message(info, reinterpret_cast<Errors*>(info->err)->remark);
}

jpeg_error_mgr* prepare(Errors& errors) {
    jpeg_std_error(&errors.base);
    errors.base.error_exit = leave;
    errors.base.emit_message = on_message;
    errors.text[0] = errors.remark[0] = '\0';
    return &errors.base;
}

// Whether the call came to its end; errors.text says why not.
template <typename Call>
bool succeeds(Errors& errors, const Call& call) {
    if (setjmp(errors.back) != 0) {  // NOLINT(cert-err52-cpp): the library knows no other way
        return false;
    }
    call();
    return true;
}

struct Reader {
    jpeg_decompress_struct info{};
    Errors errors;

    Reader() { info.err = prepare(errors); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader() { jpeg_destroy_decompress(&info); }
};

int orientation_of(const jpeg_decompress_struct& info) {
    constexpr char kName[] = "Exif\0";  // and the 0 that ends it
    for (const jpeg_marker_struct* m = info.marker_list; m != nullptr; m = m->next) {
        if (m->marker == kExif && m->data_length > sizeof kName &&
            std::memcmp(m->data, kName, sizeof kName) == 0) {
            return exif_orientation(m->data + sizeof kName, m->data_length - sizeof kName);
        }
    }
    return 1;
}

struct Writer {
    jpeg_compress_struct info{};
    Errors errors;
    unsigned char* bytes = nullptr;
    unsigned long size = 0;

    Writer() { info.err = prepare(errors); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer() {
        jpeg_destroy_compress(&info);
        std::free(bytes);
    }
};

}  // namespace

Stored read_jpeg(const Source& source) {
    Reader reader;
    jpeg_decompress_struct& info = reader.info;
    const auto require = [&](bool succeeded) {
        if (!succeeded) {
            source.fail(reader.errors.text);
        }
    };
    require(succeeds(reader.errors, [&] {
        jpeg_create_decompress(&info);
        jpeg_save_markers(&info, kExif, 0xffff);
        jpeg_save_markers(&info, kIcc, 0xffff);
        jpeg_mem_src(&info, source.bytes, source.size);
        jpeg_read_header(&info, TRUE);
    }));
    const bool grey = info.jpeg_color_space == JCS_GRAYSCALE;
    if (!grey && info.jpeg_color_space != JCS_YCbCr && info.jpeg_color_space != JCS_RGB) {
        source.fail(info.num_components == 4 ? "has CMYK colours; convert it to RGB first"
                                             : "has colours of an unknown kind");
    }
    info.out_color_space = grey ? JCS_GRAYSCALE : JCS_RGB;
    Stored stored{source.room(info.image_width, info.image_height, grey ? 1 : 3, 255), orientation_of(info)};
    Picture& picture = stored.picture;
    JOCTET* icc = nullptr;
    unsigned icc_size = 0;
    const bool whole = succeeds(reader.errors, [&] {
        jpeg_read_icc_profile(&info, &icc, &icc_size);
        jpeg_start_decompress(&info);
        while (info.output_scanline < info.output_height) {
            JSAMPROW rows[4];
            for (int i = 0; i < 4; ++i) {
                const int y = static_cast<int>(info.output_scanline) + i;
                rows[i] = picture.row<uint8_t>(y < picture.height ? y : picture.height - 1);
            }
            const JDIMENSION left = info.output_height - info.output_scanline;
            jpeg_read_scanlines(&info, rows, left < 4 ? left : 4);
        }
        jpeg_finish_decompress(&info);
    });
    const Memory profile(icc);
    require(whole);
    if (icc != nullptr) {
        picture.icc.assign(icc, icc + icc_size);
    }
    picture.remark = reader.errors.remark;
    return stored;
}

Bytes write_jpeg(const std::string& name, const Picture& picture) {
    Writer writer;
    jpeg_compress_struct& info = writer.info;
    const bool written = succeeds(writer.errors, [&] {
        jpeg_create_compress(&info);
        jpeg_mem_dest(&info, &writer.bytes, &writer.size);
        info.image_width = static_cast<JDIMENSION>(picture.width);
        info.image_height = static_cast<JDIMENSION>(picture.height);
        info.input_components = picture.channels;
        info.in_color_space = picture.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
        jpeg_set_defaults(&info);
        jpeg_set_quality(&info, kQuality, TRUE);
        info.comp_info[0].h_samp_factor = info.comp_info[0].v_samp_factor = 1;
        jpeg_start_compress(&info, TRUE);
        if (!picture.icc.empty()) {
            jpeg_write_icc_profile(&info, picture.icc.data(), static_cast<unsigned>(picture.icc.size()));
        }
        while (info.next_scanline < info.image_height) {
            auto* row = const_cast<JSAMPROW>(picture.row<uint8_t>(static_cast<int>(info.next_scanline)));
            jpeg_write_scanlines(&info, &row, 1);
        }
        jpeg_finish_compress(&info);
    });
    if (!written) {
        throw Error(name + ": " + writer.errors.text);
    }
    return {writer.bytes, writer.bytes + writer.size};
}

}  // namespace pictures
