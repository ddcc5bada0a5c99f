// Register files and links.
import { shortName, type Group, type Register } from './tables.ts'

/** A register file of section [ee]: all registers, or those that differ from their defaults. */
export function iniText(registers: Register[], values: Int32Array, onlyChanged: boolean): string {
    const lines = registers
        .filter(r => !onlyChanged || values[r.index] !== r.defaultValue)
        .map(r => `${r.key} = ${values[r.index]}\n`)
    return `[ee]\n${lines.join('')}`
}

/** What differs from the defaults, as the end of an address: total_gain=64&motion_lut=0,64,..., or "defaults". */
export function linkText(registers: Register[], groups: Group[], values: Int32Array): string {
    const changed = groups.filter(g =>
        registers.slice(g.first, g.first + g.count).some(r => values[r.index] !== r.defaultValue),
    )
    return (
        changed.map(g => `${shortName(g.name)}=${values.slice(g.first, g.first + g.count).join(',')}`).join('&') ||
        'defaults'
    )
}

/** The setting of a link, and what in it cannot be taken. */
export function readLink(
    registers: Register[],
    groups: Group[],
    text: string,
): { values: Int32Array; wrong: string[] } {
    const values = Int32Array.from(registers, r => r.defaultValue)
    const wrong: string[] = []
    for (const part of text.split('&').filter(p => p !== '' && p !== 'defaults')) {
        const [name, list = ''] = part.split('=')
        const group = groups.find(g => shortName(g.name) === name)
        const numbers = list.split(',')
        const fits =
            group !== undefined &&
            numbers.length === group.count &&
            numbers.every((n, i) => {
                const { least, greatest } = registers[group.first + i]
                return /^-?\d{1,8}$/.test(n) && Number(n) >= least && Number(n) <= greatest
            })
        if (!fits) {
            wrong.push(part.length > 60 ? part.slice(0, 57) + '...' : part)
        } else {
            numbers.forEach((n, i) => {
                values[group.first + i] = Number(n)
            })
        }
    }
    return { values, wrong }
}
