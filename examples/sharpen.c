/*
 * Sharpens a frame made here with both pipelines, whole and in rectangles, and checks what changed.
 */
#include <cmodel/cmodel.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { WIDTH = 161, HEIGHT = 96, CHROMA_WIDTH = (WIDTH + 1) / 2, EDGE = 80 };

static const char settings[] =
    "[ee]\n"
    "reg_ee_texture_mode = 0\n" /* 1 would need a fused luma */
    "reg_ee_total_gain = 64\n";

/* The samples are ours; the model reads and writes them in place. */
static uint8_t luma[HEIGHT][WIDTH], chroma[HEIGHT][CHROMA_WIDTH];
static uint8_t whole[HEIGHT][WIDTH], tiled[HEIGHT][WIDTH];
static int16_t delta[HEIGHT][WIDTH];

static cmodel_plane plane_of(void* samples, int type, int width, int bytes) {
    const cmodel_plane plane = {samples, type, width, HEIGHT, (ptrdiff_t)width * bytes, bytes, 8};
    return plane;
}

static void print_record(void* user, int level, const char* text) {
    printf("%s: level %d: %s\n", (const char*)user, level, text);
}

/* A failure is a negative result and a text; the model works on. This program does not. */
static int check(const cmodel* model, int result) {
    if (result < 0) {
        fprintf(stderr, "%s\n", cmodel_error(model));
        exit(EXIT_FAILURE);
    }
    return result;
}

static int sharpen(const char* pipeline) {
    cmodel* model;
    if (cmodel_new(pipeline, &model) < 0) {
        fprintf(stderr, "there is no pipeline %s, or no memory\n", pipeline);
        return 0;
    }
    cmodel_set_log(model, print_record, (void*)pipeline);

    const int findings = check(model, cmodel_load_ini_text(model, settings, strlen(settings), "NULL"));
    for (int i = 0; i < findings; ++i) {
        printf("settings:%s\n", cmodel_finding(model, i));
    }
    check(model, cmodel_set(model, "reg_ee_total_gain", 96)); /* or one by one */

    const cmodel_plane y = plane_of(luma, CMODEL_U8, WIDTH, 1);
    const cmodel_plane c = plane_of(chroma, CMODEL_U8, CHROMA_WIDTH, 1);
    const cmodel_plane out = plane_of(whole, CMODEL_U8, WIDTH, 1);
    const cmodel_plane stage = plane_of(delta, CMODEL_S16, WIDTH, 2);
    check(model, cmodel_bind_input(model, "y", &y));
    check(model, cmodel_bind_input(model, "cb", &c));
    check(model, cmodel_bind_input(model, "cr", &c));
    check(model, cmodel_bind_output(model, &out));
    check(model, cmodel_bind_stage(model, "limited_delta", &stage));
    check(model, cmodel_run(model));

    /* The same frame again in rectangles, the output alone. */
    const cmodel_plane again = plane_of(tiled, CMODEL_U8, WIDTH, 1);
    check(model, cmodel_bind_output(model, &again));
    check(model, cmodel_bind_stage(model, "limited_delta", NULL));
    check(model, cmodel_run_rect(model, 0, 0, 77, HEIGHT));
    check(model, cmodel_run_rect(model, 77, 0, WIDTH - 77, 41));
    check(model, cmodel_run_rect(model, 77, 41, WIDTH - 77, HEIGHT - 41));
    cmodel_free(model);

    int changed = 0, wrong = 0;
    for (int row = 0; row < HEIGHT; ++row) {
        for (int x = 0; x < WIDTH; ++x) {
            const int change = whole[row][x] - luma[row][x];
            const int far = x < EDGE - 4 || x >= EDGE + 4; /* farther than any block looks */
            changed += change != 0;
            wrong += change != delta[row][x] || (far && change != 0) || tiled[row][x] != whole[row][x];
        }
    }
    printf("%s: %d samples sharpened, %d wrong\n", pipeline, changed, wrong);
    return changed > 0 && wrong == 0;
}

int main(void) {
    for (int row = 0; row < HEIGHT; ++row) {
        for (int x = 0; x < WIDTH; ++x) {
            luma[row][x] = x < EDGE ? 70 : 150; /* an upright edge */
        }
    }
    memset(chroma, 128, sizeof chroma); /* no colour */
    printf("cmodel %s\n", cmodel_version());
    const int good = sharpen("pre_ee") & sharpen("classic");
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
