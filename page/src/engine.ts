// What the page asks of the model, without a browser: pictures of a rectangle, a pixel explained, what curves look up,
// whole frames. Settings are the values of all registers by index.
import { sha256 } from '@noble/hashes/sha2.js'
import { bytesToHex } from '@noble/hashes/utils.js'
import { Frame, type FrameInfo, type Input } from './frame.ts'
import { bytesOf, Model, Sample, withPlane, type Plane, type Rect } from './model.ts'
import { bigEndian, writePgm } from './pnm.ts'
import type { Stage, Tables } from './tables.ts'
import { Failure } from './failure.ts'
import { Wasm, type Pointer } from './wasm.ts'

/** The sharpened picture, its luma, a stage, or the picture as it came. */
export type Show =
    | { what: 'picture' | 'luma' | 'before' | 'before luma' }
    | { what: 'stage'; stage: string; shift: number; aroundGrey: boolean }

export interface RenderRequest {
    /** Two settings may be looked at by turns: 0 and 1. */
    side: 0 | 1
    values: Int32Array
    rect: Rect
    /** Each pixel is the mean of so many rows and columns. */
    by: number
    show: Show
}

export interface Rendered {
    width: number
    height: number
    rgba: Uint8ClampedArray<ArrayBuffer>
    /** How long the model took, and all. */
    modelMs: number
    ms: number
}

export const lookups = ['brightness', 'motion', 'range', 'hue', 'amplitude'] as const
export type Lookup = (typeof lookups)[number]
export type Histograms = Record<Lookup, Uint32Array>

export interface FullFrame {
    sha256: string
    bits: number
    ms: number
}

const pipeline = 'pre_ee'

export class Engine {
    readonly tables: Tables
    private frame: Frame | null = null
    private readonly models: [Model, Model]
    private readonly fullModel: Model
    private readonly checker: Model
    private readonly index = new Map<string, number>()
    /** Memory of the frame for planes of stages, by place. */
    private scratch: { at: Pointer; size: number }[] = []
    private full: Plane | null = null

    private constructor(private readonly wasm: Wasm) {
        this.tables = wasm.tables(pipeline)
        this.tables.registers.forEach(r => this.index.set(r.key, r.index))
        const model = () => new Model(wasm, pipeline)
        this.models = [model(), model()]
        this.fullModel = model()
        this.checker = model()
    }

    static async create(): Promise<Engine> {
        return new Engine(await Wasm.load())
    }

    openPhoto(name: string, width: number, height: number, rgba: Uint8Array): FrameInfo {
        return this.open(() => Frame.ofPhoto(this.wasm, name, width, height, rgba))
    }
    openFiles(files: { name: string; bytes: Uint8Array }[]): FrameInfo {
        return this.open(() => Frame.ofFiles(this.wasm, files))
    }

    /** The frame before stays until the new one is there. */
    private open(make: () => Frame): FrameInfo {
        const frame = make()
        for (const model of [...this.models, this.fullModel]) {
            model.unbind()
            frame.bind(model)
        }
        this.frame?.free()
        this.frame = frame
        this.scratch = []
        this.full = null
        return frame.info()
    }

    frameInfo(): FrameInfo {
        return this.opened.info()
    }

    private get opened(): Frame {
        if (this.frame === null) {
            throw new Failure('No picture is open.')
        }
        return this.frame
    }

    /** The setting of an INI file, from the defaults on, and what is wrong in the file. */
    loadIni(text: Uint8Array, instance: string) {
        return this.checker.loadIni(text, instance)
    }

