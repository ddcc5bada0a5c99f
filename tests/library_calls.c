/*
 * A C process that uses the library, for allocations to fail in: makes one kind of calls and prints a
 * checksum of what they gave.
 *
 *   library_calls frame|blocks|files|dump DIRECTORY
 */
#include <ee_hw.h>
#include <ee_reg.h>
#include <pre_ee_hw.h>
#include <stdio.h>
#include <string.h>

static uint32_t checksum = 1;

/* A new frame of some texture. */
static FRAME* texture(uint32_t width, uint32_t height, uint32_t channels) {
    FRAME* const frame =
        CM_NewFRAME(2, channels == 3 ? CM_FORMAT_RGB : CM_FORMAT_SINGLE, width, height, channels, 8);
    for (uint32_t i = 0; i < width * height * channels; ++i) {
        frame->data[i] = (int32_t)(i * 2654435761u >> 24);
    }
    return frame;
}

static void add(const FRAME* frame) {
    for (uint32_t i = 0; i < frame->width * frame->height * frame->channels; ++i) {
        checksum = checksum * 31 + (uint32_t)frame->data[i];
    }
}

static void call_pipelines(void) {
    const FRAME* const p = texture(40, 30, 1);
    const FRAME* const half = texture(20, 30, 1);
    for (int mode = 0; mode < 2; ++mode) {
        ee_reg.hw.slot[reg_ee_texture_mode].value = mode;
        add(pre_ee_hw(p, half, half, p, p, p));
    }
    add(ee_hw(p, half, half, p, p));
}

static void call_blocks(void) {
    const FRAME* const p = texture(40, 30, 1);
    const FRAME* const ref = texture(40, 30, 3);
    FRAME* const a = texture(40, 30, 1);
    FRAME* const b = texture(40, 30, 1);
    PRE_EE_CalcDelta(p, a, b, "Yin");
    PRE_EE_FlatDet(p, p, a, b, a, "MF");
    EE_CalcDelta(p, a, b);
    EE_PreProcess(p, a);
    EE_CalcDeltaRef(p, b, a);
    EE_Coring(p, a, b, b);
    EE_CalcDeltaGain(p, a);
    add(a);
    EE_ChromaGain(p, p, ref, a);
    EE_TotalDelta(a, p, b);
    EE_IOShootPro(b, p, p, a, a);
    EE_IOShoot(b, p, p, a, b);
    add(a);
    add(b);
    dump_dbg_img = 0;
    FRAME* const large = texture(512, 384, 1); /* worth a table of all chroma */
    EE_ChromaGain(large, large, ref, large);
    add(large);
}

static void call_files(const char* directory) {
    char path[1024];
    snprintf(path, sizeof path, "%s/file", directory);
    FRAME* const rgb = texture(40, 30, 3);
    CM_WritePPM(path, rgb);
    add(CM_ReadPPM(path, 2));
    CM_WritePPM5_CLIP(path, rgb, 12);
    add(CM_ReadPPM5(path, 2));
    CM_ReadPPM5_safe(path, rgb);
    rgb->format = CM_FORMAT_RAW_RGB;
    CM_WriteRAW(path, rgb);
    add(CM_ReadRAW(path, CM_FORMAT_SINGLE, 0, 1, 40, 10, 16));
    CM_WriteHIST(path, CM_NewHIST(4, 0, 2));
    CM_DelFILE(CM_Fopen(path, "a"));
}

static void call_dump(const char* directory) {
    char path[1024];
    snprintf(path, sizeof path, "%s/setting.ini", directory);
    ee_reg.hw.slot[reg_ee_total_gain].value = 78;
    checksum = DUMP_EE_INI(path) == 0;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    snprintf(dbg_path, sizeof dbg_path, "%s", argv[2]);
    dump_dbg_img = 1;
    log_set_level(LOG_FATAL);
    INIT_EE_REG("0");
    if (strcmp(argv[1], "frame") == 0) {
        call_pipelines();
    } else if (strcmp(argv[1], "blocks") == 0) {
        call_blocks();
    } else if (strcmp(argv[1], "files") == 0) {
        call_files(argv[2]);
    } else {
        call_dump(argv[2]);
    }
    printf("%u\n", checksum);
    return 0;
}
