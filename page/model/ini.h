/*
 * The INI parser of the page's model: what cmodel/ee/src/reg_parse uses of the library that parses INI files
 * elsewhere, which Debian has for the machine itself only. The same names and the same behaviour; a test
 * gives both the same texts.
 */
#ifndef PAGE_INI_H
#define PAGE_INI_H

#ifdef __cplusplus
extern "C" {
#endif

/* Called for each setting; returns nonzero if it took it. The texts are valid during the call. */
typedef int (*ini_handler)(void* user, const char* section, const char* name, const char* value);

/* Gives the next line like fgets(). */
typedef char* (*ini_reader)(char* str, int num, void* stream);

/* The line buffer is taken from the heap, in one piece of ini_max_line bytes; the other switches are there to
 * be set. */
extern bool ini_use_stack;
extern bool ini_allow_realloc;
extern int ini_max_line;
extern int ini_initial_alloc;

/* Returns 0, the number of the first line that is malformed or that the handler did not take, or -2 without
 * memory. */
int ini_parse_stream(ini_reader reader, void* stream, ini_handler handler, void* user);

#ifdef __cplusplus
}
#endif

#endif
