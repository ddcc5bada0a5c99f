// Where a pipeline's rows come from and go to: frames, files, samples that were kept, callers' arrays.
#ifndef CMODEL_ROW_SOURCE_H
#define CMODEL_ROW_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "colour.h"
#include "common.h"
#include "mirror.h"
#include "pnm.h"

namespace cm {

// A rectangle of a picture.
struct Area {
    int x, y, width, height;
};

// One channel of a picture, read a piece of a row at a time. What it reads from stays its owner's.
class RowSource {
  public:
    RowSource(int width, int height, int depth) : width_(width), height_(height), depth_(depth) {}
    virtual ~RowSource() = default;

    int width() const { return width_; }
    int height() const { return height_; }
    int depth() const { return depth_; }

    // Samples x .. x + count - 1 of row y, both reflected against the source's own size. Samples that do
    // not fit T keep their low bits.
    template <typename T>
    void read(int64_t y, int64_t x, int count, T* dst) const {
        const int own_y = mirror(y, height_);
        const int inside = x < width_ ? static_cast<int>(width_ - x < count ? width_ - x : count) : 0;
        if (inside > 0) {
            read_inside(own_y, static_cast<int>(x), inside, dst);
        }
        for (int i = inside; i < count; ++i) {
            read_inside(own_y, mirror(x + i, width_), 1, dst + i);
        }
    }

    // Whether every sample of an area, as read() gives it, lies within low .. high.
    virtual bool within(int32_t low, int32_t high, const Area& area) const;
    bool within(int32_t low, int32_t high) const { return within(low, high, {0, 0, width_, height_}); }

  protected:
    RowSource(const RowSource&) = default;
    RowSource& operator=(const RowSource&) = default;

  private:
    virtual void read_inside(int y, int x, int count, int32_t* dst) const = 0;
    virtual void read_inside(int y, int x, int count, int16_t* dst) const = 0;

    int width_;
    int height_;
    int depth_;
};

// One channel of a frame.
class FrameSource : public RowSource {
  public:
    explicit FrameSource(const FRAME& frame, int channel = 0)
        : RowSource(static_cast<int>(frame.width), static_cast<int>(frame.height), frame.depth),
          data_(frame.data + channel),
          step_(frame.channels) {}

  private:
    void read_inside(int y, int x, int count, int32_t* dst) const override;
    void read_inside(int y, int x, int count, int16_t* dst) const override;

    const int32_t* data_;
    size_t step_;
};

// A grey image as it came from its file.
class PackedSource : public RowSource {
  public:
    explicit PackedSource(const PackedImage& image)
        : RowSource(static_cast<int>(image.width), static_cast<int>(image.height), image.depth),
          image_(image) {}
    bool within(int32_t low, int32_t high, const Area& area) const override;

  private:
    void read_inside(int y, int x, int count, int32_t* dst) const override;
    void read_inside(int y, int x, int count, int16_t* dst) const override;

    const PackedImage& image_;
};

// A luma or chroma component, computed from three colour channels of one size. Every `column_step`-th column
// counts.
class ColourSource : public RowSource {
  public:
    enum Component { kLuma, kCb, kCr };
    ColourSource(const RowSource& red, const RowSource& green, const RowSource& blue, Component component,
                 int column_step = 1)
        : RowSource((red.width() - 1) / column_step + 1, red.height(), red.depth()),
          red_(red),
          green_(green),
          blue_(blue),
          component_(component),
          column_step_(column_step) {}
    bool within(int32_t low, int32_t high, const Area& area) const override;

  private:
    template <typename T>
    void convert(int y, int x, int count, T* dst) const;
    void read_inside(int y, int x, int count, int32_t* dst) const override { convert(y, x, count, dst); }
    void read_inside(int y, int x, int count, int16_t* dst) const override { convert(y, x, count, dst); }

    const RowSource& red_;
    const RowSource& green_;
    const RowSource& blue_;
    Component component_;
    int column_step_;
};

// A channel of a colour image as it came from its file.
class PackedChannelSource : public RowSource {
  public:
    PackedChannelSource(const PackedImage& image, int channel)
        : RowSource(static_cast<int>(image.width), static_cast<int>(image.height), image.depth),
          image_(image),
          channel_(channel) {}

  private:
    void read_inside(int y, int x, int count, int32_t* dst) const override;
    void read_inside(int y, int x, int count, int16_t* dst) const override;

    const PackedImage& image_;
    int channel_;
};

// One value everywhere.
class ConstantSource : public RowSource {
  public:
    ConstantSource(int width, int height, int depth, int32_t value)
        : RowSource(width, height, depth), value_(value) {}
    bool within(int32_t low, int32_t high, const Area&) const override {
        return value_ >= low && value_ <= high;
    }

  private:
    void read_inside(int, int, int count, int32_t* dst) const override { std::fill_n(dst, count, value_); }
    void read_inside(int, int, int count, int16_t* dst) const override {
        std::fill_n(dst, count, static_cast<int16_t>(value_));
    }

    int32_t value_;
};

// Where rows go, one after another, as 32-bit or 16-bit samples.
class RowSink {
  public:
    virtual ~RowSink() = default;
    virtual void put(int y, const int32_t* row) = 0;
    virtual void put(int y, const int16_t* row) = 0;

  protected:
    RowSink() = default;
    RowSink(const RowSink&) = default;
    RowSink& operator=(const RowSink&) = default;
};

// Channel 0 of a frame, over the frame's width.
class FrameSink : public RowSink {
  public:
    explicit FrameSink(FRAME& frame) : frame_(frame) {}
    void put(int y, const int32_t* row) override;
    void put(int y, const int16_t* row) override;

  private:
    FRAME& frame_;
};

// Bytes, one a sample; bits above the eighth are dropped as by the file writers.
class ByteSink : public RowSink {
  public:
    ByteSink(uint8_t* bytes, int width) : bytes_(bytes), width_(width) {}
    void put(int y, const int32_t* row) override;
    void put(int y, const int16_t* row) override;

  private:
    uint8_t* row_at(int y) { return bytes_ + static_cast<size_t>(y) * static_cast<size_t>(width_); }

    uint8_t* bytes_;
    int width_;
};

// A plane that is kept whole for a debug image: what a picture of it shows, in 16 bits (deltas, which
// saturate far below, and maps), or every sample as it is.
class KeptPlane : public RowSink, public RowSource {
  public:
    enum Precision { kPicture, kSamples };

    // No memory ends the program.
    KeptPlane(int width, int height, int depth, Precision precision);
    void put(int y, const int32_t* row) override;
    void put(int y, const int16_t* row) override;

  private:
    template <typename T>
    void copy_inside(int y, int x, int count, T* dst) const;
    void read_inside(int y, int x, int count, int32_t* dst) const override { copy_inside(y, x, count, dst); }
    void read_inside(int y, int x, int count, int16_t* dst) const override { copy_inside(y, x, count, dst); }
    size_t at(int y, int x) const {
        return static_cast<size_t>(y) * static_cast<size_t>(width()) + static_cast<size_t>(x);
    }

    // One of the two.
    std::unique_ptr<int16_t[], FreeBytes> picture_;
    std::unique_ptr<int32_t[], FreeBytes> samples_;
};

}  // namespace cm

#endif
