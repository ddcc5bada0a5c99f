// The page.
import { render } from 'preact'
import { useEffect, useReducer, useRef } from 'preact/hooks'
import { App, type Compare, type Tab } from './app.ts'
import { Client } from './client.ts'
import { chooseFiles, openFiles } from './files.ts'
import { FramePanel, ProbePanel, SettingPanel } from './panels.tsx'
import { PictureView } from './picture.tsx'
import { RegisterList } from './registers.tsx'
import { zoomText } from './view.ts'

function Toolbar({ app, help }: { app: App; help: () => void }) {
    const { show } = app
    const stages = app.tables.stages.filter(
        s => s.making[app.textureMode].block !== null || (show.what === 'stage' && show.stage === s.name),
    )
    const isStage = show.what === 'stage'
    return (
        <header class="toolbar">
            <button
                onClick={() => chooseFiles(app, 'image/*,.pgm,.ppm,.pnm,.ini')}
                title="A picture, PGM or PPM planes, or an INI file (Ctrl+O); or drop it on the page"
            >
                Open&hellip;
            </button>
            <span class="set">
                <button onClick={() => app.undo()} disabled={!app.history.canUndo} title="Undo (Ctrl+Z)">
                    Undo
                </button>
                <button onClick={() => app.redo()} disabled={!app.history.canRedo} title="Redo (Ctrl+Shift+Z)">
                    Redo
                </button>
            </span>
            <label>
                Show{' '}
                <select
                    aria-label="Show"
                    value={isStage ? show.stage : show.what}
                    onChange={event => {
                        const { value } = event.currentTarget
                        if (value === 'picture' || value === 'luma') {
                            app.setShow({ what: value })
                        } else {
                            app.showStage(value)
                        }
                    }}
                >
                    <option value="picture">picture</option>
                    <option value="luma">luma</option>
                    <optgroup label="Stages">
                        {stages.map(s => (
                            <option value={s.name} title={s.meaning}>
                                {s.name}
                            </option>
                        ))}
                    </optgroup>
                </select>
            </label>
            {isStage && app.stage(show.stage)!.unit !== 'class' && (
                <label class="shift" title="Shown as value << shift >> 3">
                    shift{' '}
                    <input
                        type="number"
                        min={-8}
                        max={15}
                        value={show.shift}
                        aria-label="Shift of the view"
                        onInput={event => {
                            const shift = event.currentTarget.valueAsNumber
                            if (Number.isInteger(shift) && shift >= -8 && shift <= 15) {
                                app.setShow({ ...show, shift })
                            }
                        }}
                    />
                </label>
            )}
            <label>
                Compare{' '}
                <select
                    aria-label="Compare"
                    value={app.compare}
                    onChange={event => app.setCompare(event.currentTarget.value as Compare)}
                >
                    <option value="off">off</option>
                    <option value="before">before and after</option>
                    <option value="locked">A and B</option>
                </select>
            </label>
            <span class="set">
                <button onClick={() => app.lock()} title="The setting as it is becomes A (l)">
                    Lock A
                </button>
                {app.locked !== null && (
                    <button onClick={() => app.swap()} title="A becomes the setting, and the setting A">
                        Swap
                    </button>
                )}
            </span>
            <span class="set zoom">
                <button onClick={() => app.zoom(-1)} aria-label="Zoom out">
                    &minus;
                </button>
                <output>{zoomText(app.view.zoom)}</output>
                <button onClick={() => app.zoom(1)} aria-label="Zoom in">
                    +
                </button>
                <button onClick={() => app.actualSize()}>1:1</button>
                <button onClick={() => app.fit()}>Fit</button>
            </span>
            <span class="fill" />
            <button class="main" onClick={() => void app.runFull()} title="Run the whole frame (f)">
                Full frame
            </button>
            <button onClick={toggleTheme} title="Light or dark" aria-label="Light or dark">
                &#9680;
            </button>
            <button onClick={help} title="Keys (?)" aria-label="Keys">
                ?
            </button>
        </header>
    )
}

