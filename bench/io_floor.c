/*
 * What the file system alone costs, to hold the model's times against.
 *
 *   io_floor start                    start and end
 *   io_floor planes OUT IN ...        read each file whole into fresh memory, write the first one's bytes
 *   io_floor images DIR IMAGE ...     write as many bytes as each image has to a file of its own in DIR, with
 * one fwrite each (the bytes are made up before the first is opened)
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

static int fail(const char* path) {
    perror(path);
    return 1;
}

static char* read_whole(const char* path, size_t* size) {
    struct stat info;
    FILE* const in = fopen(path, "rb");
    if (!in || fstat(fileno(in), &info) != 0) return NULL;
    *size = (size_t)info.st_size;
    char* const bytes = malloc(*size + 1);
    if (!bytes || fread(bytes, 1, *size, in) != *size || fclose(in) != 0) return NULL;
    return bytes;
}

static int write_whole(const char* path, const char* bytes, size_t size) {
    FILE* const out = fopen(path, "wb");
    if (!out || fwrite(bytes, 1, size, out) != size || fclose(out) != 0) return fail(path);
    return 0;
}

static int planes(const char* out, char** in, int count) {
    char* first = NULL;
    size_t first_size = 0;
    for (int i = 0; i < count; ++i) {
        size_t size;
        char* const bytes = read_whole(in[i], &size);
        if (!bytes) return fail(in[i]);
        if (i == 0) first = bytes, first_size = size;
    }
    return write_whole(out, first, first_size);
}

static int images(const char* dir, char** image, int count) {
    size_t largest = 1;
    struct stat info;
    for (int i = 0; i < count; ++i) {
        if (stat(image[i], &info) != 0) return fail(image[i]);
        if ((size_t)info.st_size > largest) largest = (size_t)info.st_size;
    }
    char* const bytes = malloc(largest);
    if (!bytes) return fail("memory");
    memset(bytes, 0x55, largest);
    for (int i = 0; i < count; ++i) {
        char path[4096];
        stat(image[i], &info);
        snprintf(path, sizeof path, "%s/%d", dir, i);
        if (write_whole(path, bytes, (size_t)info.st_size) != 0) return 1;
    }
    return 0;
}

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "start") == 0) return 0;
    if (argc > 3 && strcmp(argv[1], "planes") == 0) return planes(argv[2], argv + 3, argc - 3);
    if (argc > 3 && strcmp(argv[1], "images") == 0) return images(argv[2], argv + 3, argc - 3);
    fprintf(stderr, "usage: %s start | planes OUT IN ... | images DIR IMAGE ...\n", argv[0]);
    return 2;
}
