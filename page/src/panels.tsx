// The panels beside the registers: the probe, settings as a whole, the frame.
import { useState } from 'preact/hooks'
import type { App } from './app.ts'
import { chooseFiles, saveFullPicture, saveIni, saveRun } from './files.ts'
import { shortName } from './tables.ts'

// ---- The probe ----

interface StageLine {
    name: string
    value: string
    unit: string
    meaning: string
    reasons: string[]
    turn: string[]
}

/** The lines of an explanation; null if it is a message. */
function readExplanation(text: string): StageLine[] | null {
    const lines: StageLine[] = []
    for (const line of text.split('\n').slice(1)) {
        const stage = /^(\S+)\s+(-?\d+)  (.{12}) (.*)$/.exec(line)
        const last = lines[lines.length - 1]
        if (stage !== null) {
            const [, name, value, unit, meaning] = stage
            lines.push({ name, value, unit: unit.trim(), meaning, reasons: [], turn: [] })
        } else if (last !== undefined && line.startsWith(' '.repeat(26) + 'turn: ')) {
            last.turn = line.trim().slice(6).split(' ')
        } else if (last !== undefined && line.trim() !== '') {
            last.reasons.push(line.trim())
        }
    }
    return lines.length > 0 ? lines : null
}

export function ProbePanel({ app }: { app: App }) {
    const { probe } = app
    const lines = probe === null ? null : readExplanation(probe.text)
    return (
        <div class="probe">
            <div class="filter">
                {probe === null ? (
                    <span class="hint">Point at the picture; click to keep the pixel.</span>
                ) : (
                    <>
                        <strong>
                            {probe.x}, {probe.y}
                        </strong>
                        <span class="hint">
                            {probe.isPinned
                                ? 'kept: Esc lets go, Shift with arrow keys moves'
                                : 'under the pointer; click to keep'}
                        </span>
                    </>
                )}
            </div>
            <div class="list" aria-live="off">
                {probe !== null && lines === null && <p class="hint">{probe.text}</p>}
                {lines?.map(line => (
                    <StageView key={line.name} app={app} line={line} />
                ))}
            </div>
        </div>
    )
}

function StageView({ app, line }: { app: App; line: StageLine }) {
    const stage = app.stage(line.name)
    const isShown = app.show.what === 'stage' && app.show.stage === line.name
    return (
        <div class={`stage ${line.reasons.length > 0 ? 'decided' : ''}`}>
            {stage === undefined ? (
                <code>{line.name}</code>
            ) : (
                <button
                    class={isShown ? 'shown' : ''}
                    title={`Show ${line.name} in place of the picture`}
                    onClick={() => app.showStage(line.name)}
                >
                    {line.name}
                </button>
            )}
            <b>{line.value}</b>
            <span class="unit">{line.unit}</span>
            <span class="meaning" title={line.meaning}>
                {line.meaning}
            </span>
            {line.reasons.map(reason => (
                <span class="reason">{reason}</span>
            ))}
            {line.turn.join() !== 'reg_ee_texture_mode' && line.turn.length > 0 && (
                <span class="turn">
                    {line.turn.map(key => (
                        <button onClick={() => app.reveal(key)} title={`Go to ${key}`}>
                            {shortName(key)}
                        </button>
                    ))}
                </span>
            )}
        </div>
    )
}

// ---- Settings as a whole ----

export function SettingPanel({ app }: { app: App }) {
    const [name, setName] = useState('')
    const copy = async () => {
        const address = `${location.href.split('#')[0]}#${app.link}`
        try {
            await navigator.clipboard.writeText(address)
            app.tell('The link is copied.')
        } catch {
            app.tell('This browser does not let the page copy; the link is:', [address])
        }
    }
    return (
        <div class="setting list">
            <h2>File and link</h2>
            <p class="buttons">
                <button onClick={() => chooseFiles(app, '.ini,.cfg,.conf,.txt')}>Load INI&hellip;</button>
                <button onClick={() => saveIni(app, app.values, false)}>Save full INI</button>
                <button onClick={() => saveIni(app, app.values, true)}>Save minimal INI</button>
                <button onClick={() => void copy()}>Copy link</button>
            </p>
            <h2>Check</h2>
            {app.findings.length === 0 ? (
                <p class="hint">All is well.</p>
            ) : (
                <ul class="findings">
                    {app.findings.map(f => (
                        <li>{f}</li>
                    ))}
                </ul>
            )}
            <h2>Snapshots</h2>
            <form
                class="buttons"
                onSubmit={event => {
                    event.preventDefault()
                    app.addSnapshot(name.trim() || `snapshot ${app.snapshots.length + 1}`)
                    setName('')
                }}
            >
                <input
                    value={name}
                    placeholder={`snapshot ${app.snapshots.length + 1}`}
                    aria-label="Name of the snapshot"
                    maxLength={40}
                    onInput={event => setName(event.currentTarget.value)}
                />
                <button>Keep this setting</button>
            </form>
            {app.snapshots.map(s => (
                <p class="snapshot" key={s.name}>
                    <span>{s.name}</span>
                    <button onClick={() => app.replace(s.values)}>Take</button>
                    <button onClick={() => app.removeSnapshot(s.name)} aria-label={`Delete ${s.name}`}>
                        Delete
                    </button>
                </p>
            ))}
            <Differences app={app} />
        </div>
    )
}

