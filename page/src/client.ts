// The model's thread from the outside.
import type { FullFrame, Histograms, Rendered, RenderRequest } from './engine.ts'
import type { FrameInfo, Input } from './frame.ts'
import type { Rect } from './model.ts'
import type { Tables } from './tables.ts'
import { Failure } from './failure.ts'
import type { Answer } from './worker.ts'

interface Waiting {
    resolve: (value: any) => void
    reject: (error: Failure) => void
    progress?: (share: number) => void
}

export class Client {
    private readonly worker: Worker
    private readonly waiting = new Map<number, Waiting>()
    private next = 1

    constructor(script: string) {
        this.worker = new Worker(URL.createObjectURL(new Blob([script], { type: 'text/javascript' })))
        this.worker.onmessage = ({ data }: MessageEvent<Answer>) => {
            const waiting = this.waiting.get(data.id)
            if ('share' in data) {
                waiting?.progress?.(data.share)
                return
            }
            this.waiting.delete(data.id)
            if ('failure' in data) {
                waiting?.reject(new Failure(data.failure))
            } else {
                waiting?.resolve(data.value)
            }
        }
        this.worker.onerror = event => {
            const failure = new Failure(`The model's thread failed: ${event.message}`)
            this.waiting.forEach(waiting => waiting.reject(failure))
            this.waiting.clear()
        }
    }

    private call<T>(name: string, args: unknown[], transfer: Transferable[] = [], progress?: Waiting['progress']) {
        const id = this.next++
        const value = new Promise<T>((resolve, reject) => this.waiting.set(id, { resolve, reject, progress }))
        this.worker.postMessage({ id, name, args }, transfer)
        return { id, value }
    }

    tables = () => this.call<Tables>('tables', []).value
    openSample = () => this.call<FrameInfo>('openSample', []).value
    openPhoto = (name: string, width: number, height: number, rgba: Uint8ClampedArray<ArrayBuffer>) =>
        this.call<FrameInfo>('openPhoto', [name, width, height, rgba], [rgba.buffer]).value
    openFiles = (files: { name: string; bytes: Uint8Array }[]) => this.call<FrameInfo>('openFiles', [files]).value
    render = (request: RenderRequest) => this.call<Rendered>('render', [request]).value
    explain = (values: Int32Array, x: number, y: number) => this.call<string>('explain', [values, x, y]).value
    count = (values: Int32Array, rect: Rect) => this.call<Histograms>('count', [values, rect]).value
    loadIni = (text: Uint8Array, instance: string) =>
        this.call<{ values: Int32Array; findings: string[] }>('loadIni', [text, instance]).value
    inputPgm = (input: Input) => this.call<Uint8Array<ArrayBuffer>>('inputPgm', [input]).value
    fullPgm = () => this.call<Uint8Array<ArrayBuffer>>('fullPgm', []).value
    fullPicture = () => this.call<Rendered>('fullPicture', []).value

    /** The whole frame; null once it was ended. */
    runFull(values: Int32Array, progress: (share: number) => void) {
        const { id, value } = this.call<FullFrame | null>('runFull', [values], [], progress)
        return { value, end: () => void this.call('end', [id]).value }
    }
}

/** Runs one call at a time; of those that come meanwhile only the last is made. */
export class Latest<T> {
    private isBusy = false
    private queued: T | null = null

    constructor(private readonly run: (request: T) => Promise<void>) {}

    ask(request: T) {
        if (this.isBusy) {
            this.queued = request
            return
        }
        this.isBusy = true
        void this.run(request).finally(() => {
            this.isBusy = false
            const { queued } = this
            this.queued = null
            if (queued !== null) {
                this.ask(queued)
            }
        })
    }
}
