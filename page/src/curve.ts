// Curves of four knots and tables of 33 entries, as the blocks read them.
import { curveOut, curveSlope, knots, type Group, type Register } from './tables.ts'

/** The slope from one knot to the next in sixteenths, towards zero, as the model's tool for it has it. */
export function slopeBetween(x0: number, x1: number, y0: number, y1: number): number {
    const slope = x0 === x1 ? 0 : Math.trunc((16 * (y1 - y0)) / (x1 - x0))
    return Math.max(-2048, Math.min(2047, slope)) + 0
}

/** Whether the slopes of a curve are other than what its knots ask for. */
export function slopesDiffer(values: Int32Array, group: Group): boolean {
    const at = (place: number) => values[group.first + place]
    return Array.from({ length: knots - 1 }, (_, k) => k).some(
        k =>
            at(k) < at(k + 1) &&
            at(curveSlope + k) !== slopeBetween(at(k), at(k + 1), at(curveOut + k), at(curveOut + k + 1)),
    )
}

/** Sets the slopes of a curve to what its knots ask for. */
export function followKnots(values: Int32Array, group: Group) {
    const at = (place: number) => values[group.first + place]
    for (let k = 0; k < knots - 1; ++k) {
        values[group.first + curveSlope + k] = slopeBetween(at(k), at(k + 1), at(curveOut + k), at(curveOut + k + 1))
    }
}

/** The output of a curve for each input 0..255. */
export function curveOutputs(values: Int32Array, group: Group): number[] {
    const at = (place: number) => values[group.first + place]
    return Array.from({ length: 256 }, (_, x) => {
        if (x <= at(0)) {
            return at(curveOut)
        }
        if (x > at(knots - 1)) {
            return at(curveOut + knots - 1)
        }
        let i = 0
        while (at(i) < x) {
            ++i
        }
        const y0 = at(curveOut + i - 1),
            y1 = at(curveOut + i)
        const y = (((x - at(i - 1)) * at(curveSlope + i - 1)) >> 4) + y0
        return Math.max(Math.min(y0, y1), Math.min(Math.max(y0, y1), y))
    })
}

/** What a knot can be moved to: inputs between its neighbours'. */
export function placeKnot(values: Int32Array, group: Group, knot: number, x: number, y: number) {
    const at = (place: number) => values[group.first + place]
    const low = knot > 0 ? at(knot - 1) : 0
    const high = knot < knots - 1 ? at(knot + 1) : 255
    values[group.first + knot] = Math.max(low, Math.min(high, Math.round(x)))
    values[group.first + curveOut + knot] = Math.max(0, Math.min(255, Math.round(y)))
}

export function clampTo(register: Register, value: number): number {
    return Math.max(register.least, Math.min(register.greatest, Math.round(value)))
}
