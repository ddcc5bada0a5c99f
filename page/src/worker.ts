// The model in a thread of its own: calls of the engine by messages, answers by the number of the call.
import { Engine } from './engine.ts'
import { drawSample } from './sample.ts'
import { Failure } from './failure.ts'

export interface Call {
    id: number
    name: string
    args: unknown[]
}
export type Answer = { id: number; value: unknown } | { id: number; failure: string } | { id: number; share: number }

const ended = new Set<number>()
const engine = Engine.create()

async function answer({ id, name, args }: Call) {
    const model: any = await engine
    switch (name) {
        case 'tables':
            return model.tables
        case 'end':
            ended.add(args[0] as number)
            return null
        case 'openSample': {
            const { width, height, rgba } = drawSample()
            return model.openPhoto('built-in sample', width, height, rgba)
        }
        case 'runFull':
            return model.runFull(args[0], async (share: number) => {
                postMessage({ id, share } satisfies Answer)
                await new Promise(resolve => setTimeout(resolve))
                return !ended.has(id)
            })
        default:
            return model[name](...args)
    }
}

onmessage = async ({ data }: MessageEvent<Call>) => {
    try {
        const value: any = await answer(data)
        const buffer = value instanceof Uint8Array ? value.buffer : value?.rgba?.buffer
        postMessage({ id: data.id, value } satisfies Answer, { transfer: buffer ? [buffer] : [] })
    } catch (error) {
        const failure = error instanceof Failure ? error.message : `The page failed: ${error}`
        postMessage({ id: data.id, failure } satisfies Answer)
    }
}
