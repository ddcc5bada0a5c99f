// Random settings, pictures and INI texts from a seed.
import type { Register } from '../src/tables.ts'

export const seed = Number(process.env.CMODEL_TEST_SEED ?? Date.now() % 1e9)

export class Random {
    constructor(private state: number) {}

    /** 0 .. n - 1. */
    below(n: number): number {
        this.state = (this.state + 0x6d2b79f5) | 0
        let t = Math.imul(this.state ^ (this.state >>> 15), 1 | this.state)
        t = (t + Math.imul(t ^ (t >>> 7), 61 | t)) ^ t
        return Math.floor((((t ^ (t >>> 14)) >>> 0) / 2 ** 32) * n)
    }
    chance(percent: number) {
        return this.below(100) < percent
    }
    pick<T>(list: readonly T[]): T {
        return list[this.below(list.length)]
    }

    /** Some registers of a useful setting at random, or all of them. */
    settings(registers: Register[], fusionDepth: number): Int32Array {
        const share = this.pick([10, 40, 100])
        return Int32Array.from(registers, r => {
            const thresholds = /luma_thr$/.test(r.key) ? 2 ** fusionDepth : /edge_thr|line_thr/.test(r.key) ? 200 : 2048
            const greatest = r.greatest > 65535 && this.chance(80) ? thresholds : r.greatest
            if (r.key === 'reg_ee_enable') {
                return this.chance(95) ? 1 : 0
            }
            if (r.key === 'reg_ee_debug_mode') {
                return this.chance(80) ? 0 : this.below(16)
            }
            return this.chance(share) || r.greatest > 65535
                ? r.least + this.below(greatest - r.least + 1)
                : r.defaultValue
        })
    }

    /** Flat parts, edges, noise: samples of up to 32 bits. */
    samples(width: number, height: number, depth: number): number[] {
        const top = 2 ** depth
        const noise = this.pick([1, top / 64, top / 4, top])
        const cell = 1 + this.below(9)
        const cells = Array.from({ length: 97 }, () => this.below(top))
        return Array.from({ length: width * height }, (_, i) => {
            const x = i % width,
                y = Math.floor(i / width)
            const at = cells[(Math.floor(x / cell) * 7 + Math.floor(y / cell) * 13) % cells.length]
            return Math.floor(Math.max(0, Math.min(top - 1, at + this.below(noise) - noise / 2)))
        })
    }
}

/** A binary PGM or PPM file of such samples. */
export function pnmFile(magic: string, width: number, height: number, depth: number, samples: number[]): Uint8Array {
    const bytes = Math.max(1, Math.ceil(depth / 8))
    const header = new TextEncoder().encode(`${magic}\n${width} ${height}\n${2 ** depth - 1}\n`)
    const file = new Uint8Array(header.length + samples.length * bytes)
    file.set(header)
    samples.forEach((v, i) => {
        for (let k = 0; k < bytes; ++k) {
            file[header.length + i * bytes + k] = (v >>> (8 * (bytes - 1 - k))) & 255
        }
    })
    return file
}