function toggleTheme() {
    const { dataset } = document.documentElement
    const isDark =
        dataset.theme === undefined ? matchMedia('(prefers-color-scheme: dark)').matches : dataset.theme === 'dark'
    dataset.theme = isDark ? 'light' : 'dark'
}

function StatusLine({ app }: { app: App }) {
    const { frame, probe, times } = app
    const value = (name: string) => {
        const found = new RegExp(`^${name}\\s+(-?\\d+)`, 'm').exec(probe?.text ?? '')
        return found === null ? null : Number(found[1])
    }
    const before = value('ynr'),
        after = value('sharpened')
    return (
        <footer class="status">
            <span>{frame === null ? 'No picture' : `${frame.name}  ${frame.width}\u00d7${frame.height}`}</span>
            {probe !== null && (
                <span>
                    x {probe.x} y {probe.y}
                </span>
            )}
            {before !== null && after !== null && (
                <span>
                    {before} &rarr; {after}{' '}
                    <b>
                        {after > before ? '+' : ''}
                        {after - before}
                    </b>
                </span>
            )}
            <span class="fill" />
            {app.findings.length > 0 && (
                <button class="warn" onClick={() => app.update({ tab: 'setting' })}>
                    {app.findings.length} finding{app.findings.length > 1 ? 's' : ''}
                </button>
            )}
            {times !== null && <span title="The model on the visible part">{times.modelMs.toFixed(0)} ms</span>}
            <span>{app.tables.version}</span>
        </footer>
    )
}

const tabs: [Tab, string][] = [
    ['registers', 'Registers'],
    ['probe', 'Probe'],
    ['setting', 'Setting'],
    ['frame', 'Frame'],
]

function SidePanel({ app }: { app: App }) {
    const choose = (tab: Tab) => app.update({ tab })
    return (
        <aside class="side-panel">
            <div
                role="tablist"
                aria-label="Panels"
                onKeyDown={event => {
                    const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key]
                    if (step !== undefined) {
                        const next =
                            tabs[(tabs.findIndex(([id]) => id === app.tab) + step + tabs.length) % tabs.length][0]
                        choose(next)
                        document.getElementById(`tab-${next}`)!.focus()
                    }
                }}
            >
                {tabs.map(([id, name]) => (
                    <button
                        role="tab"
                        id={`tab-${id}`}
                        aria-selected={app.tab === id}
                        aria-controls="panel"
                        tabIndex={app.tab === id ? 0 : -1}
                        onClick={() => choose(id)}
                    >
                        {name}
                        {id === 'setting' && app.findings.length > 0 && <em>{app.findings.length}</em>}
                    </button>
                ))}
            </div>
            <div role="tabpanel" id="panel" aria-labelledby={`tab-${app.tab}`}>
                {app.tab === 'registers' && <RegisterList app={app} />}
                {app.tab === 'probe' && <ProbePanel app={app} />}
                {app.tab === 'setting' && <SettingPanel app={app} />}
                {app.tab === 'frame' && <FramePanel app={app} />}
            </div>
        </aside>
    )
}

function Messages({ app }: { app: App }) {
    return (
        <div class="messages">
            {app.messages.map(m => (
                <div key={m.id} class={m.isError ? 'message error' : 'message'} role={m.isError ? 'alert' : 'status'}>
                    <p>{m.text}</p>
                    {m.details.length > 0 && (
                        <ul>
                            {m.details.map(d => (
                                <li>{d}</li>
                            ))}
                        </ul>
                    )}
                    <button onClick={() => app.dismiss(m.id)} aria-label="Dismiss the message">
                        &times;
                    </button>
                </div>
            ))}
        </div>
    )
}

