// A frame in the model's memory: the six input planes, and the picture that is shown of them.
import { bytesOf, Model, Sample, withPlane, type Plane } from './model.ts'
import { littleEndian, readPnm, writePgm, type Pnm } from './pnm.ts'
import { Failure } from './failure.ts'
import type { Pointer, Wasm } from './wasm.ts'

export const inputs = ['y', 'cb', 'cr', 'ynr', 'mmap', 'yfusion'] as const
export type Input = (typeof inputs)[number]

export interface InputInfo {
    name: Input
    width: number
    height: number
    depth: number
    /** The file that it is of, or how it was made. */
    origin: string
}

export interface FrameInfo {
    name: string
    width: number
    height: number
    inputs: InputInfo[]
}

/** The input that a file of a set is, by its name: words such as y, cb, src_ynr, mmap, yfusion, in any case. */
export function inputOfFile(name: string): Input | null {
    const words = name
        .toLowerCase()
        .replace(/\.[^.]*$/, '')
        .split(/[^a-z]+/)
    const synonyms: Record<Input, string[]> = {
        ynr: ['ynr', 'nr', 'denoised'],
        yfusion: ['yfusion', 'fusion', 'fused'],
        mmap: ['mmap', 'motion'],
        cb: ['cb', 'u'],
        cr: ['cr', 'v'],
        y: ['y', 'luma'],
    }
    const found = (Object.keys(synonyms) as Input[]).find(input => synonyms[input].some(s => words.includes(s)))
    return found ?? null
}

const depths: Record<Input, [number, number]> = {
    y: [8, 12],
    cb: [8, 8],
    cr: [8, 8],
    ynr: [8, 8],
    mmap: [8, 8],
    yfusion: [8, 20],
}

/** Of all planes and the picture, and what leaves room for stages in the 4 GiB that the model's addresses reach. */
const bytesPerPixel = 9
const mostBytes = 3.4e9

interface Held {
    plane: Plane
    origin: string
}

export class Frame {
    /** Red, green, blue and 255 of each pixel as it came. */
    photo: Pointer = 0
    /** The luma of these pixels. */
    before!: Plane
    /** Where runs put the output: whole frames of at most 2 bytes a sample. */
    output!: Plane
    private readonly planes: Partial<Record<Input, Held>> = {}
    private blocks: Pointer[] = []

    private constructor(
        private readonly wasm: Wasm,
        readonly name: string,
        readonly width: number,
        readonly height: number,
    ) {}

    /** A photograph as the browser decodes it. */
    static ofPhoto(wasm: Wasm, name: string, width: number, height: number, rgba: Uint8Array): Frame {
        return Frame.build(new Frame(wasm, name, width, height), frame => {
            frame.photo = frame.alloc(4 * width * height)
            wasm.bytes(frame.photo, rgba.length).set(rgba)
            frame.takePhoto()
        })
    }

    /** PGM files, each for the input that it is named after; a single one is luma. Or one PPM file. */
    static ofFiles(wasm: Wasm, files: { name: string; bytes: Uint8Array }[]): Frame {
        const images = files.map(file => ({ name: file.name, image: readPnm(file.bytes, file.name) }))
        const [first] = images
        if (images.length === 1 && first.image.channels === 3) {
            return Frame.ofPpm(wasm, first.name, first.image)
        }
        const given: Partial<Record<Input, { name: string; image: Pnm }>> = {}
        for (const file of images) {
            const input = images.length === 1 ? 'y' : inputOfFile(file.name)
            if (file.image.channels === 3) {
                throw new Failure(`${file.name} is a colour picture; a set of planes has one grey file for each plane.`)
            }
            if (input === null) {
                throw new Failure(
                    `${file.name}: a file of a set has y, cb, cr, ynr, mmap or yfusion as a word of its name.`,
                )
            }
            if (given[input] !== undefined) {
                throw new Failure(`${file.name} and ${given[input].name} both have the name of plane ${input}.`)
            }
            given[input] = file
        }
        if (given.y === undefined) {
            throw new Failure('Luma is missing: no file of the set has y as a word of its name.')
        }
        const { width, height } = given.y.image
        return Frame.build(new Frame(wasm, given.y.name, width, height), frame => frame.takePlanes(given))
    }

    private static ofPpm(wasm: Wasm, name: string, { width, height, depth, body }: Pnm): Frame {
        if (depth !== 8) {
            throw new Failure(`${name} has ${depth} bits; a colour picture has 8.`)
        }
        return Frame.build(new Frame(wasm, name, width, height), frame => {
            frame.photo = frame.alloc(4 * width * height)
            const rgba = wasm.bytes(frame.photo, 4 * width * height)
            for (let i = 0, at = 0; at < rgba.length; i += 3, at += 4) {
                rgba[at] = body[i]
                rgba[at + 1] = body[i + 1]
                rgba[at + 2] = body[i + 2]
                rgba[at + 3] = 255
            }
            frame.takePhoto()
        })
    }

    /** Nothing stays of a frame that cannot be had; one that cannot fit is refused before memory is taken. */
    private static build(frame: Frame, fill: (frame: Frame) => void): Frame {
        const { width, height } = frame
        const size = bytesPerPixel * width * height
        if (size > mostBytes) {
            const needs = `${(size / 1e9).toFixed(1)} of ${(mostBytes / 1e9).toFixed(1)} GB`
            throw new Failure(`There is no memory for a frame of ${width}x${height} (${needs}).`)
        }
        try {
            fill(frame)
            frame.output = frame.newPlane(Sample.U16, frame.width, frame.height, 8)
            return frame
        } catch (error) {
            frame.free()
            throw error
        }
    }