function Differences({ app }: { app: App }) {
    const [chosen, setChosen] = useState('defaults')
    const other = app.known.find(s => s.name === chosen) ?? app.known[0]
    const rows = app.tables.registers.filter(r => app.values[r.index] !== other.values[r.index])
    return (
        <>
            <h2>
                Compared with
                <select
                    aria-label="Compare with"
                    value={other.name}
                    onChange={event => setChosen(event.currentTarget.value)}
                >
                    {app.known.map(s => (
                        <option value={s.name}>{s.name}</option>
                    ))}
                </select>
            </h2>
            {rows.length === 0 ? (
                <p class="hint">There is no difference.</p>
            ) : (
                <table class="differences">
                    <thead>
                        <tr>
                            <th>
                                {rows.length} register{rows.length > 1 ? 's' : ''}
                            </th>
                            <th>here</th>
                            <th>{other.name}</th>
                            <th />
                        </tr>
                    </thead>
                    <tbody>
                        {rows.map(r => (
                            <tr key={r.key}>
                                <td>
                                    <button
                                        onClick={() =>
                                            app.reveal(
                                                app.groups.find(g => r.index >= g.first && r.index < g.first + g.count)!
                                                    .name,
                                            )
                                        }
                                    >
                                        {shortName(r.key)}
                                    </button>
                                </td>
                                <td>{app.values[r.index]}</td>
                                <td>{other.values[r.index]}</td>
                                <td>
                                    <button
                                        aria-label={`Take ${shortName(r.key)} from ${other.name}`}
                                        title="Take this value"
                                        onClick={() => {
                                            const values = app.values.slice()
                                            values[r.index] = other.values[r.index]
                                            app.replace(values)
                                        }}
                                    >
                                        &larr;
                                    </button>
                                </td>
                            </tr>
                        ))}
                    </tbody>
                </table>
            )}
        </>
    )
}

// ---- The frame ----

export function FramePanel({ app }: { app: App }) {
    const { frame, full } = app
    const isStale = full !== null && full.values !== app.values
    return (
        <div class="frame list">
            <h2>Inputs</h2>
            {frame !== null && (
                <table class="inputs">
                    <thead>
                        <tr>
                            <th>plane</th>
                            <th>size</th>
                            <th>bits</th>
                            <th>from</th>
                        </tr>
                    </thead>
                    <tbody>
                        {frame.inputs.map(i => (
                            <tr>
                                <td>
                                    <code>{i.name}</code>
                                </td>
                                <td>
                                    {i.width}&times;{i.height}
                                </td>
                                <td>{i.depth}</td>
                                <td>{i.origin}</td>
                            </tr>
                        ))}
                    </tbody>
                </table>
            )}
            <p class="buttons">
                <button onClick={() => chooseFiles(app, 'image/*,.pgm,.ppm,.pnm')}>
                    Open a picture or planes&hellip;
                </button>
                <button onClick={() => void app.opened(app.client.openSample())}>Built-in sample</button>
            </p>
            <p class="hint">
                A set of PGM planes is opened together; each file has y, cb, cr, ynr, mmap or yfusion as a word of its
                name. What is missing: grey chroma, no motion, luma itself for ynr and yfusion.
            </p>
            <h2>Full frame</h2>
            <p class="buttons">
                <button disabled={frame === null || full?.end != null} onClick={() => void app.runFull()}>
                    Run the whole frame
                </button>
                {full?.end != null && (
                    <>
                        <progress value={full.share} aria-label="Share of the frame" />
                        <button onClick={full.end}>End</button>
                    </>
                )}
            </p>
            {full?.result != null && (
                <>
                    <dl>
                        <dt>SHA-256 of the samples{isStale ? ', of an earlier setting' : ''}</dt>
                        <dd>
                            <code class="sha" data-testid="sha256">
                                {full.result.sha256}
                            </code>
                        </dd>
                        <dt>
                            {frame!.width}&times;{frame!.height} samples of {full.result.bits} bits in{' '}
                            {Math.round(full.result.ms)} ms
                        </dt>
                    </dl>
                    <p class="buttons">
                        <button onClick={() => void saveFullPicture(app)}>Save picture (PNG)</button>
                        <button onClick={() => void saveRun(app)}>Save planes, INI and output (ZIP)</button>
                    </p>
                    <p class="hint">
                        <code>run.sh</code> in it runs <code>pre_ee_main</code> on the planes and prints the same sum.
                    </p>
                </>
            )}
        </div>
    )
}
