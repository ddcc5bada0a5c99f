/* What the page shows of a rectangle of the frame, in bytes of red, green, blue and 255 ("rgba"), rows
 * without gaps. */
#ifndef PAGE_PICTURE_H
#define PAGE_PICTURE_H

#include "cmodel.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct page_rect {
    int x, y, width, height;
} page_rect;

/* Luma, and chroma of every second column, (width + 1) / 2 to a row: the planes that the model makes of a
 * picture that is bound by its colours. */
void page_planes_of_photo(const uint8_t* rgba, int width, int height, uint8_t* y, uint8_t* cb, uint8_t* cr);

/* A picture to show of 8-bit luma and chroma, by the full-range BT.601 matrix. */
void page_photo_of_planes(const cmodel_plane* luma, const cmodel_plane* cb, const cmodel_plane* cr,
                          uint8_t* rgba);

/* A photograph (rgba, the whole frame) whose luma was `before` and is `after`, planes of 8 bits: each pixel's
 * colours change by what its luma does. */
void page_show_picture(const uint8_t* photo, const cmodel_plane* before, const cmodel_plane* after,
                       const page_rect* rect, uint8_t* rgba);

/* Values in grey as the model's debug views show them, value << shift >> 3, around 128 if signed; shift -8
 * to 15. */
void page_show_values(const cmodel_plane* values, const page_rect* rect, int shift, int is_signed,
                      uint8_t* rgba);

/* Texture classes in the colours of the debug images. */
void page_show_classes(const cmodel_plane* classes, const page_rect* rect, uint8_t* rgba);

/* The mean of each `by` x `by` pixels; what is left over at the right and below is not shown. */
void page_reduce(const uint8_t* rgba, int width, int height, int by, uint8_t* reduced);

/* Twice the shift that suits a stage, plus 1 if it is shown as signed; -1 for an unknown stage. */
int page_stage_view(const char* stage);

/* How often each value is looked up in a curve or table, into bins[0 .. 255]. `b` is of PAGE_HUE and
 * PAGE_AMPLITUDE. */
enum {
    PAGE_CLAMPED = 0,  /* a, clamped to 0..255 */
    PAGE_LOW_BITS = 1, /* the low eight bits of a */
    PAGE_HUE = 2,      /* the hue of blue difference a and red difference b */
    PAGE_AMPLITUDE = 3 /* their amplitude */
};
void page_count(int lookup, const cmodel_plane* a, const cmodel_plane* b, const page_rect* rect,
                uint32_t* bins);

#ifdef __cplusplus
}
#endif

#endif
