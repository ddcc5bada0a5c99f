// The registers of a model: by key, from INI files, as an INI text.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "ee_reg_name.h"
#include "ini_findings.h"
#include "model.h"

namespace {

using namespace cm;

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

void set_registers(cmodel& m, const Registers& registers) {
    m.registers = registers;
    m.pixels = 0;
}

// A regular file, opened; null and errno for anything else, which might be waited for or never end.
File open_regular(const char* path) {
    const int fd = open(path, O_RDONLY | O_NONBLOCK);
    struct stat info {};
    if (fd >= 0 && fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) {
        FILE* const file = fdopen(fd, "r");
        if (file != nullptr) {
            return File(file);
        }
    } else if (fd >= 0) {
        errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    }
    const int error = errno;
    if (fd >= 0) {
        close(fd);
    }
    errno = error;
    return nullptr;
}

// `what` is the file's path, or what the text is.
int load(cmodel& m, const File& file, const char* what, const char* instance) try {
    IniFindings found;
    const int error = file != nullptr ? find_in_ini(file.get(), instance, m.registers, false, found) : errno;
    if (error != 0) {
        return m.fail(error == ENOMEM ? CMODEL_NO_MEMORY : CMODEL_BAD_FILE, "%.300s cannot be read: %s", what,
                      std::strerror(error));
    }
    std::vector<std::string> findings;
    for (const IniFinding& finding : found.findings) {
        findings.push_back(std::to_string(finding.line) + ": " + finding.text);
    }
    m.findings = std::move(findings);
    set_registers(m, found.registers);
    return static_cast<int>(m.findings.size());
} catch (const std::bad_alloc&) {
    return m.fail(CMODEL_NO_MEMORY, "no memory for what %.300s has", what);
}

}  // namespace

int cmodel_set(cmodel* model, const char* key, int32_t value) {
    if (model == nullptr || key == nullptr) {
        return model == nullptr ? CMODEL_BAD_ARGUMENT
                                : model->fail(CMODEL_BAD_ARGUMENT, "no key of a register");
    }
    const int slot = find_register(key);
    if (slot < 0) {
        return model->fail(CMODEL_BAD_ARGUMENT, "there is no register %.60s", key);
    }
    const RegRow& row = kRegTable[slot];
    if (value < row.least() || value > row.greatest()) {
        return model->fail(CMODEL_BAD_ARGUMENT, "%s: %d does not fit %d..%d", key, value, row.least(),
                           row.greatest());
    }
    if (model->registers[slot] != value) {
        model->registers.set(slot, value);
        model->pixels = 0;
    }
    return 0;
}

int cmodel_get(cmodel* model, const char* key, int32_t* value) {
    if (model == nullptr || key == nullptr || value == nullptr) {
        return model == nullptr
                   ? CMODEL_BAD_ARGUMENT
                   : model->fail(CMODEL_BAD_ARGUMENT, "no key of a register, or nowhere to put its value");
    }
    const int slot = find_register(key);
    if (slot < 0) {
        return model->fail(CMODEL_BAD_ARGUMENT, "there is no register %.60s", key);
    }
    *value = model->registers[slot];
    return 0;
}

int cmodel_reset(cmodel* model) {
    if (model == nullptr) {
        return CMODEL_BAD_ARGUMENT;
    }
    set_registers(*model, Registers());
    return 0;
}

int cmodel_copy_registers(cmodel* model, const cmodel* from) {
    if (model == nullptr || from == nullptr) {
        return model == nullptr ? CMODEL_BAD_ARGUMENT
                                : model->fail(CMODEL_BAD_ARGUMENT, "no model to copy from");
    }
    set_registers(*model, from->registers);
    return 0;
}

int cmodel_load_ini(cmodel* model, const char* path, const char* instance) {
    if (model == nullptr || path == nullptr) {
        return model == nullptr ? CMODEL_BAD_ARGUMENT
                                : model->fail(CMODEL_BAD_ARGUMENT, "no path of an INI file");
    }
    return load(*model, open_regular(path), path, instance);
}

int cmodel_load_ini_text(cmodel* model, const char* text, size_t size, const char* instance) {
    if (model == nullptr || (text == nullptr && size > 0)) {
        return model == nullptr ? CMODEL_BAD_ARGUMENT : model->fail(CMODEL_BAD_ARGUMENT, "no INI text");
    }
    // A stream over no bytes cannot be opened everywhere; an empty line sets as little.
    static char empty[] = "\n";
    char* const bytes = size > 0 ? const_cast<char*>(text) : empty;
    return load(*model, File(fmemopen(bytes, size > 0 ? size : 1, "r")), "the INI text", instance);
}

const char* cmodel_finding(const cmodel* model, int index) {
    const bool there = model != nullptr && index >= 0 && index < static_cast<int>(model->findings.size());
    return there ? model->findings[static_cast<size_t>(index)].c_str() : nullptr;
}

int cmodel_dump_ini(cmodel* model, const char* instance, char* text, size_t size) {
    if (model == nullptr || (text == nullptr && size > 0)) {
        return model == nullptr ? CMODEL_BAD_ARGUMENT
                                : model->fail(CMODEL_BAD_ARGUMENT, "nowhere to put the INI text");
    }
    char section[32];
    set_instance_name(section, "ee", instance);
    size_t length = 0;
    const auto add = [&](const auto&... args) {
        const size_t left = length < size ? size - length : 0;
        length += static_cast<size_t>(std::snprintf(left > 0 ? text + length : nullptr, left, args...));
    };
    add("[%s]\n", section);
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        add("%s = %d\n", kRegTable[slot].key, model->registers[slot]);
    }
    return static_cast<int>(length);
}
