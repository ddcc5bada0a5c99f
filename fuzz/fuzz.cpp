#include "fuzz.h"

#include <csetjmp>
#include <filesystem>

static std::jmp_buf* way_back;  // null outside exit_status()
static int caught_status;

// The linker sends every call of exit() here (--wrap=exit). The C library declares exit() as one that
// never throws, so only a jump gets out of it.
extern "C" [[noreturn]] void __real_exit(int status);
extern "C" [[noreturn]] void __wrap_exit(int status) {
    if (way_back == nullptr) {
        __real_exit(status);
    }
    caught_status = status;
    std::longjmp(*way_back, 1);
}

std::optional<int> exit_status(const std::function<void()>& call) {
    std::jmp_buf here;
    way_back = &here;
    const bool ended = setjmp(here) != 0;
    if (!ended) {
        call();
    }
    way_back = nullptr;
    return ended ? std::optional(caught_status) : std::nullopt;
}

std::string scratch_path(const char* name) {
    struct Folder {
        std::string path = std::filesystem::temp_directory_path();
        Folder() { FUZZ_CHECK(mkdtemp((path += "/cmodel_fuzz_XXXXXX").data()) != nullptr); }
        ~Folder() { std::filesystem::remove_all(path); }
    };
    static const Folder folder;
    return folder.path + "/" + name;
}
