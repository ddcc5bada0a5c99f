#include "fuzz.h"

#include <unistd.h>

#include <csetjmp>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

std::jmp_buf* way_back;  // null outside exit_status()
int caught_status;

struct Scratch {
    std::filesystem::path dir;

    Scratch() {
        const std::filesystem::path memory = "/dev/shm";
        std::error_code ignored;
        const bool in_memory =
            std::filesystem::is_directory(memory, ignored) && access(memory.c_str(), W_OK) == 0;
        std::string name =
            ((in_memory ? memory : std::filesystem::temp_directory_path()) / "cmodel_fuzz_XXXXXX").string();
        FUZZ_CHECK(mkdtemp(name.data()) != nullptr);
        dir = name;
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
};

}  // namespace

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
    static const Scratch scratch;
    return (scratch.dir / name).string();
}

void write_file(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}
