// Runs a fuzz target without a fuzzer, so that any compiler's build can: over given files, or over the
// target's seeds and a number of mutations of them that depends on nothing but that number.
//
//   NAME --seeds DIR     writes the seeds as files
//   NAME FILE...         runs these
//   NAME --runs N        runs the seeds and N mutations
#include <cstring>
#include <random>

#include "fuzz.h"

namespace {

void run(const std::string& input) {
    // Left behind when the run dies.
    write_file(scratch_path("input"), input);
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
}

class Mutator {
  public:
    explicit Mutator(std::vector<std::string> seeds) : seeds_(std::move(seeds)) {}

    std::string next() {
        static const char* const kWords[] = {"0",  "-1",    "\n",         "#", "]\n[",
                                             " ;", "65536", "4294967296", "=", "\xff\xff"};
        std::string s = seeds_[below(seeds_.size())];
        for (size_t n = 1 + below(6); n > 0; --n) {
            const size_t at = below(s.size() + 1);
            const size_t length = below(s.size() - at + 1);
            const std::string& other = seeds_[below(seeds_.size())];
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
        return s.substr(0, kLongest);
    }

  private:
    static constexpr size_t kLongest = 1 << 14;

    size_t below(size_t n) { return static_cast<size_t>(random_() % n); }

    std::vector<std::string> seeds_;
    std::mt19937_64 random_{1};
};

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> seeds = fuzz_seeds();
    if (argc == 3 && std::strcmp(argv[1], "--seeds") == 0) {
        for (size_t i = 0; i < seeds.size(); ++i) {
            write_file(std::string(argv[2]) + "/seed_" + std::to_string(i), seeds[i]);
        }
    } else if (argc == 3 && std::strcmp(argv[1], "--runs") == 0) {
        std::printf("input at hand: %s\n", scratch_path("input").c_str());
        std::fflush(stdout);
        for (const std::string& seed : seeds) {
            run(seed);
        }
        Mutator mutator(seeds);
        for (long n = std::atol(argv[2]); n > 0; --n) {
            run(mutator.next());
        }
    } else {
        for (int i = 1; i < argc; ++i) {
            run(read_file(argv[i]));
        }
    }
    return 0;
}
