// A register as a number.
import { useState } from 'preact/hooks'
import type { App } from './app.ts'
import { clampTo } from './curve.ts'
import type { Group, Register } from './tables.ts'

interface Props {
    app: App
    register: Register
    group: Group
    label: string
    isEnabled: boolean
}

/** Takes whole numbers that fit, as they are typed; anything else is marked and leaves with the focus. */
export function NumberField({ app, register, group, label, isEnabled }: Props) {
    const [typed, setTyped] = useState<string | null>(null)
    const { index, least, greatest } = register
    const value = app.values[index]
    const take = (next: number, gesture: string) =>
        app.change(group, gesture, values => {
            values[index] = clampTo(register, next)
        })
    const fits = (text: string) => /^-?\d+$/.test(text) && Number(text) >= least && Number(text) <= greatest
    const isWrong = typed !== null && !fits(typed)
    return (
        <input
            class="number"
            type="text"
            inputMode="numeric"
            value={typed ?? value}
            aria-label={label}
            disabled={!isEnabled}
            aria-invalid={isWrong}
            data-key={register.key}
            title={`${register.key}: ${least} to ${greatest}, default ${register.defaultValue}`}
            onInput={event => {
                const text = event.currentTarget.value.trim()
                setTyped(text)
                if (fits(text)) {
                    take(Number(text), `type ${register.key}`)
                }
            }}
            onBlur={() => {
                setTyped(null)
                app.endGesture()
            }}
            onKeyDown={event => {
                const step = { ArrowUp: 1, ArrowDown: -1, PageUp: 16, PageDown: -16 }[event.key]
                if (step !== undefined) {
                    event.preventDefault()
                    setTyped(null)
                    take(value + step, '')
                }
            }}
        />
    )
}