const keys: [string, string][] = [
    ['Ctrl+O', 'open a picture, planes or an INI file'],
    ['Ctrl+Z, Ctrl+Shift+Z', 'undo, redo'],
    ['/', 'search registers'],
    ['p', 'go to the picture'],
    ['Arrow keys', 'in the picture: move it; with Shift: move the probe'],
    ['Enter, Esc', 'in the picture: probe the middle, let go'],
    ['+  \u2212  0  1', 'in the picture: zoom in, out, fit, 1:1'],
    ['c', 'compare: off, before and after, A and B'],
    ['l', 'lock the setting as A'],
    ['f', 'run the whole frame'],
]

function Help({ dialog }: { dialog: { current: HTMLDialogElement | null } }) {
    return (
        <dialog ref={dialog} aria-label="Keys">
            <h2>Keys</h2>
            <dl>
                {keys.map(([key, what]) => (
                    <>
                        <dt>{key}</dt>
                        <dd>{what}</dd>
                    </>
                ))}
            </dl>
            <form method="dialog">
                <button>Close</button>
            </form>
        </dialog>
    )
}

function Page({ app }: { app: App }) {
    const [, update] = useReducer((n: number) => n + 1, 0)
    const help = useRef<HTMLDialogElement>(null)
    useEffect(() => app.subscribe(() => update(0)), [app])
    useEffect(() => {
        const onKeyDown = (event: KeyboardEvent) => {
            const isCommand = event.ctrlKey || event.metaKey
            const key = event.key.toLowerCase()
            const action = isCommand
                ? {
                      z: () => (event.shiftKey ? app.redo() : app.undo()),
                      y: () => app.redo(),
                      o: () => chooseFiles(app, 'image/*,.pgm,.ppm,.pnm,.ini'),
                  }[key]
                : {
                      '/': () => {
                          app.update({ tab: 'registers' })
                          requestAnimationFrame(() => document.getElementById('search')?.focus())
                      },
                      'p': () => document.querySelector<HTMLElement>('.picture canvas')!.focus(),
                      'c': () =>
                          app.setCompare(
                              app.compare === 'off' ? 'before' : app.compare === 'before' ? 'locked' : 'off',
                          ),
                      'l': () => app.lock(),
                      'f': () => void app.runFull(),
                      '?': () => help.current!.showModal(),
                  }[key]
            const typing =
                event.target instanceof HTMLElement &&
                event.target.matches('input:not([type=range], [type=checkbox]), select, textarea')
            const isText =
                event.target instanceof HTMLElement && event.target.matches('input[type=search], input:not([type])')
            if (action !== undefined && !event.altKey && !(isCommand ? isText : typing) && !help.current!.open) {
                event.preventDefault()
                action()
            }
        }
        const onHash = () => app.openLink(location.hash.slice(1))
        const onDrop = (event: DragEvent) => {
            event.preventDefault()
            if (event.type === 'drop' && event.dataTransfer !== null) {
                void openFiles(app, [...event.dataTransfer.files])
            }
        }
        addEventListener('keydown', onKeyDown)
        addEventListener('hashchange', onHash)
        addEventListener('drop', onDrop)
        addEventListener('dragover', onDrop)
        return () => {
            removeEventListener('keydown', onKeyDown)
            removeEventListener('hashchange', onHash)
            removeEventListener('drop', onDrop)
            removeEventListener('dragover', onDrop)
        }
    }, [app])
    return (
        <div class="page">
            <Toolbar app={app} help={() => help.current!.showModal()} />
            <main>
                <PictureView app={app} />
            </main>
            <SidePanel app={app} />
            <StatusLine app={app} />
            <Messages app={app} />
            <Help dialog={help} />
        </div>
    )
}

async function start() {
    const place = document.getElementById('page')!
    try {
        const client = new Client(document.getElementById('worker')!.textContent!)
        const tables = await client.tables()
        const app = new App(client, tables, location.hash.slice(1))
        place.textContent = ''
        render(<Page app={app} />, place)
        void app.opened(client.openSample())
        app.settingChanged()
    } catch (error) {
        place.innerHTML =
            '<p class="loading">The model does not run in this browser: it needs WebAssembly with SIMD.</p>'
        console.error(error)
    }
}

void start()
