/*
 * The model as an object: registers, planes and messages of its own, no files unless asked for, no global
 * state.
 *
 * A model is made for one pipeline, given registers and planes, and run: on a whole frame or on any rectangle
 * of one. Samples stay the caller's; inputs, output and wanted stages are read and written in place. Every
 * call that can fail returns a negative number then, changes nothing that the caller sees but where it says
 * so, and leaves a text in cmodel_error(). No call ends the process, waits, or writes to standard output or
 * error; a model that failed works on.
 *
 * Two models share nothing that changes, so each may run in a thread of its own. One model is used by one
 * thread at a time. This header compiles as C11 and as C++20.
 *
 *     cmodel* m;
 *     cmodel_new("pre_ee", &m);
 *     cmodel_set(m, "reg_ee_texture_mode", 0);
 *     cmodel_set(m, "reg_ee_total_gain", 64);
 *     cmodel_plane y = {samples, CMODEL_U8, width, height, width, 1, 8};
 *     cmodel_bind_input(m, "y", &y);
 *     ...
 *     if (cmodel_run(m) < 0) puts(cmodel_error(m));
 *     cmodel_free(m);
 */
#ifndef CMODEL_H
#define CMODEL_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define CMODEL_API __attribute__((visibility("default")))
#else
#define CMODEL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A number that changes with the binary interface: compare it with cmodel_abi() of the library that was
 * loaded. */
#define CMODEL_ABI 1
CMODEL_API int cmodel_abi(void);

/* Version and commit, "1.0.0 (commit 0123456789ab)"; static. */
CMODEL_API const char* cmodel_version(void);

/* What calls return when they fail. */
enum {
    CMODEL_BAD_ARGUMENT =
        -1, /* a name, size, type, depth or value that cannot be; null where something must be */
    CMODEL_NO_MEMORY = -2,
    CMODEL_NOT_READY =
        -3, /* a run without what its setting needs: a plane that is not bound, sizes that differ */
    CMODEL_BAD_FILE = -4 /* a file that cannot be read to its end */
};

/* ---- Models -------------------------------------------------------------------------------- */

typedef struct cmodel cmodel;

/* Makes a model for "pre_ee" or "classic", every register at its default, into *model, which the caller frees
 * with cmodel_free(). Returns 0, or a negative number and null in *model: CMODEL_BAD_ARGUMENT for another
 * name. */
CMODEL_API int cmodel_new(const char* pipeline, cmodel** model);

/* Frees a model; null is left alone. Planes that were bound stay the caller's. */
CMODEL_API void cmodel_free(cmodel* model);

/* What went wrong in the last call that failed, as one line; "" before any did. Valid until the next call. */
CMODEL_API const char* cmodel_error(const cmodel* model);

/* Records of runs (a curve above its unit, the texture mode, ...) go to `log`, as levels 0 (trace) to 5
 * (fatal) and one line of text that is valid during the call. It must not call into the model. Null: nowhere,
 * as at the start. */
CMODEL_API void cmodel_set_log(cmodel* model, void (*log)(void* user, int level, const char* text),
                               void* user);

/* ---- Registers ----------------------------------------------------------------------------- */

/* Sets a register by its key. Returns 0, or CMODEL_BAD_ARGUMENT for an unknown key or a value outside the
 * field. */
CMODEL_API int cmodel_set(cmodel* model, const char* key, int32_t value);
CMODEL_API int cmodel_get(cmodel* model, const char* key, int32_t* value);

/* Every register to its default; to the values of another model. Return 0. */
CMODEL_API int cmodel_reset(cmodel* model);
CMODEL_API int cmodel_copy_registers(cmodel* model, const cmodel* from);

/* Takes the registers of section [eeINSTANCE] from an INI file, or from a text of `size` bytes, as a run of
 * pre_ee_main does; `instance` null or "NULL" is section [ee]. Registers that the section does not set stay
 * as they are. Returns how many findings there are: lines that are ignored, keys that do not exist, values
 * that do not fit and what becomes of them, a missing section. A failure changes no register. */
CMODEL_API int cmodel_load_ini(cmodel* model, const char* path, const char* instance);
CMODEL_API int cmodel_load_ini_text(cmodel* model, const char* text, size_t size, const char* instance);

/* Finding number `index` (from 0) of the last load, "LINE: text"; null beyond the last. Valid until the next
 * load. */
CMODEL_API const char* cmodel_finding(const cmodel* model, int index);

/* All registers as an INI section into text[0 .. size-1], cut there and always ended by a 0 if size > 0.
 * Returns the length of the whole text without the 0, whatever fitted. */
CMODEL_API int cmodel_dump_ini(cmodel* model, const char* instance, char* text, size_t size);

/* ---- Planes -------------------------------------------------------------------------------- */

