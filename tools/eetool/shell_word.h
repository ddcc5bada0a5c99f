// Words of command lines that are printed for the user to repeat.
#ifndef CMODEL_EETOOL_SHELL_WORD_H
#define CMODEL_EETOOL_SHELL_WORD_H

#include <string>

namespace eetool {

// A word as a shell takes it.
inline std::string shell_word(const std::string& word) {
    const bool plain = !word.empty() && word.find_first_not_of(
                                            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRS"
                                            "TUVWXYZ0123456789_-+=.,/:@%") == word.npos;
    if (plain) {
        return word;
    }
    std::string text = "'";
    for (const char c : word) {
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return text + "'";
}

}  // namespace eetool

#endif
