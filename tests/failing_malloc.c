/*
 * Preloaded, makes an allocation fail: the one numbered ALLOCATION_FAILS, counted from 1, or with
 * ALLOCATION_FAILS=N+ that one and all that follow. Creates the file ALLOCATION_FAILED when it does. A
 * program that is linked with it chooses by fail_allocations().
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdbool.h>
#include <stdlib.h>
#include <unistd.h>

static unsigned long count, first;
static bool all;

/* Counts from now on; 0 for `number`: none fails. Returns whether one did before. */
bool fail_allocations(unsigned long number, bool and_what_follows);
bool fail_allocations(unsigned long number, bool and_what_follows) {
    const bool failed = first != 0 && count >= first;
    count = 1;
    first = number != 0 ? number + 1 : 0;
    all = and_what_follows;
    return failed;
}

static bool fails(void) {
    if (count++ == 0 && getenv("ALLOCATION_FAILS") != NULL) {
        char* end;
        first = strtoul(getenv("ALLOCATION_FAILS"), &end, 10);
        all = *end == '+';
    }
    if (first == 0 || count < first || (count > first && !all)) {
        return false;
    }
    if (count == first) {
        close(open(getenv("ALLOCATION_FAILED"), O_CREAT | O_WRONLY, 0666));
    }
    errno = ENOMEM;
    return true;
}

/* `name` as the C library has it, unless it is this call's turn to fail. */
#define NEXT(name, result, params, args)              \
    result name params {                              \
        static result(*next) params;                  \
        if (next == NULL) {                           \
            *(void**)&next = dlsym(RTLD_NEXT, #name); \
        }                                             \
        return fails() ? NULL : next args;            \
    }

NEXT(malloc, void*, (size_t size), (size))
NEXT(calloc, void*, (size_t items, size_t size), (items, size))
NEXT(realloc, void*, (void* old, size_t size), (old, size))
NEXT(aligned_alloc, void*, (size_t alignment, size_t size), (alignment, size))
