// Planes of the caller's as row sources and sinks.
#ifndef CMODEL_PLANE_ARRAY_H
#define CMODEL_PLANE_ARRAY_H

#include "cmodel.h"
#include "row_source.h"

namespace cm {

// Bytes of a sample type, 0 for an unknown one, and the values that it holds.
int bytes_of_type(int type);
bool type_holds(int type, int64_t least, int64_t greatest);

class ArraySource : public RowSource {
  public:
    explicit ArraySource(const cmodel_plane& plane)
        : RowSource(plane.width, plane.height, plane.depth), plane_(plane) {}
    bool within(int32_t low, int32_t high, const Area& area) const override;

  private:
    void read_inside(int y, int x, int count, int32_t* dst) const override;
    void read_inside(int y, int x, int count, int16_t* dst) const override;

    cmodel_plane plane_;
};

// Takes rows of a rectangle that begins at column x and is `width` wide.
class ArraySink : public RowSink {
  public:
    ArraySink(const cmodel_plane& plane, int x, int width) : plane_(plane), x_(x), width_(width) {}
    void put(int y, const int32_t* row) override;
    void put(int y, const int16_t* row) override;

    // Whether a value did not fit the type.
    bool has_lost() const { return lost_; }

  private:
    cmodel_plane plane_;
    int x_, width_;
    bool lost_ = false;
};

}  // namespace cm

#endif
