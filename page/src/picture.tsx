// The picture in its place: what the model drew, the divider, the probe's mark; moved and zoomed by pointer and keys.
import { useEffect, useLayoutEffect, useRef } from 'preact/hooks'
import type { App, Drawn } from './app.ts'
import { originOf, scaleOf, type Size } from './view.ts'

function drawPart(
    to: CanvasRenderingContext2D,
    app: App,
    place: Size,
    drawn: Drawn | null,
    from: number,
    until: number,
) {
    if (drawn === null) {
        return
    }
    const scale = scaleOf(app.view.zoom)
    const origin = originOf(app.view, place)
    const { canvas, rect, by } = drawn
    to.save()
    to.beginPath()
    to.rect(from, 0, until - from, place.height)
    to.clip()
    to.imageSmoothingEnabled = false
    to.drawImage(
        canvas,
        origin.x + rect.x * scale,
        origin.y + rect.y * scale,
        canvas.width * by * scale,
        canvas.height * by * scale,
    )
    to.restore()
}

function paint(canvas: HTMLCanvasElement, app: App) {
    const place = { width: canvas.width, height: canvas.height }
    const to = canvas.getContext('2d')!
    to.clearRect(0, 0, place.width, place.height)
    const split = app.compare === 'off' ? 0 : Math.round(app.divider * place.width)
    drawPart(to, app, place, app.drawn.current, split, place.width)
    if (split > 0) {
        drawPart(to, app, place, app.drawn.reference, 0, split)
    }
    if (app.probe !== null && app.probe.isPinned) {
        const scale = scaleOf(app.view.zoom)
        const origin = originOf(app.view, place)
        const size = Math.max(scale, 1)
        const x = Math.floor(origin.x + app.probe.x * scale),
            y = Math.floor(origin.y + app.probe.y * scale)
        const arm = 14 * devicePixelRatio
        for (const [width, colour] of [
            [3, '#000'],
            [1, '#fff'],
        ] as const) {
            to.strokeStyle = colour
            to.lineWidth = width * devicePixelRatio
            to.strokeRect(x - 1.5, y - 1.5, size + 3, size + 3)
            to.beginPath()
            for (const [dx, dy] of [
                [1, 0],
                [-1, 0],
                [0, 1],
                [0, -1],
            ]) {
                const cx = x + size / 2 + dx * (size / 2 + 4),
                    cy = y + size / 2 + dy * (size / 2 + 4)
                to.moveTo(cx, cy)
                to.lineTo(cx + dx * arm, cy + dy * arm)
            }
            to.stroke()
        }
    }
}

