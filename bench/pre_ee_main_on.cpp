// The program on an instruction set of choice: `pre_ee_main_on baseline|v3|v4 ...` runs pre_ee_main with the
// rest of the words. For measurements; the program itself always takes the best.
#include <cstdio>
#include <cstring>

#include "row_targets.h"

int driver_main(int argc, char** argv);

int main(int argc, char** argv) {
    static constexpr struct {
        const char* name;
        cm::RowTarget target;
    } kTargets[] = {
        {"baseline", cm::RowTarget::kBaseline}, {"v3", cm::RowTarget::kV3}, {"v4", cm::RowTarget::kV4}};
    for (const auto& entry : kTargets) {
        if (argc > 1 && std::strcmp(argv[1], entry.name) == 0) {
            cm::set_row_target(entry.target);
            return driver_main(argc - 1, argv + 1);
        }
    }
    std::fprintf(stderr, "usage: %s baseline|v3|v4 ARGUMENTS\n", argv[0]);
    return 2;
}
