// The page's model under Node.js against the program: argument 1 is the directory of the programs, 2 that of Python's
// package.
import assert from 'node:assert/strict'
import { execFileSync } from 'node:child_process'
import { createHash } from 'node:crypto'
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs'
import { tmpdir } from 'node:os'
import { join } from 'node:path'
import { after, test } from 'node:test'
import { Engine } from '../src/engine.ts'
import { inputs, type Input } from '../src/frame.ts'
import { iniText, linkText, readLink } from '../src/ini.ts'
import { groupsOf } from '../src/tables.ts'
import { pnmFile, Random, seed } from './random.ts'

const programs = process.env.CMODEL_BUILD!
const dir = mkdtempSync(join(tmpdir(), 'page-test-'))
after(() => rmSync(dir, { recursive: true }))
const engine = await Engine.create()
const { registers } = engine.tables
const groups = groupsOf(registers)
const random = new Random(seed)
console.log(`seed ${seed}: CMODEL_TEST_SEED repeats it`)

const sha256 = (bytes: Uint8Array) => createHash('sha256').update(bytes).digest('hex')
const path = (name: string) => join(dir, name)

/** SHA-256 of the samples that the program makes of the page's own files. */
function runProgram(values: Int32Array, bytesPerSample: number): string {
    const { width, height } = engine.frameInfo()
    writeFileSync(path('s.ini'), iniText(registers, values, random.chance(50)))
    for (const input of inputs) {
        writeFileSync(path(`${input}.pgm`), engine.inputPgm(input))
    }
    const files = ['y', 'cb', 'cr', 'ynr', 'mmap', 'out', 'yfusion'].map(name => path(`${name}.pgm`))
    execFileSync(join(programs, 'pre_ee_main'), [path('s.ini'), path('log'), '5', 'NULL', '1', dir, '0', ...files])
    return sha256(readFileSync(path('out.pgm')).subarray(-width * height * bytesPerSample))
}

function openRandom() {
    const side = () => random.pick([1, 2, 3, 5, 8, 17, 64, 131, 200]) + random.below(3)
    const width = side(),
        height = side(),
        half = (width + random.below(2)) >> 1 || 1
    if (random.chance(25)) {
        engine.openFiles([
            { name: 'photo.ppm', bytes: pnmFile('P6', width, height, 8, random.samples(3 * width, height, 8)) },
        ])
        return
    }
    const deep = random.pick([8, 8, 10, 12])
    const depth: Record<Input, number> = {
        y: deep,
        cb: 8,
        cr: 8,
        ynr: 8,
        mmap: 8,
        yfusion: random.pick([8, 10, 12, 16, 20]),
    }
    const given = inputs.filter(i => i === 'y' || (i === 'ynr' && deep > 8) || random.chance(80))
    const wide = (input: Input) => (input === 'cb' || input === 'cr' ? half : width)
    engine.openFiles(
        given.map(input => ({
            name: `set_${input}.pgm`,
            bytes: pnmFile('P5', wide(input), height, depth[input], random.samples(wide(input), height, depth[input])),
        })),
    )
}

test('200 random frames have the samples of the program, and so do their parts', async () => {
    for (let i = 0; i < 200; ++i) {
        openRandom()
        const { width, height, inputs: planes } = engine.frameInfo()
        const values = random.settings(registers, planes[5].depth)
        const full = (await engine.runFull(values, async () => true))!
        assert.equal(full.sha256, runProgram(values, full.bits > 8 ? 2 : 1), `case ${i}: ${width}x${height}`)
        const whole = engine.render({
            side: 0,
            values,
            rect: { x: 0, y: 0, width, height },
            by: 1,
            show: { what: 'luma' },
        })
        if (full.bits === 8) {
            const grey = Uint8Array.from({ length: width * height }, (_, k) => whole.rgba[4 * k])
            assert.equal(sha256(grey), full.sha256)
        }
        const x = random.below(width),
            y = random.below(height)
        const rect = { x, y, width: 1 + random.below(width - x), height: 1 + random.below(height - y) }
        const part = engine.render({ side: random.pick([0, 1]), values, rect, by: 1, show: { what: 'luma' } })
        for (let row = 0; row < rect.height; ++row) {
            const at = 4 * ((y + row) * width + x)
            assert.deepEqual(
                part.rgba.subarray(4 * row * rect.width, 4 * (row + 1) * rect.width),
                whole.rgba.subarray(at, at + 4 * rect.width),
                `case ${i}: row ${y + row} of a part`,
            )
        }
        const link = readLink(registers, groups, linkText(registers, groups, values))
        assert.deepEqual(link, { values, wrong: [] })
    }
})

