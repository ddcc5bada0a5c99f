// The calls of the model object in any order: planes of any kind, registers, INI texts, runs. A run that was
// possible is checked: against the whole frame on a new model with the same registers and inputs, sample by
// sample, and nothing but its samples may have changed.
#include <climits>
#include <cstring>
#include <memory>

#include "cmodel.h"
#include "files.h"
#include "fuzz.h"

namespace {

constexpr size_t kBytes = 1 << 16;
const char* const kInputs[] = {"y", "cb", "cr", "ynr", "mmap", "yfusion", "red", "green", "blue", "none"};

// One model, and what it was last told.
struct Subject {
    cmodel* m = nullptr;
    const char* pipeline;
    cmodel_plane input[10], written[64];
    bool has_input[10] = {}, has_written[64] = {};  // written: the output, then stages

    explicit Subject(const char* name) : pipeline(name) { FUZZ_CHECK(cmodel_new(name, &m) == 0); }
    ~Subject() { cmodel_free(m); }
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;

    int bind_written(int i, const cmodel_plane* p) {
        return i == 0 ? cmodel_bind_output(m, p)
                      : cmodel_bind_stage(m, cmodel_stage(pipeline, i - 1)->name, p);
    }
};

size_t bytes_of(int type) {
    return size_t{1} << (type - 1) / 2;
}

// A plane in `memory`, whatever its fields say, or one that is refused.
cmodel_plane take_plane(Input& in, std::vector<uint8_t>& memory) {
    const int flags = in.byte(), width = 1 + flags % 8 * (flags % 3), height = 1 + flags / 32;
    const int chroma = in.byte(), type = 1 + in.byte() % 6;
    cmodel_plane p{nullptr, type, chroma % 4 == 1 ? (width + 1) / 2 : width, height,
                   0,       0,    8 + (chroma > 200 ? chroma % 14 : 0)};
    const int layout = in.byte();
    p.step = static_cast<ptrdiff_t>(bytes_of(type)) + layout % 3;
    p.row_stride = p.step * (width + layout % 2);
    if (layout % 5 == 4) p.step = in.byte() - 128;
    if (layout % 7 == 6) p.row_stride = in.byte() - 128;
    const ptrdiff_t at =
        static_cast<ptrdiff_t>(in.word() % (kBytes - 8192)) + 4096;  // 128 * (14 + 7) bytes around
    p.data = &memory[static_cast<size_t>(at)];
    const int broken = in.byte();
    if (broken == 1) p.type = in.byte() - 100;
    if (broken == 2) p.data = nullptr;
    if (broken == 3) p.height = static_cast<int>(in.word() | 0x80000000);
    if (broken == 4) p.step = PTRDIFF_MAX / (1 + in.byte());
    if (broken == 5) p.row_stride = PTRDIFF_MIN;
    return p;
}

// What a rectangle wrote, against a whole frame that another model writes elsewhere.
void check_run(Subject& s, std::vector<uint8_t>& memory, const std::vector<uint8_t>& before,
               const int (&r)[4], int status) {
    if (status != 0) {
        FUZZ_CHECK(*cmodel_error(s.m) != '\0');
        FUZZ_CHECK(memory == before || std::strstr(cmodel_error(s.m), "does not fit the type") != nullptr);
        return;
    }
    std::vector<uint8_t> expected = before, got = memory;
    memory = before;
    Subject whole(s.pipeline);
    cmodel_copy_registers(whole.m, s.m);
    for (int i = 0; i < 9; ++i)
        if (s.has_input[i]) FUZZ_CHECK(cmodel_bind_input(whole.m, kInputs[i], &s.input[i]) == 0);
    for (int i = 0; i <= cmodel_stage_count(s.pipeline); ++i) {
        if (!s.has_written[i]) continue;
        std::vector<int32_t> samples(static_cast<size_t>(s.written[i].width) *
                                     static_cast<size_t>(s.written[i].height));
        const cmodel_plane own{samples.data(),
                               CMODEL_S32,
                               s.written[i].width,
                               s.written[i].height,
                               4 * s.written[i].width,
                               4,
                               0};
        FUZZ_CHECK(whole.bind_written(i, &own) == 0);
        FUZZ_CHECK(cmodel_run(whole.m) == 0);
        whole.bind_written(i, nullptr);
        for (int k = 0; k < r[2] * r[3]; ++k) {
            const int x = r[0] + k % r[2], y = r[1] + k / r[2];
            const ptrdiff_t at = static_cast<uint8_t*>(s.written[i].data) - memory.data() +
                                 s.written[i].row_stride * y + s.written[i].step * x;
            put_sample(&expected[static_cast<size_t>(at)], samples[static_cast<size_t>(y * own.width + x)],
                       bytes_of(s.written[i].type));
        }
    }
    FUZZ_CHECK(got == expected);
    memory = got;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    std::vector<uint8_t> memory(kBytes);
    for (uint32_t i = 0, noise = in.word(); i < kBytes; ++i)
        memory[i] = static_cast<uint8_t>((noise = noise * 1664525 + 1013904223) >> 24);
    Subject subjects[] = {Subject("pre_ee"), Subject("classic")};
    while (in.left > 0) {
        const int call = in.byte();
        Subject& s = subjects[call / 16 % 2];
        const int stages = cmodel_stage_count(s.pipeline);
        const cmodel_register_info& reg = *cmodel_register(in.byte() % cmodel_register_count());
        switch (call % 12) {
            case 0: {
                const int32_t v = static_cast<int32_t>(in.word() >> in.byte() % 32);
                int32_t after;
                const bool fits = v >= reg.least && v <= reg.greatest;
                FUZZ_CHECK((cmodel_set(s.m, reg.key, v) == 0) == fits &&
                           cmodel_get(s.m, reg.key, &after) == 0);
                FUZZ_CHECK(!fits || after == v);
                break;
            }
            case 1:
                in.byte() % 2 == 0 ? cmodel_reset(s.m)
                                   : cmodel_copy_registers(s.m, subjects[in.byte() % 2].m);
                break;
            case 2: {
                const std::string text =
                    (in.byte() % 4 == 0 ? "" : "[ee]\n") + in.rest().substr(0, in.byte());
                const int findings = cmodel_load_ini_text(s.m, text.data(), text.size(), nullptr);
                FUZZ_CHECK(findings >= 0 && cmodel_finding(s.m, findings) == nullptr);
                FUZZ_CHECK(findings == 0 || cmodel_finding(s.m, findings - 1) != nullptr);
                break;
            }
            case 3:
            case 4:
            case 5:
            case 6: {
                const int name = in.byte(), i = name % (name < 240 ? 6 : 10);
                const cmodel_plane p = take_plane(in, memory);
                if (cmodel_bind_input(s.m, kInputs[i], &p) == 0) s.input[i] = p, s.has_input[i] = true;
                break;
            }
            case 7:
            case 8: {
                const int i = in.byte() % (stages + 1);
                const cmodel_plane p = take_plane(in, memory);
                if (s.bind_written(i, &p) == 0) s.written[i] = p, s.has_written[i] = true;
                break;
            }
            case 9: {
                const int i = in.byte();
                cmodel_bind_input(s.m, kInputs[i % 9], nullptr), s.has_input[i % 9] = false;
                if (i > 200) s.has_written[i % (stages + 1)] = s.bind_written(i % (stages + 1), nullptr) != 0;
                if (i == 255)
                    cmodel_unbind(s.m), std::memset(s.has_input, 0, 10), std::memset(s.has_written, 0, 64);
                break;
            }
            default: {
                int r[4] = {in.byte() % 8, in.byte() % 4, 1 + in.byte() % 9, 1 + in.byte() % 4};
                const std::vector<uint8_t> before = memory;
                check_run(s, memory, before, r, cmodel_run_rect(s.m, r[0], r[1], r[2], r[3]));
            }
        }
    }
    return 0;
}

// Frames that can be run, with random registers, layouts and rectangles; mutations spoil them soon enough.
std::vector<std::string> fuzz_seeds() {
    std::vector<std::string> seeds;
    uint32_t noise = 1;
    const auto draw = [&](uint32_t n) {
        return static_cast<int>(((noise = noise * 1664525 + 1013904223) >> 8) % n);
    };
    for (int k = 0; k < 40; ++k) {
        std::string s = "seed";
        const auto add = [&](std::initializer_list<int> bytes) {
            for (const int b : bytes) s += static_cast<char>(b);
        };
        const int subject = k % 2 * 16, size = draw(256), rgb = k % 5 == 4;
        const auto plane = [&](int call, int index, int chroma, int type) {
            add({call + subject, 0, index, size, chroma, type, 5 * draw(3), draw(256), draw(256), draw(256),
                 draw(256), 0});
        };
        for (int i = 0; i < 40; ++i)
            add({subject, draw(256), draw(2) * draw(256), draw(256), draw(256), draw(256), 20 + draw(12)});
        add({subject, 0, 0, 0, 0, 1, 0});  // enabled
        for (int i = rgb ? 6 : 0; i < (rgb ? 9 : 3); ++i)
            plane(3, rgb ? 240 + i : i, i == 1 || i == 2, rgb ? 2 : 3 * draw(2));
        for (int i = 3; i < 6; ++i) plane(3, i, 0, 2);
        plane(7, 0, 0, 5);
        for (int i = 0; i < 4; ++i) {
            plane(7, draw(32), 0, 5);
            add({10 + subject, 0, draw(2), draw(2), draw(4), draw(3)});
            add({10 + subject, 0, 0, 0, 0, 0});
        }
        seeds.push_back(s);
    }
    return seeds;
}
