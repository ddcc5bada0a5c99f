// The page in the browser, from the disk: by pointer, by keyboard alone, with files that are broken.
import assert from 'node:assert/strict'
import { execFileSync } from 'node:child_process'
import { mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs'
import { tmpdir } from 'node:os'
import { join } from 'node:path'
import { after, before, test } from 'node:test'
import { deflateSync } from 'node:zlib'
import { chromium, type Browser, type Page } from 'playwright-core'
import { pnmFile, Random, seed } from './random.ts'

const programs = process.env.CMODEL_BUILD!
const address = 'file://' + process.env.CMODEL_PAGE
const dir = mkdtempSync(join(tmpdir(), 'page-test-'))
const path = (name: string) => join(dir, name)
const random = new Random(seed)
const size = 301
let browser: Browser

before(async () => {
    browser = await chromium.launch({ executablePath: process.env.CMODEL_BROWSER })
    writeFileSync(path('photo.ppm'), pnmFile('P6', size, 200, 8, random.samples(3 * size, 200, 8)))
})
after(async () => {
    await browser.close()
    rmSync(dir, { recursive: true })
})

/** A fresh page with its first picture. Nothing in it may fail, or leave the machine. */
async function open(link = ''): Promise<Page> {
    const page = await (await browser.newContext({ viewport: { width: 1280, height: 720 } })).newPage()
    page.on('pageerror', error => assert.fail(error.stack))
    page.on('filechooser', () => {}) // from now on, so that no key comes before the browser is told
    page.on('request', request => assert.match(request.url(), /^(file|blob|data):/))
    await page.goto(address + link)
    await pictureOf(page, 'built-in sample')
    return page
}
const pictureOf = (page: Page, name: string) =>
    page.waitForFunction(name => document.querySelector('.status')?.textContent!.match(name + '.* ms'), name)

async function choose(page: Page, files: string[], ask: () => Promise<void>) {
    const chooser = page.waitForEvent('filechooser')
    await ask()
    await (await chooser).setFiles(files)
}
async function saved(page: Page, ask: () => Promise<void>, name: string) {
    const download = page.waitForEvent('download')
    await ask()
    await (await download).saveAs(path(name))
}
/** The sum of the whole frame; the button has to be pressed by then. */
async function sumOf(page: Page): Promise<string> {
    const sum = page.getByTestId('sha256')
    await sum.waitFor()
    return (await sum.textContent())!
}
const value = (page: Page, key: string) => page.locator(`.number[data-key=${key}]`).inputValue()
const link = async (page: Page) => {
    await page.waitForTimeout(400)
    return page.evaluate(() => location.hash)
}
const checkIni = (file: string, ...options: string[]) =>
    assert.match(
        execFileSync(join(programs, 'eetool'), ['ini', '--check', path(file), ...options], { encoding: 'utf8' }),
        /all is well/,
    )

/** What the picture's place shows, at 1:1 from the middle. */
async function pixels(page: Page): Promise<string> {
    await page.getByRole('button', { name: '1:1' }).click()
    await page.waitForTimeout(400)
    return page.evaluate(() => document.querySelector<HTMLCanvasElement>('.picture canvas')!.toDataURL())
}

/** A fresh page with a setting that was saved shows the same picture, and so does the program. */
async function compareFresh(ini: string, sum: string, picture: string) {
    const page = await open()
    await choose(page, [path('photo.ppm'), path(ini)], () => page.getByText('Open\u2026', { exact: true }).click())
    await pictureOf(page, 'photo.ppm')
    await page.getByText(`${ini}: section [ee] is loaded, all is well.`).waitFor()
    assert.equal(await pixels(page), picture)
    await page.keyboard.press('f')
    assert.equal(await sumOf(page), sum)
    await saved(page, () => page.getByText('Save planes, INI and output').click(), 'frame.zip')
    mkdirSync(path(ini + '.run'))
    const options = {
        cwd: path(ini + '.run'),
        encoding: 'utf8' as const,
        env: { ...process.env, PATH: `${programs}:${process.env.PATH}` },
    }
    execFileSync('python3', ['-m', 'zipfile', '-e', path('frame.zip'), '.'], options)
    assert.match(execFileSync('sh', ['run.sh'], options), new RegExp(`^${sum} `, 'm'))
    const samples = (name: string) => readFileSync(join(options.cwd, name)).subarray(-size * 200)
    assert.deepEqual(samples('out.pgm'), samples('sharpened.pgm'))
    const planes = ['y', 'cb', 'cr', 'ynr', 'mmap', 'yfusion'].flatMap(name => [`--${name}`, `${name}.pgm`])
    execFileSync(
        'eetool',
        ['run', '--ini', 'setting.ini', ...planes, '--stages', 'stages', '--stage', 'sharpened'],
        options,
    )
    assert.equal(JSON.parse(readFileSync(join(options.cwd, 'stages/run.json'), 'utf8')).stages.sharpened.sha256, sum)
    await page.context().close()
}

test('by pointer: drop, drag, undo, save, load', async () => {
    const page = await open('#texture_mode=0')
    const bytes = readFileSync(path('photo.ppm')).toString('base64')
    await page.evaluate(bytes => {
        const data = new DataTransfer()
        data.items.add(new File([Uint8Array.from(atob(bytes), c => c.charCodeAt(0))], 'photo.ppm'))
        document
            .querySelector('.page')!
            .dispatchEvent(new DragEvent('drop', { dataTransfer: data, bubbles: true, cancelable: true }))
    }, bytes)
    await pictureOf(page, 'photo.ppm')

    const curve = page.getByTestId('curve-motion_lut')
    await curve.scrollIntoViewIfNeeded()
    const box = (await curve.boundingBox())!
    const at = (x: number, y: number) => [box.x + (x / 256) * box.width, box.y + (1 - y / 255) * box.height] as const
    await page.mouse.move(...at(64, 128))
    await page.mouse.down()
    await page.mouse.move(...at(80, 100), { steps: 4 })
    await page.mouse.up()
    const y = Number(await value(page, 'reg_ee_motion_lut_out_1')),
        x = Number(await value(page, 'reg_ee_motion_lut_in_1'))
    assert.ok(Math.abs(y - 100) <= 2 && Math.abs(x - 80) <= 2, `knot at ${x}, ${y}`)
    assert.equal(Number(await value(page, 'reg_ee_motion_lut_slope_0')), Math.trunc((16 * (y - 128)) / x))

    const slider = page.locator('[data-slider=reg_ee_total_gain]')
    await slider.scrollIntoViewIfNeeded()
    const track = (await slider.boundingBox())!
    await page.mouse.click(track.x + track.width * 0.4, track.y + track.height / 2)
    await page.mouse.click(track.x + track.width * 0.8, track.y + track.height / 2)
    const gain = Number(await value(page, 'reg_ee_total_gain'))
    assert.ok(gain > 180)
    await page.getByRole('button', { name: 'Undo' }).click()
    assert.ok(Number(await value(page, 'reg_ee_total_gain')) < 130)
    await page.getByRole('button', { name: 'Redo' }).click()
    assert.equal(Number(await value(page, 'reg_ee_total_gain')), gain)

    await page.getByText('Full frame', { exact: true }).click()
    const sum = await sumOf(page)
    const picture = await pixels(page)
    await page.getByRole('tab', { name: 'Setting' }).click()
    await saved(page, () => page.getByText('Save full INI').click(), 'full.ini')
    await saved(page, () => page.getByText('Save minimal INI').click(), 'minimal.ini')
    checkIni('full.ini', '--complete')
    checkIni('minimal.ini')
    assert.ok(readFileSync(path('minimal.ini'), 'utf8').split('\n').length < 10)
    const linked = await open(await link(page))
    assert.equal(Number(await value(linked, 'reg_ee_total_gain')), gain)
    await linked.context().close()
    await page.context().close()
    await compareFresh('full.ini', sum, picture)
    await compareFresh('minimal.ini', sum, picture)
})

test('by keyboard alone the same', async () => {
    const page = await open('#texture_mode=0')
    const { keyboard } = page
    const press = async (key: string, times = 1) => {
        for (let i = 0; i < times; ++i) {
            await keyboard.press(key)
        }
    }
    const tabTo = async (selector: string) => {
        for (let i = 0; i < 60; ++i) {
            if (await page.evaluate(s => document.activeElement!.matches(s), selector)) {
                return
            }
            await press('Tab')
        }
        assert.fail(`Tab does not lead to ${selector}`)
    }
    const search = async (text: string, selector: string) => {
        await press('/')
        await page.waitForFunction(() => document.activeElement!.id === 'search')
        await press('Control+a')
        await keyboard.type(text)
        await tabTo(selector)
    }
    await choose(page, [path('photo.ppm')], () => press('Control+o'))
    await pictureOf(page, 'photo.ppm')
    await search('motion_lut', '[aria-label^="motion_lut knot 1"]')
    await press('ArrowRight', 16)
    await press('PageDown', 2)
    await search('total_gain', '[data-slider=reg_ee_total_gain]')
    await press('ArrowRight', 60)
    await press('Control+z', 2)
    assert.equal(await value(page, 'reg_ee_total_gain'), String(32 + 58))
    await press('p')
    await press('Shift+ArrowLeft')
    await press('+')
    await page.waitForFunction(() => document.querySelector('.status')!.textContent!.includes('\u2192'))
    await tabTo('[role=tab]')
    await press('ArrowRight', 2)
    await tabTo('.setting .buttons button')
    await press('Tab')
    await saved(page, () => press('Enter'), 'keys.ini')
    await press('f')
    const sum = await sumOf(page)
    await press('p')
    await press('Escape')
    await press('1')
    await page.waitForTimeout(400)
    const picture = await page.evaluate(() => document.querySelector<HTMLCanvasElement>('.picture canvas')!.toDataURL())
    checkIni('keys.ini', '--complete')
    assert.match(readFileSync(path('keys.ini'), 'utf8'), /motion_lut_in_1 = 80\n(.*\n)*reg_ee_motion_lut_out_1 = 96\n/)
    await page.context().close()
    await compareFresh('keys.ini', sum, picture)
})

function crc32(bytes: Buffer): number {
    let crc = -1
    for (const byte of bytes) {
        crc ^= byte
        for (let bit = 0; bit < 8; ++bit) {
            crc = (crc >>> 1) ^ (crc & 1 ? 0xedb88320 : 0)
        }
    }
    return ~crc >>> 0
}

/** A grey PNG of so many pixels, all black. */
function blackPng(width: number, height: number): Buffer {
    const chunk = (type: string, data: Buffer) => {
        const body = Buffer.concat([Buffer.from(type), data])
        const frame = Buffer.alloc(8)
        frame.writeUInt32BE(data.length)
        frame.writeUInt32BE(crc32(body), 4)
        return Buffer.concat([frame.subarray(0, 4), body, frame.subarray(4)])
    }
    const header = Buffer.alloc(13)
    header.writeUInt32BE(width)
    header.writeUInt32BE(height, 4)
    header[8] = 1
    return Buffer.concat([
        Buffer.from('\x89PNG\r\n\x1a\n', 'latin1'),
        chunk('IHDR', header),
        chunk('IDAT', deflateSync(Buffer.alloc((1 + Math.ceil(width / 8)) * height))),
        chunk('IEND', Buffer.alloc(0)),
    ])
}

test('broken files and frames that are too large give a message and lose nothing', async () => {
    const pgm = (magic: string, ...rest: Parameters<typeof pnmFile> extends [string, ...infer R] ? R : never) =>
        Buffer.from(pnmFile(magic, ...rest))
    const flat = (count: number) => new Array<number>(count).fill(7)
    const cases: [Record<string, Buffer>, RegExp][] = [
        [
            { 'broken.png': Buffer.from('\x89PNG\r\n\x1a\nnonsense', 'latin1') },
            /broken\.png is no picture that this browser can decode/,
        ],
        [{ 'text.jpg': Buffer.from('hello') }, /text\.jpg is no picture/],
        [{ 'huge.png': blackPng(40000, 40000) }, /huge\.png/],
        [{ 'short.pgm': pgm('P5', 30, 20, 8, flat(599)) }, /short\.pgm ends early/],
        [{ 'large.pgm': Buffer.from('P5\n20000 20000\n255\n') }, /large\.pgm ends early: .* 400000000 bytes/],
        [{ 'endless.pgm': Buffer.from('P5\n60000 60000\n255\n') }, /60000x60000 samples, more than/],
        [{ 'bits.pgm': pgm('P5', 4, 4, 16, flat(16)) }, /16 bits; plane y has 8 to 12/],
        [{ 'ten.pgm': pgm('P5', 4, 4, 10, flat(16)) }, /noise-reduced luma \(ynr\) of 8 bits has to come/],
        [
            { 'y.pgm': pgm('P5', 4, 4, 8, flat(16)), 'cb.pgm': pgm('P5', 4, 4, 8, flat(16)) },
            /cb\.pgm has 4x4 samples; chroma has half/,
        ],
        [
            { 'y.pgm': pgm('P5', 4, 4, 8, flat(16)), 'other.pgm': pgm('P5', 4, 4, 8, flat(16)) },
            /other\.pgm: a file of a set/,
        ],
        [
            { 'noise.ini': Buffer.from(Array.from({ length: 4000 }, () => random.below(256))) },
            /noise\.ini has no section \[ee\]/,
        ],
        [{ 'empty.ini': Buffer.alloc(0) }, /empty\.ini has no section \[ee\]/],
        [
            { 'odd.ini': Buffer.from('[ee]\nreg_ee_total_gain = 300\nnonsense\n') },
            /odd\.ini: section \[ee\] is loaded, 3 findings/,
        ],
    ]
    const page = await open('#texture_mode=0&total_gain=99')
    const setting = await link(page)
    for (const [files, message] of cases) {
        Object.entries(files).forEach(([name, bytes]) => writeFileSync(path(name), bytes))
        await choose(page, Object.keys(files).map(path), () => page.getByText('Open\u2026', { exact: true }).click())
        const alert = page.getByRole('alert')
        await alert.waitFor({ timeout: 60_000 })
        assert.match((await alert.textContent())!, message)
        await alert.getByRole('button').click()
        if (message.source.startsWith('odd')) {
            assert.equal(await value(page, 'reg_ee_total_gain'), '44')
            await page.keyboard.press('Control+z')
        }
        assert.equal(await link(page), setting)
        await pictureOf(page, 'built-in sample')
    }
    await page.locator('.number[data-key=reg_ee_total_gain]').fill('256')
    assert.equal(await page.locator('.number[aria-invalid=true]').count(), 1)
    assert.equal(await link(page), setting)
    await page.goto(address + '#texture_mode=2&nonsense=1&total_gain=77')
    await page.reload()
    await page.getByText('Parts of the link').waitFor()
    assert.equal(await value(page, 'reg_ee_total_gain'), '77')
    await page.context().close()
})