test('INI texts with all that they may hold are read as the library reads them', () => {
    const settings = ['mild', 'noisy', 'strong', 'texture'].map(name => readFileSync(`settings/${name}.ini`, 'latin1'))
    const pieces = [
        '[ee0]\n',
        '[ee0',
        '[ee] ; x\n',
        ']',
        '=',
        ':',
        ';',
        ' ;',
        '#',
        '\n',
        '\r\n',
        ' ',
        '\t',
        '\v',
        '\0',
        '-',
        '+',
        '99999',
        '4294967299',
        '-' + '9'.repeat(30),
        '\xef\xbb\xbf',
        '\n  7 ; more',
        'reg_ee_total_gain',
        'reg_ee_total_gain = ',
        '\xa0',
        '\x85',
        '\xff',
        '[' + 'e'.repeat(70) + ']\n',
        'reg_ee_' + 'x'.repeat(60) + '=1\n 2\n',
        '=' + '1'.repeat(40),
    ]
    const texts = Array.from({ length: 4000 }, () => {
        const lines = random.pick(settings).replace('[ee]', '[ee0]').split('\n')
        const first = random.below(lines.length)
        let text =
            (random.chance(70) ? '[ee0]\n' : '') +
            lines.slice(first, first + random.below(random.pick([4, 40, 250]))).join('\n')
        for (let k = random.below(12); k > 0; --k) {
            const at = random.below(text.length + 1)
            text = text.slice(0, at) + random.pick(pieces) + text.slice(at + random.below(random.pick([1, 3, 30])))
        }
        return text
    })
    texts.push(
        '',
        '[ee0]\nreg_ee_total_gain = ' + ' '.repeat(2_000_000) + '5\n',
        ' '.repeat(1_999_998) + '[ee0]\nreg_ee_total_gain=7',
    )
    const output = execFileSync('python3', ['page/test/load_ini.py', join(programs, 'libcmodel.so')], {
        input: texts.map(text => JSON.stringify(text)).join('\n'),
        encoding: 'utf8',
        maxBuffer: 2 ** 30,
    })
    output
        .trimEnd()
        .split('\n')
        .forEach((line, i) => {
            const { findings, values } = engine.loadIni(Buffer.from(texts[i], 'latin1'), '0')
            const got = { count: findings.length, findings, values: [...values] }
            assert.deepEqual(got, JSON.parse(line), JSON.stringify(texts[i].slice(0, 3000)))
        })
    assert.equal(output.trimEnd().split('\n').length, texts.length)
})

test('a frame for which there is no memory is told, and the one before stays', async () => {
    openRandom()
    const before = engine.frameInfo()
    const values = random.settings(registers, before.inputs[5].depth)
    const sum = (await engine.runFull(values, async () => true))!.sha256
    const header = new TextEncoder().encode('P5\n20000 19000\n255\n')
    const large = new Uint8Array(header.length + 20000 * 19000)
    large.set(header)
    assert.throws(() => engine.openFiles([{ name: 'large.pgm', bytes: large }]), /no memory for a frame of 20000x19000/)
    assert.deepEqual(engine.frameInfo(), before)
    assert.equal((await engine.runFull(values, async () => true))!.sha256, sum)
})

test('a photograph has the planes that eetool makes of it', () => {
    for (const [width, height] of [
        [1, 1],
        [64, 33],
        [131, 20],
    ]) {
        const file = pnmFile('P6', width, height, 8, random.samples(3 * width, height, 8))
        engine.openFiles([{ name: 'photo.ppm', bytes: file }])
        writeFileSync(path('photo.ppm'), file)
        execFileSync(join(programs, 'eetool'), ['planes', path('photo.ppm'), path('planes')])
        for (const input of inputs) {
            const ours = engine.inputPgm(input)
            const count = (input === 'cb' || input === 'cr' ? (width + 1) >> 1 : width) * height
            const theirs = readFileSync(join(path('planes'), `${input === 'ynr' ? 'src_ynr' : input}.pgm`))
            assert.deepEqual(
                Buffer.from(ours.subarray(-count)),
                theirs.subarray(-count),
                `${input} of ${width}x${height}`,
            )
        }
    }
})
