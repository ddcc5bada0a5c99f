/*
 * Two models with settings of their own, one after the other and then side by side in two threads: the same
 * pictures. Models share nothing that changes, so there is nothing to lock.
 */
#include <cmodel/cmodel.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { WIDTH = 320, HEIGHT = 200, FRAMES = 20 };

static uint8_t luma[HEIGHT][WIDTH], chroma[HEIGHT][WIDTH / 2];

struct job {
    const char* pipeline;
    int total_gain;
    uint8_t out[FRAMES][HEIGHT][WIDTH];
    char error[512]; /* "" when all went well */
};

/* Frames of rising gain. What fails is left for whoever waits. */
static void* run_job(void* argument) {
    struct job* const job = argument;
    const cmodel_plane y = {luma, CMODEL_U8, WIDTH, HEIGHT, WIDTH, 1, 8};
    const cmodel_plane c = {chroma, CMODEL_U8, WIDTH / 2, HEIGHT, WIDTH / 2, 1, 8};
    cmodel* model;
    if (cmodel_new(job->pipeline, &model) < 0) {
        snprintf(job->error, sizeof job->error, "no model of %s", job->pipeline);
        return NULL;
    }
    int failed = cmodel_set(model, "reg_ee_texture_mode", 0) < 0 || cmodel_bind_input(model, "y", &y) < 0 ||
                 cmodel_bind_input(model, "cb", &c) < 0 || cmodel_bind_input(model, "cr", &c) < 0;
    for (int i = 0; i < FRAMES && !failed; ++i) {
        const cmodel_plane out = {job->out[i], CMODEL_U8, WIDTH, HEIGHT, WIDTH, 1, 8};
        failed = cmodel_set(model, "reg_ee_total_gain", job->total_gain + i) < 0 ||
                 cmodel_bind_output(model, &out) < 0 || cmodel_run(model) < 0;
    }
    if (failed) {
        snprintf(job->error, sizeof job->error, "%s", cmodel_error(model));
    }
    cmodel_free(model);
    return NULL;
}

int main(void) {
    static struct job alone[2] = {{.pipeline = "pre_ee", .total_gain = 32},
                                  {.pipeline = "classic", .total_gain = 96}};
    static struct job beside[2];
    memcpy(beside, alone, sizeof beside);
    for (int y = 0; y < HEIGHT; ++y) {
        for (int x = 0; x < WIDTH; ++x) {
            luma[y][x] = (uint8_t)(60 + x * 7 % 90 + y * 5 % 60);
        }
    }
    memset(chroma, 128, sizeof chroma);

    run_job(&alone[0]);
    run_job(&alone[1]);
    pthread_t thread[2];
    for (int i = 0; i < 2; ++i) {
        if (pthread_create(&thread[i], NULL, run_job, &beside[i]) != 0) {
            fprintf(stderr, "no thread\n");
            return EXIT_FAILURE;
        }
    }
    int good = 1;
    for (int i = 0; i < 2; ++i) {
        pthread_join(thread[i], NULL);
        const int failed = alone[i].error[0] != '\0' || beside[i].error[0] != '\0';
        const int same = memcmp(alone[i].out, beside[i].out, sizeof alone[i].out) == 0;
        const int sharper = memcmp(alone[i].out[0], luma, sizeof luma) != 0;
        printf("%-7s gain %2d..%3d: %s%s\n", alone[i].pipeline, alone[i].total_gain,
               alone[i].total_gain + FRAMES - 1,
               failed ? "failed: "
               : same ? "the same"
                      : "DIFFERENT",
               alone[i].error[0] != '\0' ? alone[i].error : beside[i].error);
        good = good && !failed && same && sharper;
    }
    good = good && memcmp(alone[0].out, alone[1].out, sizeof alone[0].out) != 0;
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
