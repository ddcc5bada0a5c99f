// The built-in picture: a small landscape with what sharpening is judged on. Grass and clouds, a brick wall, foliage,
// fine lines, edges of many contrasts and angles, smooth skin-like tones, and a little noise over all.

const width = 1200
const height = 800

type Colour = [number, number, number]

/** -1 .. 1, the same for the same place. */
function hash(x: number, y: number): number {
    let h = Math.imul(x, 0x27d4eb2d) ^ Math.imul(y, 0x165667b1)
    h = Math.imul(h ^ (h >>> 15), 0x85ebca6b)
    return ((h ^ (h >>> 13)) >>> 0) / 2 ** 31 - 1
}

/** Smooth noise of features of one unit. */
function noise(x: number, y: number): number {
    const x0 = Math.floor(x),
        y0 = Math.floor(y)
    const s = (t: number) => t * t * (3 - 2 * t)
    const fx = s(x - x0),
        fy = s(y - y0)
    const top = hash(x0, y0) * (1 - fx) + hash(x0 + 1, y0) * fx
    const bottom = hash(x0, y0 + 1) * (1 - fx) + hash(x0 + 1, y0 + 1) * fx
    return top * (1 - fy) + bottom * fy
}

const mix = (a: Colour, b: Colour, t: number): Colour => [0, 1, 2].map(i => a[i] + (b[i] - a[i]) * t) as Colour
/** 0 outside, 1 inside, over a pixel's width of a distance. */
const inside = (distance: number) => Math.max(0, Math.min(1, 0.5 - distance / 1.4))

function sky(x: number, y: number): Colour {
    const cloud = noise(x / 170, y / 60) * 0.6 + noise(x / 60, y / 25) * 0.3 + noise(x / 19, y / 9) * 0.12
    const clear = mix([92, 138, 196], [196, 214, 228], y / 360)
    return mix(clear, [238, 238, 236], Math.max(0, Math.min(1, cloud * 1.6 + 0.1)))
}

function hills(x: number, y: number): Colour {
    const rock = noise(x / 26, y / 14) * 16 + noise(x / 7, y / 5) * 9
    return [96 + rock, 108 + rock, 118 + rock]
}

function grass(x: number, y: number): Colour {
    const near = (y - 380) / 420
    const blades =
        noise(x / (1.2 + near), y / (4 + 9 * near)) * 30 + noise(x / 9, y / 7) * 14 + noise(x / 70, y / 40) * 14
    return [92 + blades + 18 * near, 116 + blades, 62 + blades * 0.6]
}

function wall(x: number, y: number): Colour {
    const row = Math.floor(y / 15)
    const across = (((x + (row % 2) * 19) % 38) + 38) % 38,
        down = ((y % 15) + 15) % 15
    const joint = Math.max(inside(across - 1.5), inside(down - 1.5))
    const brick = hash(Math.floor((x + (row % 2) * 19) / 38), row) * 16 + noise(x / 3, y / 3) * 9
    return mix([150 + brick, 84 + brick, 66 + brick], [172, 166, 156], joint)
}

function house(x: number, y: number, under: Colour): Colour {
    const roof = Math.max(y - 300, 196 - y + Math.abs(x - 292) * 0.62)
    if (y >= 300 && y < 520 && x >= 140 && x < 444) {
        for (const left of [176, 336]) {
            const u = x - left,
                v = y - 350
            if (u >= 0 && u < 72 && v >= 0 && v < 96) {
                const bar = Math.max(
                    inside(Math.abs(u - 36) - 3),
                    inside(Math.abs(v - 48) - 3),
                    inside(Math.min(u, 71 - u, v, 95 - v) - 4),
                )
                const pane = noise((u + v) / 14, (u - v) / 40) * 22
                return mix([48 + pane, 62 + pane, 78 + pane], [226, 224, 216], bar)
            }
        }
        return wall(x - 140, y - 300)
    }
    const tile = 14 * Math.sin(x * 0.55) * Math.sin(y * 0.8) + noise(x / 4, y / 3) * 10
    return mix(under, [92 + tile, 58 + tile, 56 + tile], inside(roof))
}

