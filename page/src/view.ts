// Where the frame lies in its place. Sizes of the place are in pixels of the screen.
import type { Rect } from './model.ts'

export interface View {
    /** Screen pixels to each pixel; -n: each screen pixel is the mean of n x n pixels. */
    zoom: number
    /** The pixel in the middle. */
    x: number
    y: number
}

export interface Size {
    width: number
    height: number
}

const steps = [-16, -12, -8, -6, -5, -4, -3, -2, 1, 2, 3, 4, 5, 6, 8, 10, 12, 16, 24, 32]

export const scaleOf = (zoom: number) => (zoom < 0 ? -1 / zoom : zoom)
export const zoomText = (zoom: number) => (zoom < 0 ? `1:${-zoom}` : `${zoom}:1`)

/** The place of pixel (0, 0), on whole screen pixels. */
export function originOf(view: View, place: Size): { x: number; y: number } {
    const scale = scaleOf(view.zoom)
    return { x: Math.round(place.width / 2 - view.x * scale), y: Math.round(place.height / 2 - view.y * scale) }
}

/** The frame's coordinates of a point of the place. */
export function placeAt(view: View, place: Size, at: { x: number; y: number }) {
    const scale = scaleOf(view.zoom)
    const origin = originOf(view, place)
    return { x: (at.x - origin.x) / scale, y: (at.y - origin.y) / scale }
}

/** The next zoom, in or out, around a point of the place. */
export function zoomTo(view: View, place: Size, step: number, at: { x: number; y: number }): View {
    const index = steps.findIndex(s => s >= view.zoom)
    const zoom = steps[Math.max(0, Math.min(steps.length - 1, index + step))]
    const under = placeAt(view, place, at)
    const scale = scaleOf(zoom)
    return { zoom, x: under.x + (place.width / 2 - at.x) / scale, y: under.y + (place.height / 2 - at.y) / scale }
}

/** The part of the frame that is seen, in whole groups of pixels where they are averaged; null for none. */
export function visibleRect(view: View, place: Size, frame: Size): Rect | null {
    if (place.width < 1 || place.height < 1) {
        return null
    }
    const by = Math.max(1, -view.zoom)
    const range = (start: number, end: number, size: number) => {
        const first = Math.max(0, Math.floor(start / by) * by)
        const last = Math.min(Math.ceil(end / by) * by, Math.max(by, Math.floor(size / by) * by), size)
        return [first, last - first]
    }
    const from = placeAt(view, place, { x: 0, y: 0 })
    const to = placeAt(view, place, { x: place.width, y: place.height })
    const [x, width] = range(from.x, to.x, frame.width)
    const [y, height] = range(from.y, to.y, frame.height)
    return width < by || height < by ? null : { x, y, width, height }
}
