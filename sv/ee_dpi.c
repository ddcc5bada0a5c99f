/*
 * The C side of ee_dpi_pkg: the model object behind calls that a simulator makes. C11, and C++ as well, for
 * simulators that compile it so.
 *
 * A handle is a model and the failures of its calls, which are counted and never end the simulation; the text
 * is that of the first since the last clear, since the others mostly follow from it. Lines are copied by way
 * of a line of the handle's own, which single samples can be put into and taken from, too.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "cmodel.h"
#include "svdpi.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct Bench {
    cmodel* model; /* null: it could not be made, and every call fails */
    const char* pipeline;
    int errors;
    char error[640];
    int32_t* line;
    int room; /* samples that the line has */
} Bench;

static int note(Bench* bench, const char* text) {
    if (bench->errors == 0) {
        snprintf(bench->error, sizeof bench->error, "%s", text);
    }
    bench->errors += bench->errors < INT32_MAX;
    return CMODEL_BAD_ARGUMENT;
}

/* The result of a call, noted when it is a failure. */
static int checked(Bench* bench, int result) {
    if (result < 0) {
        note(bench, cmodel_error(bench->model));
    }
    return result;
}

static cmodel* model_of(void* handle) {
    return handle != NULL ? ((Bench*)handle)->model : NULL;
}

/* A line of at least `count` samples, those that it has kept. */
static int has_line(Bench* bench, int count) {
    char text[80];
    if (count < 0) {
        snprintf(text, sizeof text, "a line of %d samples cannot be", count);
        return note(bench, text);
    }
    if (count > bench->room) {
        int32_t* const line = (int32_t*)realloc(bench->line, (size_t)count * sizeof *line);
        if (line == NULL) {
            note(bench, "no memory for a line");
            return CMODEL_NO_MEMORY;
        }
        memset(line + bench->room, 0, (size_t)(count - bench->room) * sizeof *line);
        bench->line = line;
        bench->room = count;
    }
    return 0;
}

/* Whether an array of the simulator has `count` samples, and the handle's line as well. */
static int fits(Bench* bench, const char* plane, svOpenArrayHandle array, int count) {
    char text[160];
    if (count > svSize(array, 1)) {
        snprintf(text, sizeof text, "%.60s: %d samples of an array that has %d", plane, count,
                 svSize(array, 1));
        return note(bench, text);
    }
    return has_line(bench, count);
}

/* Sample x lies at the x-th lowest index, whichever way the array was declared. */
static int32_t* sample_at(svOpenArrayHandle array, int x) {
    return (int32_t*)svGetArrElemPtr1(array, svLow(array, 1) + x);
}

void* cmodel_dpi_new(const char* pipeline) {
    Bench* const bench = (Bench*)calloc(1, sizeof *bench);
    char text[120];
    if (bench == NULL) {
        return NULL;
    }
    if (cmodel_abi() != CMODEL_ABI) {
        snprintf(text, sizeof text, "the library has interface %d, not %d", cmodel_abi(), CMODEL_ABI);
        note(bench, text);
    } else if (cmodel_new(pipeline, &bench->model) < 0) {
        snprintf(text, sizeof text, "no pipeline %.60s, or no memory for it", pipeline);
        note(bench, text);
    }
    for (int i = 0; bench->model != NULL && (bench->pipeline = cmodel_pipeline(i)) != NULL; ++i) {
        if (strcmp(bench->pipeline, pipeline) == 0) {
            break;
        }
    }
    return bench;
}

void cmodel_dpi_free(void* handle) {
    if (handle != NULL) {
        cmodel_free(model_of(handle));
        free(((Bench*)handle)->line);
        free(handle);
    }
}

const char* cmodel_dpi_version(void* handle) {
    (void)handle;
    return cmodel_version();
}

/* ---- Failures ---- */

int cmodel_dpi_errors(void* handle) {
    return handle != NULL ? ((Bench*)handle)->errors : 1;
}

const char* cmodel_dpi_error(void* handle) {
    return handle != NULL ? ((Bench*)handle)->error : "there is no model";
}

void cmodel_dpi_clear_errors(void* handle) {
    if (handle != NULL) {
        ((Bench*)handle)->errors = 0;
        ((Bench*)handle)->error[0] = '\0';
    }
}

void cmodel_dpi_fail(void* handle, const char* text) {
    if (handle != NULL) {
        note((Bench*)handle, text);
    }
}

/* ---- Registers ---- */

int cmodel_dpi_set(void* handle, const char* key, int value) {
    return handle != NULL ? checked((Bench*)handle, cmodel_set(model_of(handle), key, value))
                          : CMODEL_BAD_ARGUMENT;
}

int cmodel_dpi_get(void* handle, const char* key) {
    int32_t value = 0;
    if (handle != NULL) {
        checked((Bench*)handle, cmodel_get(model_of(handle), key, &value));
    }
    return value;
}

int cmodel_dpi_reset(void* handle) {
    return handle != NULL ? checked((Bench*)handle, cmodel_reset(model_of(handle))) : CMODEL_BAD_ARGUMENT;
}