    render({ side, values, rect, by, show }: RenderRequest): Rendered {
        const start = performance.now()
        const { wasm, opened: frame } = this
        const model = this.models[side]
        const rgba = this.scratchAt(4, 4 * rect.width * rect.height)
        const reduced = by === 1 ? rgba : this.scratchAt(5, 4 * rect.width * rect.height)
        let ran = start
        const put = (draw: (rect: Pointer) => void) => wasm.withWords([rect.x, rect.y, rect.width, rect.height], draw)
        const showGrey = (plane: Plane, shift: number, aroundGrey: boolean) =>
            withPlane(wasm, plane, at => put(r => wasm.call.page_show_values(at, r, shift, Number(aroundGrey), rgba)))
        const showPicture = (after: Plane) =>
            withPlane(wasm, frame.before, was =>
                withPlane(wasm, after, is => put(r => wasm.call.page_show_picture(frame.photo, was, is, r, rgba))),
            )

        if (show.what === 'before') {
            showPicture(frame.before)
        } else if (show.what === 'before luma') {
            showGrey(frame.before, 3, false)
        } else {
            model.set(values)
            if (show.what === 'stage') {
                const plane = this.runStages(model, rect, [show.stage])[0]
                ran = performance.now()
                if (this.stage(show.stage).unit === 'class') {
                    withPlane(wasm, plane, at => put(r => wasm.call.page_show_classes(at, r, rgba)))
                } else {
                    showGrey(plane, show.shift, show.aroundGrey)
                }
            } else {
                const output = this.outputOf(values, frame.output)
                model.bindOutput(output)
                model.run(rect)
                ran = performance.now()
                const isView = values[this.index.get('reg_ee_debug_mode')!]
                if (show.what === 'picture' && output.depth === 8 && (isView < 1 || isView > 11)) {
                    showPicture(output)
                } else {
                    showGrey(output, 3 - (output.depth - 8), false)
                }
            }
        }
        const width = Math.floor(rect.width / by)
        const height = Math.floor(rect.height / by)
        if (by > 1) {
            wasm.call.page_reduce(rgba, rect.width, rect.height, by, reduced)
        }
        const copy = new Uint8ClampedArray(wasm.bytes(reduced, 4 * width * height))
        const end = performance.now()
        return { width, height, rgba: copy, modelMs: ran - start, ms: end - start }
    }

    explain(values: Int32Array, x: number, y: number): string {
        const [model] = this.models
        void this.opened
        model.set(values)
        return model.explain(x, y)
    }

    /** How often each value is looked up in the rectangle. */
    count(values: Int32Array, rect: Rect): Histograms {
        const { wasm, opened: frame } = this
        const isOn = (key: string) => values[this.index.get(key)!] === 1
        const on = values.slice()
        on[this.index.get('reg_ee_enable')!] = 1
        const model = this.models[1]
        model.set(on)
        const low = isOn('reg_ee_lumaref_lpf_en')
        const chroma = isOn('reg_ee_chromaref_lpf_en') ? ['lpf_cb', 'lpf_cr'] : ['cb_full', 'cr_full']
        const planes = this.runStages(model, rect, ['local_range', ...chroma, ...(low ? ['lpf_y'] : [])])
        const [range, blue, red] = planes
        const luma = low ? planes[3] : frame.plane('y')
        const bins = wasm.alloc(1024, 'a histogram')
        const count = (lookup: number, a: Plane, b: Plane | null) => {
            withPlane(wasm, a, first =>
                withPlane(wasm, b, second =>
                    wasm.withWords([rect.x, rect.y, rect.width, rect.height], r =>
                        wasm.call.page_count(lookup, first, second, r, bins),
                    ),
                ),
            )
            return new Uint32Array(wasm.words(bins, 256))
        }
        const histograms = {
            brightness: count(0, luma, null),
            motion: count(0, frame.plane('mmap'), null),
            range: count(1, range, null),
            hue: count(2, blue, red),
            amplitude: count(3, blue, red),
        }
        wasm.free(bins)
        return histograms
    }