/* Sample types, in the machine's byte order. */
enum { CMODEL_U8 = 1, CMODEL_S8 = 2, CMODEL_U16 = 3, CMODEL_S16 = 4, CMODEL_U32 = 5, CMODEL_S32 = 6 };

/* A plane of the caller's: sample (x, y) lies at data + y * row_stride + x * step bytes, at any alignment. */
typedef struct cmodel_plane {
    void* data; /* sample (0, 0) */
    int type;   /* CMODEL_U8 .. CMODEL_S32 */
    int width;  /* pixels, at least 1 */
    int height; /* rows, at least 1 */
    ptrdiff_t row_stride;
    ptrdiff_t step;
    int depth; /* bits of an input's samples; samples beyond them count as they are. Outputs and stages: any
                  value */
} cmodel_plane;

/* clang-format off */
/* Binds an input, to be read by runs until another is bound; null unbinds it.
 *     "y"                      luma that the picture is measured on, 8 to 12 bits
 *     "cb", "cr"               chroma, half as wide as luma (rounded either way), 8 bits
 *     "red", "green", "blue"   in place of y, cb and cr, 8 bits: converted, and the chroma of every second column
 *                              taken (not as RGB input of pre_ee_main, which duplicates chroma of full width)
 *     "ynr"                    noise-reduced luma, which is sharpened, 8 bits; without it luma itself, if it has 8
 *     "mmap"                   motion map, 8 bits; without it nothing moves
 *     "yfusion"                fused luma, 8 to 20 bits; texture mode 1 needs it, else it is not read
 * The record is copied, the samples are not. */
/* clang-format on */
CMODEL_API int cmodel_bind_input(cmodel* model, const char* name, const cmodel_plane* plane);

/* Binds the output, of luma's size: 0..255, a debug view if reg_ee_debug_mode says so; while the block is off
 * a copy of luma at its depth ("classic": of ynr). Null unbinds it. A run without one is fine if a stage is
 * bound. It may overlap neither an input nor a stage. */
CMODEL_API int cmodel_bind_output(cmodel* model, const cmodel_plane* plane);

/* Binds a stage, of luma's size, by its name in the stage table; its type must hold all from the stage's
 * least to its greatest value. Null unbinds it. It may overlap neither an input nor another stage. */
CMODEL_API int cmodel_bind_stage(cmodel* model, const char* name, const cmodel_plane* plane);

/* Unbinds all. */
CMODEL_API int cmodel_unbind(cmodel* model);

/* ---- Runs ---------------------------------------------------------------------------------- */

/* Runs a frame, or the rectangle of it that begins at (x, y), with the registers as they are now; a rectangle
 * has the bits that the whole frame has there. Only samples in the rectangle are written. Returns 0; a run
 * that fails writes nothing, but for a value that only samples beyond an input's depth can make and that the
 * type of its stage, or of the output, does not hold: then the run ends with CMODEL_BAD_ARGUMENT after
 * everything was written, such values cut to their low bits. */
CMODEL_API int cmodel_run(cmodel* model);
CMODEL_API int cmodel_run_rect(cmodel* model, int x, int y, int width, int height);

/* Every stage at pixel (x, y) of the bound inputs with the registers as they are now, in the order of their
 * making, as a text: a line with value, unit and meaning each, below it what decided the value (class, curve
 * segment, limiter) and the registers to turn. It goes into text[0 .. size-1], cut there and always ended by
 * a 0 if size > 0. Bound outputs and stages are not written. Returns the length of the whole text without the
 * 0, whatever fitted; it fails as a run does, for a pixel outside the frame, and while the block is off. */
CMODEL_API int cmodel_explain(cmodel* model, int x, int y, char* text, size_t size);

/* ---- Row by row ---------------------------------------------------------------------------- *
 * For whoever has a picture line by line: rows of each input are pushed in order, in any order among the
 * inputs, and copied; rows of the output and of stages are pulled when they are ready: the same bits as a
 * whole run. Bound planes have no part in it, and there are no records of it. */

typedef struct cmodel_frame {
    int width;
    int height;
    int y_depth;       /* 8 to 12 */
    int yfusion_depth; /* 8 to 20; 0: no fused luma comes */
    int has_ynr;       /* 0: luma itself is sharpened */
    int has_mmap;      /* 0: nothing moves */
    int has_colours;   /* 1: "red", "green" and "blue" come in place of "y", "cb" and "cr" */
} cmodel_frame;

/* Whether frames that are begun from now on keep the rows of a stage (or of "output", which they do at the
 * start) until they are pulled. Returns 0, or CMODEL_BAD_ARGUMENT for a stage that the pipeline does not
 * have. */
CMODEL_API int cmodel_keep_rows(cmodel* model, const char* stage, int keep);

