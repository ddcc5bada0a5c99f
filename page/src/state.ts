// The setting that is tuned, with its past; the settings that were put aside; what is looked at.
import { followKnots, slopesDiffer } from './curve.ts'
import type { Group, Tables } from './tables.ts'

export interface Setting {
    values: Int32Array
    /** Names of the curves whose slopes stay as they are when knots move. */
    byHand: ReadonlySet<string>
}

export interface Snapshot {
    name: string
    values: Int32Array
}

export interface Snapshots {
    load(): Snapshot[]
    save(list: Snapshot[]): void
}

interface Step extends Setting {
    /** Changes of the same thing in one go are one step. */
    gesture: string
}

const mostSteps = 500

/** The setting and its past. Values that were handed out are not changed any more. */
export class History {
    private readonly steps: Step[]
    private at = 0

    constructor(
        readonly tables: Tables,
        readonly groups: Group[],
        start?: Int32Array,
    ) {
        this.steps = [{ ...this.settingOf(start ?? this.defaults()), gesture: '' }]
    }

    get current(): Setting {
        return this.steps[this.at]
    }
    get canUndo() {
        return this.at > 0
    }
    get canRedo() {
        return this.at < this.steps.length - 1
    }

    defaults(): Int32Array {
        return Int32Array.from(this.tables.registers, r => r.defaultValue)
    }

    undo() {
        this.at = Math.max(0, this.at - 1)
    }
    redo() {
        this.at = Math.min(this.steps.length - 1, this.at + 1)
    }

    /** Another setting as a whole; slopes that do not follow their knots are by hand. */
    replace(values: Int32Array) {
        this.push({ ...this.settingOf(values), gesture: '' })
    }

    /** Registers of a group; slopes of a curve follow unless they are by hand or `change` says so. */
    change(group: Group, gesture: string, change: (values: Int32Array) => void, byHand?: boolean) {
        const values = this.current.values.slice()
        change(values)
        const hand = new Set(this.current.byHand)
        if (byHand === true) {
            hand.add(group.name)
        } else if (byHand === false) {
            hand.delete(group.name)
        }
        if (group.kind === 'curve' && !hand.has(group.name)) {
            followKnots(values, group)
        }
        const isSame = values.every((v, i) => v === this.current.values[i]) && hand.size === this.current.byHand.size
        if (!isSame) {
            this.push({ values, byHand: hand, gesture })
        }
    }

    /** The next change is a step of its own. */
    endGesture() {
        this.steps[this.at].gesture = ''
    }

    private settingOf(values: Int32Array): Setting {
        const curves = this.groups.filter(g => g.kind === 'curve' && slopesDiffer(values, g))
        return { values: values.slice(), byHand: new Set(curves.map(g => g.name)) }
    }

    private push(step: Step) {
        const goesOn = step.gesture !== '' && step.gesture === this.steps[this.at].gesture && this.at > 0
        this.steps.length = this.at + (goesOn ? 0 : 1)
        this.steps.push(step)
        if (this.steps.length > mostSteps) {
            this.steps.shift()
        }
        this.at = this.steps.length - 1
    }
}

/** Snapshots outlive the page where the browser lets them; without that they last as long as it. */
export const snapshotStore: Snapshots = {
    load() {
        try {
            const list = JSON.parse(localStorage.getItem('cmodel.snapshots') ?? '[]')
            return list.map((s: { name: string; values: number[] }) => ({
                name: String(s.name),
                values: Int32Array.from(s.values),
            }))
        } catch {
            return []
        }
    },
    save(list) {
        try {
            localStorage.setItem(
                'cmodel.snapshots',
                JSON.stringify(list.map(s => ({ name: s.name, values: [...s.values] }))),
            )
        } catch {
            // It lasts as long as the page.
        }
    },
}
