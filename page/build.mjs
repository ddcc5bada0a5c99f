// Bundles the page into one file, ../build/page/tuning.html; with an argument its modules for the tests.
import { build } from 'esbuild'
import { mkdir, readFile, writeFile } from 'node:fs/promises'
import { fileURLToPath } from 'node:url'

const here = path => fileURLToPath(new URL(path, import.meta.url))
const out = here('../build/page/')
const common = {
    bundle: true,
    write: false,
    minify: true,
    target: 'es2022',
    charset: 'ascii',
    legalComments: 'none',
    loader: { '.wasm': 'binary', '.ini': 'text' },
    alias: { '#model': out + 'page/model/model.js', '#wasm': out + 'page/model/model.wasm' },
    external: ['fs', 'path', 'playwright-core'],
    jsx: 'automatic',
    jsxImportSource: 'preact',
}
const text = async options => (await build({ ...common, ...options })).outputFiles[0].text

if (process.argv[2] === '--for-tests') {
    const [entry, outfile] = process.argv.slice(3)
    await build({
        ...common,
        entryPoints: [entry],
        outfile,
        write: true,
        minify: false,
        platform: 'node',
        format: 'esm',
        banner: {
            js:
                "import { createRequire } from 'node:module'; import { dirname } from 'node:path';" +
                'const require = createRequire(import.meta.url), __dirname = dirname(import.meta.url);',
        },
    })
} else {
    const inScript = script => script.replaceAll('</script', '<\\/script').replaceAll('<!--', '<\\!--')
    const [worker, page, style, html] = await Promise.all([
        text({ entryPoints: [here('src/worker.ts')], format: 'iife' }),
        text({ entryPoints: [here('src/main.tsx')], format: 'iife' }),
        text({ entryPoints: [here('src/style.css')] }),
        readFile(here('src/page.html'), 'utf8'),
    ])
    const parts = { STYLE: style, WORKER: inScript(worker), PAGE: inScript(page) }
    await mkdir(out, { recursive: true })
    await writeFile(
        out + 'tuning.html',
        html.replace(/<!--(STYLE|WORKER|PAGE)-->/g, (_, name) => parts[name]),
    )
}