function tree(x: number, y: number, under: Colour): Colour {
    const trunk = Math.abs(x - 566 + 6 * noise(3, y / 40)) - 11
    const bark = noise(x / 2.2, y / 14) * 26
    let colour = y > 330 && y < 560 ? mix(under, [84 + bark, 68 + bark, 54 + bark], inside(trunk)) : under
    const crown =
        Math.hypot((x - 566) / 108, (y - 268) / 128) - 1 + noise(x / 16, y / 14) * 0.22 + noise(x / 5, y / 5) * 0.12
    const leaves = noise(x / 3, y / 3) * 34 + noise(x / 11, y / 9) * 18
    colour = mix(colour, [66 + leaves, 96 + leaves, 48 + leaves * 0.6], inside(crown * 60))
    return colour
}

/** A card in the foreground: a star of fine lines, gratings, edges of falling contrast, round tones. */
function card(x: number, y: number): Colour {
    const u = x - 716,
        v = y - 372
    const paper = 214 + noise(x / 2, y / 2) * 2
    const grey = (t: number): Colour => [t, t, t * 0.985]
    if (Math.hypot(u - 118, v - 118) < 96) {
        const angle = Math.atan2(v - 118, u - 118),
            radius = Math.hypot(u - 118, v - 118)
        return grey(124 - 92 * Math.max(-1, Math.min(1, (Math.sin(36 * angle) * radius) / 12)))
    }
    if (u > 232 && u < 420 && v > 22 && v < 214) {
        const row = Math.floor((v - 22) / 48),
            period = [12, 6, 4, 3][row]
        const phase = ((u + (v - 22) * 0.12) * 2 * Math.PI) / period
        return (v - 22) % 48 < 40
            ? grey(128 + [70, 55, 42, 34][row] * Math.max(-1, Math.min(1, 2 * Math.sin(phase))))
            : grey(paper)
    }
    if (v > 232 && v < 296 && u > 22 && u < 420) {
        const step = Math.floor((u - 22) / 50),
            slant = ((u - 22) % 50) - 25 + (v - 264) * 0.22
        return grey(126 + [60, 40, 26, 16, 10, 6, 4, 2][step] * (2 * inside(slant) - 1))
    }
    if (v > 308 && v < 372 && u > 22 && u < 420) {
        const tones: Colour[] = [
            [232, 190, 164],
            [206, 152, 122],
            [150, 98, 72],
            [96, 62, 46],
            [70, 104, 160],
            [186, 62, 58],
        ]
        const patch = Math.min(5, Math.floor((u - 22) / 66)),
            pore = noise(x / 1.6, y / 1.6) * 2.5
        const light = 10 * Math.cos((((u - 22) % 66) / 66) * Math.PI)
        return tones[patch].map(t => t + light + pore) as Colour
    }
    return grey(paper)
}

export function drawSample(): { width: number; height: number; rgba: Uint8ClampedArray<ArrayBuffer> } {
    const rgba = new Uint8ClampedArray(4 * width * height)
    for (let y = 0, at = 0; y < height; ++y) {
        for (let x = 0; x < width; ++x, at += 4) {
            let colour: Colour
            if (x >= 716 && x < 1158 && y >= 372 && y < 762) {
                colour = card(x, y)
            } else {
                const ridge = 330 - 60 * noise(x / 210, 1) - 22 * noise(x / 50, 2) - 6 * noise(x / 14, 3)
                colour = y < 400 ? mix(sky(x, y), hills(x, y), inside(ridge - y)) : grass(x, y)
                colour = mix(colour, grass(x, y), inside(398 + 5 * noise(x / 40, 4) - y))
                colour = tree(x, y, house(x, y, colour))
            }
            const grain = (hash(x, y + 5000) + hash(x + 7000, y)) * 2.2
            rgba[at] = colour[0] + grain
            rgba[at + 1] = colour[1] + grain
            rgba[at + 2] = colour[2] + grain
            rgba[at + 3] = 255
        }
    }
    return { width, height, rgba }
}
