// The model's tables, as they are walked by index, and what the page makes of them.

export interface Register {
    index: number
    key: string
    isSigned: boolean
    defaultValue: number
    least: number
    greatest: number
    group: 'single' | 'curve' | 'table'
    place: number
    meaning: string
    followers: string[]
}

export interface Making {
    block: string | null
    summary: string
    madeOf: string[]
    registers: string[]
}

export interface Stage {
    name: string
    meaning: string
    unit: string
    least: number
    greatest: number
    /** In texture modes 0 and 1. */
    making: [Making, Making]
    /** The shift that suits it, and whether that view is around grey. */
    shift: number
    aroundGrey: boolean
}

export interface Tables {
    version: string
    registers: Register[]
    stages: Stage[]
}

/** A curve, a table, or a register of its own. */
export interface Group {
    /** The key; of a curve or table the part that its registers share. */
    name: string
    kind: Register['group']
    /** Index of its first register; the others follow. */
    first: number
    count: number
    meaning: string
}

export interface Section {
    block: string
    summary: string
    groups: Group[]
}

export const knots = 4
/** Places of a curve's registers behind its first: outputs, then slopes. */
export const curveOut = 4
export const curveSlope = 8

/** Registers without "reg_", which all have. */
export const shortName = (key: string) => key.replace(/^reg_(ee_)?/, '')

export function groupsOf(registers: Register[]): Group[] {
    const groups: Group[] = []
    for (const r of registers) {
        if (r.group !== 'single' && r.place > 0) {
            groups[groups.length - 1].count++
        } else {
            const name = r.group === 'single' ? r.key : r.key.replace(/_(in_0|00)$/, '')
            groups.push({ name, kind: r.group, first: r.index, count: 1, meaning: r.meaning })
        }
    }
    return groups
}

/** Groups by the block of the pipeline that first follows them, blocks in the order of the pipeline. */
export function sectionsOf(tables: Tables, groups: Group[]): Section[] {
    const sections: Section[] = [{ block: 'pre_ee_hw', summary: 'the pipeline as a whole', groups: [] }]
    for (const stage of tables.stages) {
        for (const making of stage.making) {
            if (making.block !== null && !sections.some(s => s.block === making.block)) {
                sections.push({ block: making.block, summary: making.summary, groups: [] })
            }
        }
    }
    const others: Section = { block: 'no block', summary: 'without effect in this pipeline', groups: [] }
    for (const group of groups) {
        const followers = tables.registers[group.first].followers
        const section = sections.find(s => followers.includes(s.block)) ?? others
        section.groups.push(group)
    }
    return [...sections, others].filter(s => s.groups.length > 0)
}