export function PictureView({ app }: { app: App }) {
    const place = useRef<HTMLDivElement>(null)
    const canvas = useRef<HTMLCanvasElement>(null)
    const drag = useRef<{ x: number; y: number; moved: boolean } | null>(null)

    useEffect(() => {
        const observer = new ResizeObserver(() => {
            const { width, height } = place.current!.getBoundingClientRect()
            canvas.current!.width = Math.round(width * devicePixelRatio)
            canvas.current!.height = Math.round(height * devicePixelRatio)
            app.resize(canvas.current!.width, canvas.current!.height)
        })
        observer.observe(place.current!)
        return () => observer.disconnect()
    }, [app])
    app.paint = () => paint(canvas.current!, app)
    useLayoutEffect(() => app.paint())

    const at = (event: { clientX: number; clientY: number }) => {
        const box = canvas.current!.getBoundingClientRect()
        return { x: (event.clientX - box.left) * devicePixelRatio, y: (event.clientY - box.top) * devicePixelRatio }
    }
    const pan = (dx: number, dy: number) => {
        const scale = scaleOf(app.view.zoom)
        app.setView({ ...app.view, x: app.view.x - dx / scale, y: app.view.y - dy / scale })
    }
    const onPointerMove = (event: PointerEvent) => {
        const here = at(event)
        if (drag.current === null) {
            app.point(here)
            return
        }
        const dx = here.x - drag.current.x,
            dy = here.y - drag.current.y
        if (drag.current.moved || Math.hypot(dx, dy) > 3) {
            drag.current = { ...here, moved: true }
            pan(dx, dy)
        }
    }
    const onPointerUp = (event: PointerEvent) => {
        if (drag.current !== null && !drag.current.moved && app.frame !== null) {
            app.unpin()
            app.point(at(event))
            if (app.probe !== null) {
                app.probeAt(app.probe.x, app.probe.y, true)
                app.update({ tab: 'probe' })
            }
        }
        drag.current = null
    }
    const onKeyDown = (event: KeyboardEvent) => {
        const arrow = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] }[event.key]
        if (event.ctrlKey || event.metaKey || event.altKey) {
            return
        }
        if (arrow !== undefined && app.frame !== null) {
            event.preventDefault()
            if (event.shiftKey) {
                const start = app.probe ?? { x: Math.round(app.view.x), y: Math.round(app.view.y) }
                app.probeAt(start.x + arrow[0], start.y + arrow[1], true)
            } else {
                pan((-arrow[0] * app.viewport.width) / 8, (-arrow[1] * app.viewport.height) / 8)
            }
        } else if (event.key === 'Enter' && app.frame !== null) {
            app.probeAt(Math.round(app.view.x), Math.round(app.view.y), true)
            app.update({ tab: 'probe' })
        } else if (event.key === '+' || event.key === '=') {
            app.zoom(1)
        } else if (event.key === '-') {
            app.zoom(-1)
        } else if (event.key === '0') {
            app.fit()
        } else if (event.key === '1') {
            app.actualSize()
        } else if (event.key === 'Escape') {
            app.unpin()
        }
    }

    const keys = 'Arrow keys move it, with Shift the probe; plus, minus, 0 and 1 zoom.'
    const what = app.frame === null ? 'no picture' : `${app.frame.name}, ${app.frame.width} by ${app.frame.height}`
    return (
        <div class="picture" ref={place}>
            <canvas
                ref={canvas}
                tabIndex={0}
                role="img"
                data-testid="picture"
                aria-label={`The picture: ${what}. ${keys}`}
                onPointerDown={event => {
                    if (event.button === 0) {
                        canvas.current!.setPointerCapture(event.pointerId)
                        drag.current = { ...at(event), moved: false }
                    }
                }}
                onPointerMove={onPointerMove}
                onPointerUp={onPointerUp}
                onKeyDown={onKeyDown}
                onWheel={event => {
                    event.preventDefault()
                    app.zoom(event.deltaY < 0 ? 1 : -1, at(event))
                }}
            />
            {app.compare !== 'off' && app.frame !== null && <Divider app={app} />}
            {app.show.what === 'stage' && app.stage(app.show.stage)!.unit === 'class' && <Legend />}
            {app.obstacle !== '' && (
                <p class="obstacle" role="status">
                    {app.obstacle}
                </p>
            )}
        </div>
    )
}

/** The colours of the texture classes. */
function Legend() {
    return (
        <span class="legend">
            {['dark flat', 'dark edge', 'mid-tone', 'line', 'bright edge', 'bright flat'].map((name, i) => (
                <span>
                    <i class={`class-${i}`} />
                    {name}
                </span>
            ))}
        </span>
    )
}

function Divider({ app }: { app: App }) {
    const move = (divider: number) => app.update({ divider: Math.max(0, Math.min(1, divider)) })
    const left = app.compare === 'before' ? 'before' : 'A'
    const right = app.compare === 'before' ? 'after' : 'B'
    return (
        <div
            class="divider"
            style={{ left: `${100 * app.divider}%` }}
            tabIndex={0}
            role="slider"
            aria-label={`Divider between ${left} and ${right}`}
            aria-valuemin={0}
            aria-valuemax={100}
            aria-valuenow={Math.round(100 * app.divider)}
            onPointerDown={event => (event.currentTarget as HTMLElement).setPointerCapture(event.pointerId)}
            onPointerMove={event => {
                if (event.buttons === 1) {
                    const box = (event.currentTarget as HTMLElement).parentElement!.getBoundingClientRect()
                    move((event.clientX - box.left) / box.width)
                }
            }}
            onKeyDown={event => {
                const step = { ArrowLeft: -0.02, ArrowRight: 0.02, Home: -1, End: 1 }[event.key]
                if (step !== undefined) {
                    event.preventDefault()
                    move(app.divider + step)
                }
            }}
        >
            <span class="side left">{left}</span>
            <span class="grip" />
            <span class="side right">{right}</span>
        </div>
    )
}
