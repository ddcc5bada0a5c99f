// The settings to start from: register files of section [ee] with a value a line.
import mild from '../../settings/mild.ini'
import noisy from '../../settings/noisy.ini'
import strong from '../../settings/strong.ini'
import texture from '../../settings/texture.ini'
import type { Register } from './tables.ts'

const files = { mild, strong, noisy, texture }

/** Values by name, the defaults among them. */
export function presets(registers: Register[]): Record<string, Int32Array> {
    const defaults = Int32Array.from(registers, r => r.defaultValue)
    const read = (text: string) => {
        const given = new Map([...text.matchAll(/^(\w+) = (-?\d+)$/gm)].map(m => [m[1], Number(m[2])]))
        return Int32Array.from(registers, r => given.get(r.key) ?? r.defaultValue)
    }
    return { defaults, ...Object.fromEntries(Object.entries(files).map(([name, text]) => [name, read(text)])) }
}
