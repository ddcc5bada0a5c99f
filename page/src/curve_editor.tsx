// Curves and tables to drag, over a histogram of what is looked up in them.
import { useRef } from 'preact/hooks'
import type { App } from './app.ts'
import { curveOutputs, placeKnot } from './curve.ts'
import type { Lookup } from './engine.ts'
import { NumberField } from './fields.tsx'
import { curveOut, curveSlope, knots, shortName, type Group } from './tables.ts'

const width = 392
const height = 116

const lookupOf: Record<string, Lookup> = {
    luma_coring_lut: 'brightness',
    motion_coring_lut: 'brightness',
    mcore_gain_lut: 'motion',
    motion_lut: 'motion',
    luma_adptctrl_lut: 'brightness',
    delta_adptctrl_lut: 'range',
    chroma_adptctrl_lut: 'hue',
    chroma_amp_lut: 'amplitude',
}

const toX = (v: number) => (v / 256) * width

/** Round tops that leave room above what is there. */
function topOf(most: number): number {
    return [16, 32, 64, 128].find(top => most <= top * 0.9) ?? 255
}

function HistogramBars({ bins }: { bins: Uint32Array | null }) {
    if (bins === null) {
        return null
    }
    const most = Math.sqrt(Math.max(...bins)) || 1
    const path = Array.from(
        bins,
        (n, i) => `V${(height - (Math.sqrt(n) / most) * height * 0.94).toFixed(1)}H${toX(i + 1).toFixed(1)}`,
    ).join('')
    return <path class="histogram" d={`M0,${height}${path}V${height}Z`} aria-hidden="true" />
}

/** The hue of each lookup. */
function HueStrip() {
    const colour = (hue: number) => {
        const cb = 90 * Math.cos((hue / 128) * Math.PI),
            cr = 90 * Math.sin((hue / 128) * Math.PI)
        return `rgb(${[140 + 1.402 * cr, 140 - 0.344 * cb - 0.714 * cr, 140 + 1.772 * cb].map(Math.round).join(',')})`
    }
    return (
        <g aria-hidden="true">
            {Array.from({ length: 64 }, (_, i) => (
                <rect x={toX(4 * i)} y={height - 5} width={toX(4) + 0.5} height="5" fill={colour(4 * i + 2)} />
            ))}
        </g>
    )
}

interface Point {
    x: number
    y: number
    name: string
}