    free() {
        this.blocks.forEach(at => this.wasm.free(at))
        this.blocks = []
    }

    info(): FrameInfo {
        return {
            name: this.name,
            width: this.width,
            height: this.height,
            inputs: inputs.map(name => {
                const { plane, origin } = this.planes[name]!
                return { name, width: plane.width, height: plane.height, depth: plane.depth, origin }
            }),
        }
    }

    plane(input: Input): Plane {
        return this.planes[input]!.plane
    }

    bind(model: Model) {
        for (const name of inputs) {
            model.bindInput(name, this.plane(name))
        }
    }

    /** An input as a PGM file. */
    pgm(input: Input): Uint8Array<ArrayBuffer> {
        const { data, type, width, height, depth } = this.plane(input)
        return writePgm(width, height, depth, this.wasm.bytes(data, width * height * bytesOf(type)))
    }

    alloc(size: number): Pointer {
        const at = this.wasm.alloc(size, `a frame of ${this.width}x${this.height}`)
        this.blocks.push(at)
        return at
    }
    /** Gives back what alloc() gave. */
    release(at: Pointer) {
        this.blocks.splice(this.blocks.indexOf(at), 1)
        this.wasm.free(at)
    }
    newPlane(type: Sample, width: number, height: number, depth: number): Plane {
        return { data: this.alloc(width * height * bytesOf(type)), type, width, height, depth }
    }

    private fill(input: Input, width: number, height: number, value: number, origin: string) {
        const plane = this.newPlane(Sample.U8, width, height, 8)
        this.wasm.bytes(plane.data, width * height).fill(value)
        this.planes[input] = { plane, origin }
    }

    private takePhoto() {
        const { width, height, planes } = this
        const half = (width + 1) >> 1
        const of = { y: width, cb: half, cr: half }
        for (const name of ['y', 'cb', 'cr'] as const) {
            planes[name] = { plane: this.newPlane(Sample.U8, of[name], height, 8), origin: 'of the picture' }
        }
        const [y, cb, cr] = [planes.y!, planes.cb!, planes.cr!].map(held => held.plane.data)
        this.wasm.call.page_planes_of_photo(this.photo, width, height, y, cb, cr)
        this.addMissing()
        this.before = this.plane('ynr')
    }

    private takePlanes(given: Partial<Record<Input, { name: string; image: Pnm }>>) {
        const { wasm, planes } = this
        for (const input of inputs) {
            const file = given[input]
            if (file === undefined) {
                continue
            }
            const { width, height, depth, bytesPerSample, body } = file.image
            const [least, most] = depths[input]
            if (depth < least || depth > most) {
                const wanted = least === most ? `${least}` : `${least} to ${most}`
                throw new Failure(`${file.name} has ${depth} bits; plane ${input} has ${wanted}.`)
            }
            const isChroma = input === 'cb' || input === 'cr'
            if (!isChroma && (width !== this.width || height !== this.height)) {
                throw new Failure(`${file.name} has ${width}x${height} samples, luma ${this.width}x${this.height}.`)
            }
            if (isChroma && (height !== this.height || width < this.width >> 1 || width > (this.width + 1) >> 1)) {
                throw new Failure(
                    `${file.name} has ${width}x${height} samples; chroma has half of luma's width and its ` +
                        `height: ${(this.width + 1) >> 1}x${this.height}.`,
                )
            }
            const type = bytesPerSample === 1 ? Sample.U8 : bytesPerSample === 2 ? Sample.U16 : Sample.U32
            const plane = this.newPlane(type, width, height, depth)
            littleEndian(body, bytesPerSample, bytesOf(type), wasm.bytes(plane.data, width * height * bytesOf(type)))
            planes[input] = { plane, origin: file.name }
        }
        this.addMissing()
        this.before = this.plane('ynr')
        this.photo = this.alloc(4 * this.width * this.height)
        withPlane(wasm, this.before, ynr =>
            withPlane(wasm, this.plane('cb'), cb =>
                withPlane(wasm, this.plane('cr'), cr => wasm.call.page_photo_of_planes(ynr, cb, cr, this.photo)),
            ),
        )
    }

    /** What was not given: grey, a clean picture, nothing moves, one exposure. */
    private addMissing() {
        const { width, height, planes } = this
        for (const name of ['cb', 'cr'] as const) {
            if (planes[name] === undefined) {
                this.fill(name, (width + 1) >> 1, height, 128, 'grey')
            }
        }
        if (planes.ynr === undefined && this.plane('y').depth !== 8) {
            throw new Failure(
                `Luma has ${this.plane('y').depth} bits: a noise-reduced luma (ynr) of 8 bits has to come with it.`,
            )
        }
        planes.ynr ??= { plane: this.plane('y'), origin: 'luma itself' }
        planes.yfusion ??= { plane: this.plane('y'), origin: 'luma itself' }
        if (planes.mmap === undefined) {
            this.fill('mmap', width, height, 0, 'nothing moves')
        }
    }
}
