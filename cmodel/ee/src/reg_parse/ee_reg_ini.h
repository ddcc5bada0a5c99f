// The INI parser, set up as the model reads register files: the loader and the checker split a text alike.
#ifndef CMODEL_EE_REG_INI_H
#define CMODEL_EE_REG_INI_H

#include <ini.h>

#include <cstdio>
#include <string_view>

namespace cm {

struct IniResult {
    int bad_line;  // the first malformed one, which is skipped; 0: none
    int error;     // 0, or the errno value of what kept the parser from the end: what came before was handled
};

// Hands every setting of a file, a text or what a reader gives (like fgets) to `handler`, together with
// `user`. A line has at most 1,999,999 characters, of a longer one the rest is a line of its own. Threads
// parse one after the other, since the parser's switches are the process's; a reader may itself parse.
IniResult parse_ini(FILE* in, ini_handler handler, void* user);
IniResult parse_ini(std::string_view text, ini_handler handler, void* user);
IniResult parse_ini(ini_reader reader, void* stream, ini_handler handler, void* user);

}  // namespace cm

#endif