/* Begins a frame with the registers as they are now; later changes do not reach it. Returns its number, above
 * 0. The frame before must have all its rows or have been dropped; its rows can still be pulled. Fails with
 * CMODEL_BAD_ARGUMENT for a size or a depth that cannot be, CMODEL_NOT_READY when the frame before lacks rows
 * or the registers want an input or a kept stage that this frame does not have, and CMODEL_NO_MEMORY. */
CMODEL_API int cmodel_begin(cmodel* model, const cmodel_frame* frame);

/* The next row of an input of the frame begun last: `count` samples, `step` bytes apart. Chroma rows have
 * half of the width, rounded up; there are as many as of luma. Returns 0. Fails with CMODEL_NOT_READY when no
 * frame was begun, and with CMODEL_BAD_ARGUMENT for an input that the frame does not have, another count than
 * its width, a type that does not exist, no samples, or a row beyond the last. */
CMODEL_API int cmodel_push(cmodel* model, const char* input, const void* samples, int count, int type,
                           ptrdiff_t step);

/* How many rows of a stage (or of "output") of a frame are ready and not yet pulled. Row y of the output is
 * ready once luma and fused luma were pushed up to row y + cmodel_look_ahead(), or to the last, and the other
 * inputs up to row y; rows of stages then at the latest. CMODEL_BAD_ARGUMENT for a frame that does not exist
 * any more or does not keep the stage. */
CMODEL_API int cmodel_ready(cmodel* model, int frame, const char* stage);

/* Takes the next row into `count` samples and returns its number, from 0. When all rows that it keeps were
 * pulled, a frame is gone. Fails with CMODEL_NOT_READY when no row is ready, and with CMODEL_BAD_ARGUMENT for
 * a frame or a stage as above, another count than luma's width, samples that overlap, and a type that does
 * not hold the stage's least and greatest value, or a value of this row that only samples beyond an input's
 * depth can make. The row then stays, for a larger type. */
CMODEL_API int cmodel_pull(cmodel* model, int frame, const char* stage, void* samples, int count, int type,
                           ptrdiff_t step);

/* Drops a frame, its rows and what was pushed for it. Returns 0, or CMODEL_BAD_ARGUMENT when there is none of
 * that number. */
CMODEL_API int cmodel_drop(cmodel* model, int frame);

/* Rows that the pipeline looks ahead under the registers as they are: 5 in texture mode 1, 2 in mode 0, 4 in
 * the classic pipeline, 0 while the block is off. */
CMODEL_API int cmodel_look_ahead(cmodel* model);

/* ---- Tables -------------------------------------------------------------------------------- *
 * Constant; they can be walked without a model. Strings are static. */

typedef struct cmodel_register_info {
    const char* key;
    int bits;
    int is_signed;
    int32_t default_value;
    int32_t least;
    int32_t greatest;
    const char*
        group; /* "single"; "curve": 4 knot inputs, 4 outputs, 3 slopes in 16ths; "table": 33 entries */
    int place; /* in its curve or table, from 0; the others lie at the neighbouring indices */
    const char* meaning;   /* of the group */
    const char* followers; /* blocks that follow it, blanks between */
} cmodel_register_info;

CMODEL_API int cmodel_register_count(void);
/* Null outside 0 .. count - 1. */
CMODEL_API const cmodel_register_info* cmodel_register(int index);
/* The index of a key, or -1. */
CMODEL_API int cmodel_find_register(const char* key);

/* How a stage is made in one texture mode. */
typedef struct cmodel_making {
    const char* block;     /* null: the mode does not make the stage */
    const char* summary;   /* what the block does */
    const char* made_of;   /* planes that it reads, blanks between */
    const char* registers; /* keys that it follows, blanks between */
    int look_ahead;        /* rows of luma below a row that the row is made of */
} cmodel_making;

typedef struct cmodel_stage_info {
    const char* name;
    const char* meaning;
    const char* unit;
    int depth; /* nominal */
    int is_signed;
    int32_t least; /* over all settings and inputs within their depth */
    int32_t greatest;
    int view_mode;           /* reg_ee_debug_mode that shows it, or 0 */
    int view_shift;          /* the reg_ee_debug_shift_bit that suits it */
    cmodel_making making[2]; /* in texture modes 0 and 1; "classic" has both alike */
} cmodel_stage_info;

/* The pipelines; null beyond the last. */
CMODEL_API const char* cmodel_pipeline(int index);
/* The stages of a pipeline in the order of their making; 0 for an unknown pipeline. */
CMODEL_API int cmodel_stage_count(const char* pipeline);
/* Null for an unknown pipeline and outside 0 .. count - 1. */
CMODEL_API const cmodel_stage_info* cmodel_stage(const char* pipeline, int index);
/* The index of a stage, or -1. */
CMODEL_API int cmodel_find_stage(const char* pipeline, const char* name);

#ifdef __cplusplus
}
#endif

#endif
