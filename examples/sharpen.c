/*
 * Sharpens a frame made here with both pipelines of the installed library, and says what changed.
 *
 *   sharpen [INI_FILE]
 *
 * The registers go through an INI file, written first (sharpen.ini unless named). Exit status 1
 * when a result is not what the pipelines promise.
 */
#include <cmodel/ee_hw.h>
#include <cmodel/ee_reg.h>
#include <cmodel/pre_ee_hw.h>
#include <stdio.h>
#include <stdlib.h>

enum { WIDTH = 160, HEIGHT = 96, LEFT = 50, RIGHT = 110, TOP = 30, BOTTOM = 66 };

/* How far from an edge a pipeline can change a pixel: spike clamp (1) and 7x7 kernel (3). */
enum { REACH = 4 };

static FRAME* new_plane(uint32_t width, int value) {
    return Frame_Set_Constant(CM_NewFRAME(2, CM_FORMAT_SINGLE, width, HEIGHT, 1, 8), value);
}

/* A box, 80 codes brighter than its ground. */
static FRAME* draw_box(int ground) {
    FRAME* const frame = new_plane(WIDTH, ground);
    for (int y = TOP; y < BOTTOM; ++y) {
        for (int x = LEFT; x < RIGHT; ++x) {
            frame->data[y * WIDTH + x] = ground + 80;
        }
    }
    return frame;
}

static bool near_edge(int x, int y) {
    const bool in_outer = x >= LEFT - REACH && x < RIGHT + REACH && y >= TOP - REACH && y < BOTTOM + REACH;
    const bool in_inner = x >= LEFT + REACH && x < RIGHT - REACH && y >= TOP + REACH && y < BOTTOM - REACH;
    return in_outer && !in_inner;
}

static bool load_gain(const char* ini, int total_gain) {
    FILE* const file = fopen(ini, "w");
    if (file == NULL) {
        perror(ini);
        return false;
    }
    fprintf(file,
            "[ee]\n"
            "reg_ee_texture_mode = 0\n"
            "reg_ee_total_gain = %d\n",
            total_gain);
    return fclose(file) == 0 && INIT_EE_REG(NULL) == 0 && LOAD_EE_INI(ini) == 0;
}

/* Prints how `out` differs from `in` and says whether that is what the gain should do. */
static bool check(const char* pipeline, int total_gain, const FRAME* in, const FRAME* out) {
    int changed = 0, astray = 0, strongest = 0;
    for (int i = 0; i < WIDTH * HEIGHT; ++i) {
        const int change = abs(out->data[i] - in->data[i]);
        changed += change != 0;
        astray += change != 0 && !near_edge(i % WIDTH, i / WIDTH);
        strongest = change > strongest ? change : strongest;
    }
    const bool good = total_gain == 0 ? changed == 0 : changed > 0 && astray == 0;
    printf("%-9s gain %2d: %4d samples changed, by up to %2d, %d of them away from edges%s\n", pipeline,
           total_gain, changed, strongest, astray, good ? "" : "  <-- WRONG");
    return good;
}

int main(int argc, char** argv) {
    const char* const ini = argc > 1 ? argv[1] : "sharpen.ini";
    log_set_quiet(true);

    /* What is measured and what is sharpened differ in brightness, to tell them apart in the result. */
    FRAME* const luma = draw_box(70);
    FRAME* const reduced = draw_box(60); /* the noise-reduced luma */
    FRAME* const cb = new_plane(WIDTH / 2, 128);
    FRAME* const cr = new_plane(WIDTH / 2, 128);
    FRAME* const motion = new_plane(WIDTH, 0);

    bool good = true;
    for (int total_gain = 0; total_gain <= 64; total_gain += 64) {
        if (!load_gain(ini, total_gain)) {
            return EXIT_FAILURE;
        }
        FRAME* const program = pre_ee_hw(luma, cb, cr, reduced, motion, NULL);
        good = check("pre_ee_hw", total_gain, reduced, program) && good;
        CM_DelFRAME(program);

        FRAME* const classic = ee_hw(luma, cb, cr, reduced, motion);
        good = check("ee_hw", total_gain, reduced, classic) && good;
        CM_DelFRAME(classic);
    }

    CM_DelFRAME(luma);
    CM_DelFRAME(reduced);
    CM_DelFRAME(cb);
    CM_DelFRAME(cr);
    CM_DelFRAME(motion);
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