    /** The whole frame; `progress` is told the share that is done, may wait, and ends the run by returning false. */
    async runFull(values: Int32Array, progress: (share: number) => Promise<boolean>): Promise<FullFrame | null> {
        const frame = this.opened
        const start = performance.now()
        const { width, height } = frame
        const model = this.fullModel
        this.full ??= { ...frame.output, data: frame.alloc(2 * width * height) }
        const output = this.outputOf(values, this.full)
        model.set(values)
        model.bindOutput(output)
        const rows = Math.max(64, Math.ceil(height / 20))
        for (let y = 0; y < height; y += rows) {
            model.run({ x: 0, y, width, height: Math.min(rows, height - y) })
            if (!(await progress(Math.min(1, (y + rows) / height))) || this.frame !== frame) {
                return null
            }
        }
        this.full = output
        const samples = this.wasm.bytes(output.data, width * height * bytesOf(output.type))
        const digest = sha256(bigEndian(samples, bytesOf(output.type), bytesOf(output.type)))
        return { sha256: bytesToHex(digest), bits: output.depth, ms: performance.now() - start }
    }

    /** The output of the last whole frame, as a PGM file. */
    fullPgm(): Uint8Array<ArrayBuffer> {
        const { data, type, width, height, depth } = this.fullPlane
        return writePgm(width, height, depth, this.wasm.bytes(data, width * height * bytesOf(type)))
    }
    /** The same with its colours, if it is a picture. */
    fullPicture(): Rendered {
        const { wasm, opened: frame, fullPlane: plane } = this
        const start = performance.now()
        const { width, height } = frame
        const size = 4 * width * height
        const rgba = wasm.alloc(size, 'the picture')
        try {
            withPlane(wasm, frame.before, was =>
                withPlane(wasm, plane, is =>
                    wasm.withWords([0, 0, width, height], rect =>
                        plane.depth === 8
                            ? wasm.call.page_show_picture(frame.photo, was, is, rect, rgba)
                            : wasm.call.page_show_values(is, rect, 11 - plane.depth, 0, rgba),
                    ),
                ),
            )
            const copy = new Uint8ClampedArray(wasm.bytes(rgba, size))
            return { width, height, rgba: copy, modelMs: 0, ms: performance.now() - start }
        } finally {
            wasm.free(rgba)
        }
    }
    inputPgm(input: Input): Uint8Array<ArrayBuffer> {
        return this.opened.pgm(input)
    }

    private get fullPlane(): Plane {
        if (this.full === null) {
            throw new Failure('The whole frame has not been run.')
        }
        return this.full
    }

    private stage(name: string): Stage {
        return this.tables.stages.find(s => s.name === name)!
    }

    /** Where a setting's output goes: 8 bits, but for a copy of deeper luma. */
    private outputOf(values: Int32Array, room: Plane): Plane {
        const depth = values[this.index.get('reg_ee_enable')!] === 1 ? 8 : this.opened.plane('y').depth
        return { ...room, depth, type: depth === 8 ? Sample.U8 : Sample.U16 }
    }

    private runStages(model: Model, rect: Rect, names: string[]): Plane[] {
        const { width, height } = this.opened
        const planes = names.map((name, place): Plane => {
            const { least, greatest } = this.stage(name)
            const type =
                least >= 0 && greatest <= 255
                    ? Sample.U8
                    : least >= -32768 && greatest <= 32767
                      ? Sample.S16
                      : Sample.S32
            return { data: this.scratchAt(place, width * height * bytesOf(type)), type, width, height, depth: 8 }
        })
        model.bindOutput(null)
        try {
            names.forEach((name, i) => model.bindStage(name, planes[i]))
            model.run(rect)
        } finally {
            names.forEach(name => model.bindStage(name, null))
        }
        return planes
    }

    private scratchAt(place: number, size: number): Pointer {
        const held = this.scratch[place]
        if (held === undefined || held.size < size) {
            if (held !== undefined) {
                this.opened.release(held.at)
            }
            delete this.scratch[place]
            this.scratch[place] = { at: this.opened.alloc(size), size }
        }
        return this.scratch[place].at
    }
}
