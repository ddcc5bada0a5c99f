// Runs a fuzz target without a fuzzer, so that any compiler's build can.
//
//   NAME_replay --runs N       the seeds, and N mutations of them that depend on nothing but their number
//   NAME_replay --seeds DIR    writes the seeds as files
//   NAME_replay FILE...        these
#include <random>

#include "fuzz.h"

namespace {

void run(const std::string& input) {
    write_file(scratch_path("input"), input);  // left behind when the run dies
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
}

std::string mutate(const std::vector<std::string>& seeds, std::mt19937_64& random) {
    static const char* const kWords[] = {"0", "-1", "\n", "#", "]\n[", " ;", "65536", "4294967296", "="};
    const auto below = [&](size_t n) { return static_cast<size_t>(random() % n); };
    std::string s = seeds[below(seeds.size())];
    for (size_t n = 1 + below(6); n > 0; --n) {
        const size_t at = below(s.size() + 1), length = below(s.size() - at + 1);
        const std::string& other = seeds[below(seeds.size())];
        switch (below(6)) {
            case 0:
                s.insert(at, kWords[below(std::size(kWords))]);
                break;
            case 1:
                s.erase(at, length % 64);
                break;
            case 2:
                s.insert(at, s.substr(at, length));
                break;
            case 3:
                s = s.substr(0, at) + other.substr(below(other.size() + 1));
                break;
            default:
                s.replace(at, at < s.size(), 1, static_cast<char>(below(256)));
        }
    }
    return s.substr(0, 1 << 14);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string option = argc == 3 ? argv[1] : "";
    const std::vector<std::string> seeds = fuzz_seeds();
    if (option == "--seeds") {
        for (size_t i = 0; i < seeds.size(); ++i) {
            write_file(std::string(argv[2]) + "/seed_" + std::to_string(i), seeds[i]);
        }
    } else if (option == "--runs") {
        std::printf("input at hand: %s\n", scratch_path("input").c_str());
        std::fflush(stdout);
        for (const std::string& seed : seeds) run(seed);
        std::mt19937_64 random(1);
        for (long n = std::atol(argv[2]); n > 0; --n) run(mutate(seeds, random));
    } else {
        for (int i = 1; i < argc; ++i) run(read_file(argv[i]));
    }
    return 0;
}
