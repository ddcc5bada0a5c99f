// Binary PGM and PPM files, bit for bit as the program reads and writes them: samples of 1 to 4 big-endian bytes by
// depth, which is ceil(log2(greatest value)).
import { Failure } from './failure.ts'

export interface Pnm {
    width: number
    height: number
    /** 1: grey; 3: red, green, blue by turns. */
    channels: 1 | 3
    depth: number
    bytesPerSample: number
    /** Of the samples alone, as they are in the file. */
    body: Uint8Array
}

const bytesOfDepth = (depth: number) => Math.max(1, Math.ceil(depth / 8))

export function readPnm(file: Uint8Array, name: string): Pnm {
    const fail = (what: string) => new Failure(`${name} ${what}.`)
    let at = 0
    const isSpace = (c: number) => c === 32 || (c >= 9 && c <= 13)
    const skip = () => {
        for (; at < file.length && (isSpace(file[at]) || file[at] === 35); ++at) {
            if (file[at] === 35) {
                while (at < file.length && file[at] !== 10) {
                    ++at
                }
            }
        }
    }
    const number = (what: string) => {
        skip()
        let digits = ''
        while (at < file.length && file[at] >= 48 && file[at] <= 57 && digits.length < 12) {
            digits += String.fromCharCode(file[at++])
        }
        const value = Number(digits)
        if (digits === '' || value < 1 || value > 2 ** 31 - 1) {
            throw fail(`is no image that can be read: its ${what} is ${digits === '' ? 'missing' : digits}`)
        }
        return value
    }
    const magic = String.fromCharCode(file[0], file[1])
    if (magic !== 'P5' && magic !== 'P6') {
        throw fail('is no binary PGM or PPM file')
    }
    at = 2
    const width = number('width')
    const height = number('height')
    const greatest = number('greatest value')
    const depth = Math.ceil(Math.log2(greatest))
    const channels = magic === 'P5' ? 1 : 3
    if (depth < 1) {
        throw fail('has a greatest value of 1, which leaves no bits for samples')
    }
    const bytesPerSample = bytesOfDepth(depth)
    const size = width * height * channels * bytesPerSample
    const body = file.subarray(at + 1)
    if (width * height > 2 ** 29) {
        throw fail(`has ${width}x${height} samples, more than the page can hold`)
    }
    if (body.length < size) {
        throw fail(
            `ends early: ${width}x${height} samples of ${depth} bits need ${size} bytes, ${body.length} are there`,
        )
    }
    return { width, height, channels, depth, bytesPerSample, body: body.subarray(0, size) }
}

/** A grey file of samples that the machine holds in 1, 2 or 4 bytes each, little-endian. */
export function writePgm(width: number, height: number, depth: number, samples: Uint8Array): Uint8Array<ArrayBuffer> {
    const header = new TextEncoder().encode(`P5\n${width} ${height}\n${2 ** depth - 1}\n`)
    const body = bigEndian(samples, samples.length / (width * height), bytesOfDepth(depth))
    const file = new Uint8Array(header.length + body.length)
    file.set(header)
    file.set(body, header.length)
    return file
}

/** Samples of `held` bytes, little-endian, as big-endian ones of `written` bytes. */
export function bigEndian(samples: Uint8Array, held: number, written: number): Uint8Array {
    if (held === 1 && written === 1) {
        return samples
    }
    const out = new Uint8Array((samples.length / held) * written)
    for (let i = 0, at = 0; i < samples.length; i += held) {
        for (let k = written - 1; k >= 0; --k) {
            out[at++] = k < held ? samples[i + k] : 0
        }
    }
    return out
}

/** Samples as the machine holds them: 1, 2 or 4 bytes, little-endian, into `out`. */
export function littleEndian(body: Uint8Array, bytesPerSample: number, held: number, out: Uint8Array) {
    if (bytesPerSample === 1 && held === 1) {
        out.set(body)
        return
    }
    for (let i = 0, at = 0; i < body.length; i += bytesPerSample, at += held) {
        for (let k = 0; k < held; ++k) {
            out[at + k] = k < bytesPerSample ? body[i + bytesPerSample - 1 - k] : 0
        }
    }
}
