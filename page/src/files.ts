// Files in and out.
import { zipSync } from 'fflate'
import type { App } from './app.ts'
import { Failure } from './failure.ts'
import { inputs } from './frame.ts'
import { iniText } from './ini.ts'

async function decode(file: File): Promise<ImageData> {
    let bitmap: ImageBitmap
    try {
        bitmap = await createImageBitmap(file, { colorSpaceConversion: 'none' })
    } catch {
        throw new Failure(`${file.name} is no picture that this browser can decode.`)
    }
    const { width, height } = bitmap
    try {
        const canvas = document.createElement('canvas')
        canvas.width = width
        canvas.height = height
        const context = canvas.getContext('2d', { willReadFrequently: true })!
        context.fillStyle = '#fff'
        context.fillRect(0, 0, width, height)
        context.drawImage(bitmap, 0, 0)
        return context.getImageData(0, 0, width, height)
    } catch {
        throw new Failure(`${file.name}: a picture of ${width}x${height} is more than this browser can hold.`)
    } finally {
        bitmap.close()
    }
}

/** Opens what was dropped or chosen: register files, a picture, planes. */
export async function openFiles(app: App, files: File[]) {
    const isIni = (file: File) => /\.(ini|cfg|conf|txt)$/i.test(file.name)
    const isPnm = (file: File) => /\.(pgm|ppm|pnm)$/i.test(file.name)
    for (const file of files.filter(isIni)) {
        const bytes = await app.attempt(() => readBytes(file))
        if (bytes !== null) {
            await app.loadIni(file.name, bytes)
        }
    }
    const planes = files.filter(isPnm)
    const pictures = files.filter(f => !isIni(f) && !isPnm(f))
    if (pictures.length + (planes.length > 0 ? 1 : 0) > 1) {
        app.tell('One picture, or one set of planes, at a time.', [], true)
    } else if (planes.length > 0) {
        await app.opened(
            (async () => {
                const read = await Promise.all(
                    planes.map(async file => ({ name: file.name, bytes: await readBytes(file) })),
                )
                return app.client.openFiles(read)
            })(),
        )
    } else if (pictures.length === 1) {
        await app.opened(
            (async () => {
                const { width, height, data } = await decode(pictures[0])
                return app.client.openPhoto(pictures[0].name, width, height, data as Uint8ClampedArray<ArrayBuffer>)
            })(),
        )
    }
}

async function readBytes(file: File): Promise<Uint8Array> {
    try {
        return new Uint8Array(await file.arrayBuffer())
    } catch {
        throw new Failure(`${file.name} cannot be read.`)
    }
}

/** Lets the user choose files; the element stays out of sight. */
export function chooseFiles(app: App, accept: string) {
    const input = document.createElement('input')
    input.type = 'file'
    input.multiple = true
    input.accept = accept
    input.onchange = () => void openFiles(app, [...input.files!])
    input.click()
}

export function save(name: string, content: BlobPart, type: string) {
    const link = document.createElement('a')
    link.href = URL.createObjectURL(new Blob([content], { type }))
    link.download = name
    link.click()
    setTimeout(() => URL.revokeObjectURL(link.href), 60_000)
}

export function saveIni(app: App, values: Int32Array, onlyChanged: boolean) {
    save('setting.ini', iniText(app.tables.registers, values, onlyChanged), 'text/plain')
}

export async function saveFullPicture(app: App) {
    await app.attempt(async () => {
        const { width, height, rgba } = await app.client.fullPicture()
        const canvas = document.createElement('canvas')
        canvas.width = width
        canvas.height = height
        canvas.getContext('2d')!.putImageData(new ImageData(rgba, width, height), 0, 0)
        const blob = await new Promise<Blob | null>(resolve => canvas.toBlob(resolve, 'image/png'))
        if (blob === null) {
            throw new Failure(`This browser makes no PNG file of ${width}x${height}.`)
        }
        save('sharpened.png', blob, 'image/png')
    })
}

/** Planes, setting and output of the last whole frame, and how to run them elsewhere. */
export async function saveRun(app: App) {
    await app.attempt(async () => {
        const { values, result } = app.full!
        const files: Record<string, Uint8Array> = { 'sharpened.pgm': await app.client.fullPgm() }
        for (const input of inputs) {
            files[`${input}.pgm`] = await app.client.inputPgm(input)
        }
        const encode = (text: string) => new TextEncoder().encode(text)
        files['setting.ini'] = encode(iniText(app.tables.registers, values, false))
        const { width, height } = app.frame!
        const size = width * height * (result!.bits > 8 ? 2 : 1)
        files['run.sh'] = encode(
            '#!/bin/sh\n' +
                `# The frame of the tuning page, by cmodel ${app.tables.version}. The samples of out.pgm have\n` +
                `# SHA-256 ${result!.sha256}.\n` +
                'pre_ee_main setting.ini run.log 2 NULL 1 . 0 \\\n' +
                '    y.pgm cb.pgm cr.pgm ynr.pgm mmap.pgm out.pgm yfusion.pgm\n' +
                `tail -c ${size} out.pgm | sha256sum\n`,
        )
        save('frame.zip', zipSync(files, { level: 1 }) as Uint8Array<ArrayBuffer>, 'application/zip')
    })
}