export function CurveEditor({ app, group }: { app: App; group: Group }) {
    const svg = useRef<SVGSVGElement>(null)
    const held = useRef<{ point: number; top: number; last: number } | null>(null)
    const isCurve = group.kind === 'curve'
    const name = shortName(group.name)
    const lookup = lookupOf[name]
    const { values } = app
    const count = isCurve ? knots : 33
    const points: Point[] = Array.from({ length: count }, (_, i) =>
        isCurve
            ? { x: values[group.first + i], y: values[group.first + curveOut + i], name: `knot ${i}` }
            : { x: 8 * i, y: values[group.first + i], name: `entry ${i}` },
    )
    const keys = isCurve ? 'Arrow keys move a knot.' : 'Arrow keys move an entry, and lead from entry to entry.'
    const limit = isCurve ? 255 : 63
    const unit = isCurve ? (/128/.test(group.meaning) ? 128 : null) : 16
    const top = held.current?.top ?? (isCurve ? topOf(Math.max(...points.map(p => p.y), unit ?? 0)) : 64)
    const toY = (v: number) => height - (v / top) * height
    const line = isCurve
        ? curveOutputs(values, group)
              .map((y, x) => `${toX(x).toFixed(1)},${toY(y).toFixed(1)}`)
              .join(' ')
        : points.map(p => `${toX(p.x)},${toY(p.y)}`).join(' ')

    const place = (point: number, x: number, y: number, gesture: string) =>
        app.change(group, gesture, next => {
            if (isCurve) {
                placeKnot(next, group, point, x, y)
            } else {
                next[group.first + point] = Math.max(0, Math.min(limit, Math.round(y)))
            }
        })
    const read = (event: PointerEvent) => {
        const box = svg.current!.getBoundingClientRect()
        return {
            x: ((event.clientX - box.left) / box.width) * 256,
            y: (1 - (event.clientY - box.top) / box.height) * (held.current?.top ?? top),
        }
    }
    const nearest = (x: number, y: number) => {
        const far = (p: Point) => Math.hypot(toX(p.x - x), isCurve ? toY(p.y) - toY(y) : 0)
        return points.reduce((best, p, i) => (far(p) < far(points[best]) ? i : best), 0)
    }
    const onPointerDown = (event: PointerEvent) => {
        const { x, y } = read(event)
        const point = nearest(x, y)
        svg.current!.setPointerCapture(event.pointerId)
        held.current = { point, top, last: y }
        if (!isCurve) {
            place(point, x, y, `drag ${name}`)
        }
    }
    const onPointerMove = (event: PointerEvent) => {
        if (held.current === null) {
            return
        }
        const { x, y } = read(event)
        if (isCurve) {
            place(held.current.point, x, y, `drag ${name}`)
            return
        }
        // Every entry that the pointer passed, on the line that it took.
        const { point, last } = held.current
        const now = Math.max(0, Math.min(32, Math.round(x / 8)))
        app.change(group, `drag ${name}`, next => {
            for (let i = Math.min(point, now); i <= Math.max(point, now); ++i) {
                const value = now === point ? y : last + ((y - last) * (i - point)) / (now - point)
                next[group.first + i] = Math.max(0, Math.min(limit, Math.round(value)))
            }
        })
        held.current = { ...held.current, point: now, last: y }
    }
    const letGo = () => {
        if (held.current !== null) {
            held.current = null
            app.endGesture()
            app.update()
        }
    }
    const onKeyDown = (event: KeyboardEvent, point: number) => {
        const { x, y } = points[point]
        const far = event.shiftKey ? 8 : 1
        const up = { ArrowUp: far, ArrowDown: -far, PageUp: 16, PageDown: -16 }[event.key]
        const right = { ArrowRight: far, ArrowLeft: -far }[event.key]
        if (up !== undefined) {
            place(point, x, y + up, '')
        } else if (right !== undefined && isCurve) {
            place(point, x + right, y, '')
        } else if (right !== undefined) {
            const next = Math.max(0, Math.min(32, point + Math.sign(right)))
            const circles = svg.current!.querySelectorAll<SVGElement>('[role=slider]')
            circles[next].focus()
        } else {
            return
        }
        event.preventDefault()
    }

    return (
        <div class="plot">
            <svg
                ref={svg}
                viewBox={`0 0 ${width} ${height}`}
                role="group"
                data-testid={`curve-${name}`}
                aria-label={`${name}: ${group.meaning}. ${keys}`}
                onPointerDown={onPointerDown}
                onPointerMove={onPointerMove}
                onPointerUp={letGo}
                onPointerCancel={letGo}
            >
                <HistogramBars bins={app.histogram(lookup)} />
                {lookup === 'hue' && <HueStrip />}
                {[64, 128, 192].map(x => (
                    <line class="grid" x1={toX(x)} x2={toX(x)} y1="0" y2={height} />
                ))}
                {unit !== null && unit <= top && <line class="unit" x1="0" x2={width} y1={toY(unit)} y2={toY(unit)} />}
                <polyline class="line" points={line} />
                {points.map((p, i) => (
                    <circle
                        class={isCurve ? 'knot' : 'entry'}
                        cx={toX(p.x)}
                        cy={toY(p.y)}
                        r={isCurve ? 5 : 3}
                        tabindex={isCurve || i === 0 ? 0 : -1}
                        role="slider"
                        aria-label={`${name} ${p.name}${isCurve ? `, input ${p.x}` : ` at ${p.x}`}`}
                        aria-valuemin={0}
                        aria-valuemax={limit}
                        aria-valuenow={p.y}
                        onKeyDown={event => onKeyDown(event, i)}
                    />
                ))}
                <text class="scale" x={width - 3} y="10">
                    {top === 64 ? 63 : top}
                </text>
                <text class="scale lookup" x="3" y="10">
                    {lookup}
                </text>
            </svg>
            {isCurve ? <CurveNumbers app={app} group={group} /> : <TableNumbers app={app} group={group} />}
        </div>
    )
}

function CurveNumbers({ app, group }: { app: App; group: Group }) {
    const isByHand = app.history.current.byHand.has(group.name)
    const field = (place: number, label: string, isEnabled = true) => {
        const register = app.tables.registers[group.first + place]
        return (
            <NumberField
                app={app}
                register={register}
                group={group}
                label={`${shortName(group.name)} ${label}`}
                isEnabled={isEnabled}
            />
        )
    }
    return (
        <div class="numbers">
            <span>in</span>
            {[0, 1, 2, 3].map(k => field(k, `input of knot ${k}`))}
            <span>out</span>
            {[0, 1, 2, 3].map(k => field(curveOut + k, `output of knot ${k}`))}
            <span>slope</span>
            {[0, 1, 2].map(k => field(curveSlope + k, `slope behind knot ${k}`, isByHand))}
            <label class="by-hand" title="Slopes in sixteenths follow the knots unless they are taken by hand">
                <input type="checkbox" checked={isByHand} onChange={() => app.change(group, '', () => {}, !isByHand)} />{' '}
                by hand
            </label>
        </div>
    )
}

function TableNumbers({ app, group }: { app: App; group: Group }) {
    return (
        <details class="table-numbers">
            <summary>numbers</summary>
            <div>
                {Array.from({ length: group.count }, (_, i) => (
                    <NumberField
                        app={app}
                        register={app.tables.registers[group.first + i]}
                        group={group}
                        label={`${shortName(group.name)} entry ${i}`}
                        isEnabled
                    />
                ))}
            </div>
        </details>
    )
}
