// The model's code and its memory. Memory grows, which detaches every view of it: views are made anew for each use.
import createModule from '#model'
import wasmBinary from '#wasm'
import { Failure } from './failure.ts'
import type { Making, Register, Stage, Tables } from './tables.ts'

export type Pointer = number

export class Wasm {
    /** The exported functions, by their names in C; pointers that they return may be negative. */
    readonly call: Record<string, (...args: number[]) => number>

    private constructor(private readonly module: any) {
        this.call = new Proxy({}, { get: (_, name: string) => module['_' + name] })
    }

    static async load(): Promise<Wasm> {
        return new Wasm(await createModule({ wasmBinary, print: () => {}, printErr: () => {} }))
    }

    bytes(at: Pointer, count: number): Uint8Array<ArrayBuffer> {
        return new Uint8Array(this.module.HEAPU8.buffer, at, count)
    }
    words(at: Pointer, count: number): Int32Array<ArrayBuffer> {
        return new Int32Array(this.module.HEAPU8.buffer, at, count)
    }
    text(at: Pointer): string {
        const heap: Uint8Array = this.module.HEAPU8
        const start = at >>> 0
        return new TextDecoder().decode(heap.subarray(start, heap.indexOf(0, start)))
    }

    /** Memory of that size, to be freed with free(); a Failure that names `what` when there is none. */
    alloc(size: number, what: string): Pointer {
        const at = size < 2 ** 32 - 2 ** 20 ? this.call.malloc(size) >>> 0 : 0
        if (at === 0) {
            throw new Failure(`There is no memory for ${what} (${Math.ceil(size / 1e6)} MB).`)
        }
        return at
    }
    free(at: Pointer) {
        this.call.free(at)
    }

    /** Calls back with memory that holds the bytes and a 0 after them. */
    withBytes<T>(bytes: Uint8Array, use: (at: Pointer) => T): T {
        const at = this.alloc(bytes.length + 1, 'a text')
        try {
            const copy = this.bytes(at, bytes.length + 1)
            copy.set(bytes)
            copy[bytes.length] = 0
            return use(at)
        } finally {
            this.free(at)
        }
    }
    withWords<T>(words: number[], use: (at: Pointer) => T): T {
        return this.withBytes(new Uint8Array(Int32Array.from(words).buffer), use)
    }
    withText<T>(text: string, use: (at: Pointer) => T): T {
        return this.withBytes(new TextEncoder().encode(text), use)
    }

    /** Pointers to the registers' keys, by index. */
    keys(): Pointer[] {
        return Array.from(
            { length: this.call.cmodel_register_count() },
            (_, i) => this.words(this.call.cmodel_register(i) >>> 0, 1)[0] >>> 0,
        )
    }

    tables(pipeline: string): Tables {
        const words = (text: string) => (text === '' ? [] : text.split(' '))
        const registers = this.keys().map((_, index): Register => {
            const [key, , isSigned, defaultValue, least, greatest, group, place, meaning, followers] = this.words(
                this.call.cmodel_register(index) >>> 0,
                10,
            )
            return {
                index,
                defaultValue,
                least,
                greatest,
                place,
                key: this.text(key),
                isSigned: isSigned !== 0,
                group: this.text(group) as Register['group'],
                meaning: this.text(meaning),
                followers: words(this.text(followers)),
            }
        })
        const stages = this.withText(pipeline, name =>
            Array.from({ length: this.call.cmodel_stage_count(name) }, (_, i): Stage => {
                const row = this.words(this.call.cmodel_stage(name, i) >>> 0, 19)
                const making = (at: number): Making => ({
                    block: row[at] === 0 ? null : this.text(row[at]),
                    summary: row[at] === 0 ? '' : this.text(row[at + 1]),
                    madeOf: row[at] === 0 ? [] : words(this.text(row[at + 2])),
                    registers: row[at] === 0 ? [] : words(this.text(row[at + 3])),
                })
                const view = this.call.page_stage_view(row[0])
                return {
                    name: this.text(row[0]),
                    meaning: this.text(row[1]),
                    unit: this.text(row[2]),
                    least: row[5],
                    greatest: row[6],
                    making: [making(9), making(14)],
                    shift: view >> 1,
                    aroundGrey: (view & 1) !== 0,
                }
            }),
        )
        return { version: this.text(this.call.cmodel_version()), registers, stages }
    }
}
