// A model object: registers, bound planes, runs.
import { Failure } from './failure.ts'
import type { Pointer, Wasm } from './wasm.ts'

export const enum Sample {
    U8 = 1,
    U16 = 3,
    S16 = 4,
    U32 = 5,
    S32 = 6,
}

export interface Plane {
    data: Pointer
    type: Sample
    width: number
    height: number
    depth: number
}

export const bytesOf = (type: Sample) => (type === Sample.U8 ? 1 : type <= Sample.S16 ? 2 : 4)

export interface Rect {
    x: number
    y: number
    width: number
    height: number
}

export class Model {
    private readonly handle: Pointer
    private readonly keys: Pointer[]
    private values: Int32Array

    constructor(
        private readonly wasm: Wasm,
        pipeline: string,
    ) {
        const out = wasm.alloc(4, 'a model')
        const status = wasm.withText(pipeline, name => wasm.call.cmodel_new(name, out))
        this.handle = wasm.words(out, 1)[0] >>> 0
        wasm.free(out)
        if (status < 0) {
            throw new Failure('There is no memory for a model.')
        }
        this.keys = wasm.keys()
        this.values = this.read()
    }

    /** A model that fails says why. */
    private require(status: number): number {
        if (status < 0) {
            throw new Failure(this.wasm.text(this.wasm.call.cmodel_error(this.handle)))
        }
        return status
    }

    private read(): Int32Array {
        const at = this.wasm.alloc(4, 'a register')
        const values = Int32Array.from(this.keys, key => {
            this.require(this.wasm.call.cmodel_get(this.handle, key, at))
            return this.wasm.words(at, 1)[0]
        })
        this.wasm.free(at)
        return values
    }

    set(values: Int32Array) {
        values.forEach((value, i) => {
            if (value !== this.values[i]) {
                this.require(this.wasm.call.cmodel_set(this.handle, this.keys[i], value))
                this.values[i] = value
            }
        })
    }

    /** The registers as an INI file leaves them that starts from the defaults, and what is wrong in it. */
    loadIni(text: Uint8Array, instance: string): { values: Int32Array; findings: string[] } {
        const { wasm, handle } = this
        this.require(wasm.call.cmodel_reset(handle))
        this.values = this.read()
        const count = this.require(
            wasm.withText(instance, name =>
                wasm.withBytes(text, at => wasm.call.cmodel_load_ini_text(handle, at, text.length, name)),
            ),
        )
        this.values = this.read()
        const findings = Array.from({ length: count }, (_, i) => wasm.text(wasm.call.cmodel_finding(handle, i)))
        return { values: this.values.slice(), findings }
    }

    bindInput(name: string, plane: Plane) {
        this.bind('cmodel_bind_input', name, plane)
    }
    bindOutput(plane: Plane | null) {
        this.require(withPlane(this.wasm, plane, at => this.wasm.call.cmodel_bind_output(this.handle, at)))
    }
    bindStage(name: string, plane: Plane | null) {
        this.bind('cmodel_bind_stage', name, plane)
    }
    unbind() {
        this.require(this.wasm.call.cmodel_unbind(this.handle))
    }

    run(rect: Rect) {
        this.require(this.wasm.call.cmodel_run_rect(this.handle, rect.x, rect.y, rect.width, rect.height))
    }

    explain(x: number, y: number): string {
        const { wasm, handle } = this
        const size = 1 << 15
        const at = wasm.alloc(size, 'a text')
        try {
            this.require(wasm.call.cmodel_explain(handle, x, y, at, size))
            return wasm.text(at)
        } finally {
            wasm.free(at)
        }
    }

    private bind(call: string, name: string, plane: Plane | null) {
        this.require(
            this.wasm.withText(name, key =>
                withPlane(this.wasm, plane, at => this.wasm.call[call](this.handle, key, at)),
            ),
        )
    }
}

/** Calls back with the record of a plane for C; with null for none. */
export function withPlane<T>(wasm: Wasm, plane: Plane | null, use: (at: Pointer) => T): T {
    if (plane === null) {
        return use(0)
    }
    const step = bytesOf(plane.type)
    return wasm.withWords(
        [plane.data, plane.type, plane.width, plane.height, plane.width * step, step, plane.depth],
        use,
    )
}
