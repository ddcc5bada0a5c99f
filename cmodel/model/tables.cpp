// The tables of registers and stages as users of the object see them.
#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "cmodel.h"
#include "cmodel_version.h"
#include "pipelines.h"

namespace {

using namespace cm;

const char* const kGroupNames[] = {"single", "curve", "table"};

constexpr Variant kVariants[][2] = {{kPlain, kTexture}, {kClassic, kClassic}};

void add_name(std::string& list, const char* name) {
    list += list.empty() ? "" : " ";
    list += name;
}

const Block* writing_block(Plane plane, Variant variant) {
    const Step* const step = find_writer(plane, variant);
    return step != nullptr ? step->block : nullptr;
}

// The stages of one pipeline, with the texts that their records point to.
class StageTable {
  public:
    StageTable(const PipelineRow& pipeline, const Variant (&variants)[2]) {
        for (const Step& step : all_steps()) {
            for (int k = 0; k < step.block->outputs; ++k) {
                if ((step.variants & (variants[0] | variants[1])) != 0) {
                    add(step.writes[k], pipeline, variants);
                }
            }
        }
    }

    int count() const { return static_cast<int>(stages_.size()); }
    const cmodel_stage_info* at(int i) const {
        return i >= 0 && i < count() ? &stages_[static_cast<size_t>(i)] : nullptr;
    }

  private:
    void add(Plane plane, const PipelineRow& pipeline, const Variant (&variants)[2]) {
        const PlaneRow& row = row_of(plane);
        if (std::any_of(stages_.begin(), stages_.end(), [&](const auto& s) { return s.name == row.name; })) {
            return;
        }
        cmodel_stage_info stage{row.name,  row.meaning,  row.unit, row.depth, row.is_signed(),
                                row.least, row.greatest, 0,        0,         {}};
        for (const DebugView& view : kDebugViews) {
            if (view.plane == plane) {
                stage.view_mode = view.mode;
                stage.view_shift = view.shift;
            }
        }
        for (int mode = 0; mode < 2; ++mode) {
            stage.making[mode] = describe(plane, pipeline, variants[mode]);
        }
        stages_.push_back(stage);
    }

    cmodel_making describe(Plane plane, const PipelineRow& pipeline, Variant variant) {
        const Step* const step = find_writer(plane, variant);
        if (step == nullptr) {
            return {};
        }
        std::string made_of, registers;
        for (int i = 0; i < step->block->inputs; ++i) {
            add_name(made_of, row_of(step->read(i, variant)).name);
        }
        for (const RegRow& row : kRegTable) {
            const bool chooses = variant != kClassic && row.is_followed_by(pipeline.function) &&
                                 &row == &kRegTable[reg_ee_texture_mode] &&
                                 writing_block(plane, kPlain) != writing_block(plane, kTexture);
            if (row.is_followed_by(step->block->name) || chooses) {
                add_name(registers, row.key);
            }
        }
        return {step->block->name, step->block->summary, keep(made_of), keep(registers),
                look_ahead_of(plane, variant)};
    }

    const char* keep(const std::string& text) {
        texts_.push_back(std::make_unique<std::string>(text));
        return texts_.back()->c_str();
    }

    std::vector<cmodel_stage_info> stages_;
    std::vector<std::unique_ptr<std::string>> texts_;
};

// Null for an unknown pipeline and when there is no memory for its table.
const StageTable* find_table(const char* pipeline) {
    const PipelineRow* const row = pipeline != nullptr ? find_pipeline(pipeline) : nullptr;
    try {
        static const StageTable pre_ee(kPreEe, kVariants[0]);
        static const StageTable classic(kClassicEe, kVariants[1]);
        return row == &kPreEe ? &pre_ee : row == &kClassicEe ? &classic : nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

struct RegisterTable {
    cmodel_register_info row[EE_REG_COUNT];
    RegisterTable() {
        for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
            const RegRow& r = kRegTable[slot];
            row[slot] = {r.key,     r.bits,       r.is_signed,          r.def,
                         r.least(), r.greatest(), kGroupNames[r.group], r.place,
                         r.meaning, r.followers};
        }
    }
};

}  // namespace

const char* cmodel_version(void) {
    return CMODEL_VERSION " (commit " CMODEL_COMMIT ")";
}

int cmodel_abi(void) {
    return CMODEL_ABI;
}

int cmodel_register_count(void) {
    return EE_REG_COUNT;
}

const cmodel_register_info* cmodel_register(int index) {
    static const RegisterTable table;
    return index >= 0 && index < EE_REG_COUNT ? &table.row[index] : nullptr;
}

int cmodel_find_register(const char* key) {
    return key != nullptr ? find_register(key) : -1;
}

const char* cmodel_pipeline(int index) {
    return index >= 0 && index < static_cast<int>(std::size(kPipelines)) ? kPipelines[index]->name : nullptr;
}

int cmodel_stage_count(const char* pipeline) {
    const StageTable* const table = find_table(pipeline);
    return table != nullptr ? table->count() : 0;
}

const cmodel_stage_info* cmodel_stage(const char* pipeline, int index) {
    const StageTable* const table = find_table(pipeline);
    return table != nullptr ? table->at(index) : nullptr;
}

int cmodel_find_stage(const char* pipeline, const char* name) {
    const StageTable* const table = find_table(pipeline);
    for (int i = 0; table != nullptr && name != nullptr && i < table->count(); ++i) {
        if (std::string_view(table->at(i)->name) == name) {
            return i;
        }
    }
    return -1;
}