int cmodel_dpi_load_ini(void* handle, const char* path, const char* instance) {
    return handle != NULL ? checked((Bench*)handle, cmodel_load_ini(model_of(handle), path, instance))
                          : CMODEL_BAD_ARGUMENT;
}

const char* cmodel_dpi_finding(void* handle, int index) {
    const char* const text = model_of(handle) != NULL ? cmodel_finding(model_of(handle), index) : NULL;
    return text != NULL ? text : "";
}

/* ---- Stages ---- */

const char* cmodel_dpi_stage_name(void* handle, int index) {
    const cmodel_stage_info* const stage =
        model_of(handle) != NULL ? cmodel_stage(((Bench*)handle)->pipeline, index) : NULL;
    return stage != NULL ? stage->name : "";
}

int cmodel_dpi_keep(void* handle, const char* stage, int keep) {
    return handle != NULL ? checked((Bench*)handle, cmodel_keep_rows(model_of(handle), stage, keep))
                          : CMODEL_BAD_ARGUMENT;
}

int cmodel_dpi_look_ahead(void* handle) {
    return handle != NULL ? checked((Bench*)handle, cmodel_look_ahead(model_of(handle)))
                          : CMODEL_BAD_ARGUMENT;
}

/* ---- Frames ---- */

int cmodel_dpi_begin(void* handle, int width, int height, int y_depth, int yfusion_depth, int has_ynr,
                     int has_mmap, int has_colours) {
    const cmodel_frame frame = {width, height, y_depth, yfusion_depth, has_ynr, has_mmap, has_colours};
    return handle != NULL ? checked((Bench*)handle, cmodel_begin(model_of(handle), &frame))
                          : CMODEL_BAD_ARGUMENT;
}

int cmodel_dpi_drop(void* handle, int frame) {
    return handle != NULL ? checked((Bench*)handle, cmodel_drop(model_of(handle), frame))
                          : CMODEL_BAD_ARGUMENT;
}

int cmodel_dpi_ready(void* handle, int frame, const char* stage) {
    return handle != NULL ? checked((Bench*)handle, cmodel_ready(model_of(handle), frame, stage))
                          : CMODEL_BAD_ARGUMENT;
}

/* ---- Lines by way of the handle's own, sample by sample ---- */

int cmodel_dpi_put_sample(void* handle, int x, int value) {
    Bench* const bench = (Bench*)handle;
    if (bench == NULL || x < 0 || x == INT32_MAX) {
        return bench != NULL ? note(bench, "a sample lies outside of every line") : CMODEL_BAD_ARGUMENT;
    }
    const int status = has_line(bench, x + 1);
    if (status == 0) {
        bench->line[x] = value;
    }
    return status;
}

int cmodel_dpi_get_sample(void* handle, int x) {
    Bench* const bench = (Bench*)handle;
    if (bench != NULL && x >= 0 && x < bench->room) {
        return bench->line[x];
    }
    if (bench != NULL) {
        note(bench, "a sample lies outside of the line");
    }
    return 0;
}

int cmodel_dpi_push_line(void* handle, const char* plane, int count) {
    Bench* const bench = (Bench*)handle;
    const int status = bench != NULL ? has_line(bench, count) : CMODEL_BAD_ARGUMENT;
    return status < 0 ? status
                      : checked(bench, cmodel_push(bench->model, plane, bench->line, count, CMODEL_S32,
                                                   sizeof(int)));
}

int cmodel_dpi_pop_line(void* handle, int frame, const char* stage, int count) {
    Bench* const bench = (Bench*)handle;
    const int status = bench != NULL ? has_line(bench, count) : CMODEL_BAD_ARGUMENT;
    return status < 0 ? status
                      : checked(bench, cmodel_pull(bench->model, frame, stage, bench->line, count, CMODEL_S32,
                                                   sizeof(int)));
}

/* ---- Lines of the simulator's ---- */

int cmodel_dpi_push(void* handle, const char* plane, const svOpenArrayHandle samples, int count) {
    Bench* const bench = (Bench*)handle;
    const int status = bench != NULL ? fits(bench, plane, samples, count) : CMODEL_BAD_ARGUMENT;
    for (int x = 0; status == 0 && x < count; ++x) {
        bench->line[x] = *sample_at(samples, x);
    }
    return status == 0 ? cmodel_dpi_push_line(handle, plane, count) : status;
}

int cmodel_dpi_pop(void* handle, int frame, const char* stage, const svOpenArrayHandle samples, int count) {
    Bench* const bench = (Bench*)handle;
    const int status = bench != NULL ? fits(bench, stage, samples, count) : CMODEL_BAD_ARGUMENT;
    const int row = status == 0 ? cmodel_dpi_pop_line(handle, frame, stage, count) : status;
    for (int x = 0; row >= 0 && x < count; ++x) {
        *sample_at(samples, x) = bench->line[x];
    }
    return row;
}

#ifdef __cplusplus
}
#endif
