// What the page holds and does; the views show it and call it.
import type { Client } from './client.ts'
import { Latest } from './client.ts'
import type { FullFrame, Histograms, Lookup, Rendered, Show } from './engine.ts'
import { Failure } from './failure.ts'
import type { FrameInfo } from './frame.ts'
import { iniText, linkText, readLink } from './ini.ts'
import type { Rect } from './model.ts'
import { presets } from './presets.ts'
import { History, snapshotStore, type Snapshot } from './state.ts'
import { groupsOf, sectionsOf, shortName, type Group, type Section, type Stage, type Tables } from './tables.ts'
import { placeAt, visibleRect, zoomTo, type View } from './view.ts'

export type Compare = 'off' | 'before' | 'locked'
export type Tab = 'registers' | 'probe' | 'setting' | 'frame'

export interface Message {
    id: number
    isError: boolean
    text: string
    details: string[]
}

/** A picture of a rectangle as the model gave it. */
export interface Drawn {
    canvas: HTMLCanvasElement
    rect: Rect
    by: number
}

export interface Probe {
    x: number
    y: number
    isPinned: boolean
    text: string
}

export interface Full {
    share: number
    end: (() => void) | null
    result: FullFrame | null
    values: Int32Array
}

export class App {
    readonly groups: Group[]
    readonly sections: Section[]
    readonly history: History
    frame: FrameInfo | null = null
    view: View = { zoom: 1, x: 0, y: 0 }
    viewport = { width: 0, height: 0 }
    show: Show = { what: 'picture' }
    compare: Compare = 'before'
    divider = 0.5
    locked: Snapshot | null = null
    snapshots: Snapshot[] = snapshotStore.load()
    drawn: { current: Drawn | null; reference: Drawn | null } = { current: null, reference: null }
    /** Why there is nothing to see. */
    obstacle = ''
    times: { modelMs: number; ms: number } | null = null
    probe: Probe | null = null
    histograms: Histograms | null = null
    findings: string[] = []
    full: Full | null = null
    messages: Message[] = []
    tab: Tab = 'registers'
    search = ''
    onlyChanged = false
    /** Shows what was drawn at once, before the rest of the page is brought up to date. */
    paint: () => void = () => {}
    /** The register that is to be brought into sight. */
    revealed = ''

    private readonly listeners = new Set<() => void>()
    private nextMessage = 1
    private timers = new Map<string, ReturnType<typeof setTimeout>>()
    private readonly renders: Record<'current' | 'reference', Latest<() => Promise<void>>>
    private readonly probes = new Latest<() => Promise<void>>(run => run())
    private readonly counts = new Latest<() => Promise<void>>(run => run())

    constructor(
        readonly client: Client,
        readonly tables: Tables,
        link: string,
    ) {
        this.groups = groupsOf(tables.registers)
        this.sections = sectionsOf(tables, this.groups)
        const latest = () => new Latest<() => Promise<void>>(run => run())
        this.renders = { current: latest(), reference: latest() }
        const { values, wrong } = readLink(tables.registers, this.groups, link)
        this.history = new History(tables, this.groups, link === '' ? this.preset('mild') : values)
        this.tellWrongLink(wrong)
    }

    subscribe(listener: () => void) {
        this.listeners.add(listener)
        return () => void this.listeners.delete(listener)
    }
    /** Shows what was changed. */
    update(change: Partial<App> = {}) {
        Object.assign(this, change)
        this.listeners.forEach(listener => listener())
    }

    private after(name: string, ms: number, run: () => void) {
        clearTimeout(this.timers.get(name))
        this.timers.set(name, setTimeout(run, ms))
    }

    // ---- Messages ----

    tell(text: string, details: string[] = [], isError = false) {
        this.messages = [...this.messages.slice(-3), { id: this.nextMessage++, isError, text, details }]
        this.update()
    }
    dismiss(id: number) {
        this.update({ messages: this.messages.filter(m => m.id !== id) })
    }
    /** Runs what may fail; a failure becomes a message. */
    async attempt<T>(run: () => Promise<T>): Promise<T | null> {
        try {
            return await run()
        } catch (error) {
            this.tell(error instanceof Failure ? error.message : `The page failed: ${error}`, [], true)
            return null
        }
    }

    // ---- The setting ----

    get values(): Int32Array {
        return this.history.current.values
    }
    value(key: string): number {
        return this.values[this.tables.registers.findIndex(r => r.key === key)]
    }
    get isOn() {
        return this.value('reg_ee_enable') === 1
    }
    get textureMode(): 0 | 1 {
        return this.value('reg_ee_texture_mode') === 1 ? 1 : 0
    }
    preset(name: string): Int32Array {
        return presets(this.tables.registers)[name]
    }

    change(group: Group, gesture: string, change: (values: Int32Array) => void, byHand?: boolean) {
        this.history.change(group, gesture, change, byHand)
        this.settingChanged()
    }
    endGesture() {
        this.history.endGesture()
    }
    replace(values: Int32Array) {
        this.history.replace(values)
        this.settingChanged()
    }
    undo() {
        this.history.undo()
        this.settingChanged()
    }
    redo() {
        this.history.redo()
        this.settingChanged()
    }
    isChanged(group: Group): boolean {
        return this.tables.registers
            .slice(group.first, group.first + group.count)
            .some(r => this.values[r.index] !== r.defaultValue)
    }

    settingChanged() {
        this.render('current')
        this.refreshProbe()
        this.after('link', 250, () => this.writeLink())
        this.after('check', 300, () => void this.check())
        this.update()
    }

    private async check() {
        const text = new TextEncoder().encode(iniText(this.tables.registers, this.values, false))
        const { findings } = await this.client.loadIni(text, 'NULL')
        this.update({ findings: findings.map(f => f.replace(/^\d+: /, '')) })
    }

    // ---- Links ----

    get link(): string {
        return linkText(this.tables.registers, this.groups, this.values)
    }
    private writeLink() {
        try {
            history.replaceState(null, '', '#' + this.link)
        } catch {
            // A browser that takes no address of a file: the setting can still be saved.
        }
    }
    openLink(text: string) {
        if (text === '' || text === this.link) {
            return
        }
        const { values, wrong } = readLink(this.tables.registers, this.groups, text)
        this.replace(values)
        this.tellWrongLink(wrong)
    }
    private tellWrongLink(wrong: string[]) {
        if (wrong.length > 0) {
            this.tell(
                'Parts of the link are no registers with values that fit; these keep their defaults:',
                wrong,
                true,
            )
        }
    }

    // ---- Files ----

    /** Registers as an INI file has them. */
    async loadIni(name: string, text: Uint8Array) {
        await this.attempt(async () => {
            const headers = [...new TextDecoder('latin1').decode(text).matchAll(/^\s*\[(ee(?!_sw)[^\]\n]*)\]/gm)].map(
                m => m[1],
            )
            const sections = [...new Set(headers)]
            const section = sections.includes('ee') || sections.length === 0 ? 'ee' : sections[0]
            const { values, findings } = await this.client.loadIni(text, section === 'ee' ? 'NULL' : section.slice(2))
            const isMissing = findings.find(f => /there is no section/.test(f))
            if (isMissing !== undefined) {
                throw new Failure(`${name} has no section [ee] with registers; the setting stays as it is.`)
            }
            this.replace(values)
            const others = sections.filter(s => s !== section).map(s => `section [${s}] is not read`)
            const what =
                findings.length === 0 ? 'all is well' : `${findings.length} finding${findings.length > 1 ? 's' : ''}`
            this.tell(
                `${name}: section [${section}] is loaded, ${what}.`,
                [...findings, ...others].slice(0, 40),
                findings.length > 0,
            )
        })
    }

    async opened(open: Promise<FrameInfo>) {
        await this.attempt(async () => {
            const frame = await open
            this.full?.end?.()
            this.drawn = { current: null, reference: null }
            this.update({ frame, full: null, histograms: null, probe: null })
            this.setView({ zoom: 1, x: frame.width / 2, y: frame.height / 2 })
        })
    }

    // ---- What is looked at ----

    resize(width: number, height: number) {
        this.viewport = { width, height }
        this.moved()
    }
    setView(view: View) {
        this.view = view
        this.moved()
    }
    zoom(steps: number, at?: { x: number; y: number }) {
        const { width, height } = this.viewport
        this.setView(zoomTo(this.view, this.viewport, steps, at ?? { x: width / 2, y: height / 2 }))
    }
    /** The whole frame, or 1:1 if it is smaller than its place. */
    fit() {
        if (this.frame !== null && this.viewport.width > 0) {
            const { width, height } = this.frame
            const by = Math.max(width / this.viewport.width, height / this.viewport.height)
            this.setView({ zoom: by <= 1 ? 1 : -Math.ceil(by), x: width / 2, y: height / 2 })
        }
    }
    actualSize() {
        this.setView({ ...this.view, zoom: 1 })
    }
    moved() {
        this.render('current')
        this.render('reference')
        this.update()
    }
    showStage(name: string) {
        const stage = this.stage(name)!
        const isLuma = stage.unit === 'code' && /^(clean_y|local_|lpf_y)/.test(name)
        const deep = isLuma ? this.frame!.inputs[0].depth - 8 : 0
        this.setShow({ what: 'stage', stage: name, shift: stage.shift - deep, aroundGrey: stage.aroundGrey })
    }
    setShow(show: Show) {
        this.show = show
        this.moved()
    }
    setCompare(compare: Compare) {
        if (compare === 'locked' && this.locked === null) {
            this.lock()
        }
        this.compare = compare
        this.moved()
    }
    /** The setting as it is becomes A. */
    lock() {
        this.locked = { name: 'A', values: this.values }
        this.render('reference')
        this.update()
    }
    /** A becomes the setting, and the setting A. */
    swap() {
        const a = this.locked!.values
        this.locked = { name: 'A', values: this.values }
        this.replace(a)
        this.render('reference')
    }
    /** Whether a block of the pipeline makes nothing in the texture mode that is set. */
    isIdle(block: string): boolean {
        const makes = (mode: 0 | 1) => this.tables.stages.some(s => s.making[mode].block === block)
        return !makes(this.textureMode) && makes(this.textureMode === 1 ? 0 : 1)
    }
    stage(name: string): Stage | undefined {
        return this.tables.stages.find(s => s.name === name)
    }
    get visible(): Rect | null {
        return this.frame === null ? null : visibleRect(this.view, this.viewport, this.frame)
    }

    private render(which: 'current' | 'reference') {
        const { frame, show, compare, locked } = this
        if (frame === null || (which === 'reference' && compare === 'off')) {
            return
        }
        if (which === 'current') {
            this.obstacle = this.findObstacle()
            if (this.obstacle !== '') {
                this.drawn.current = null
                return
            }
        }
        this.renders[which].ask(async () => {
            const rect = this.visible
            if (rect === null || this.frame !== frame) {
                return
            }
            const by = Math.max(1, -this.view.zoom)
            const before: Show = { what: this.show.what === 'luma' ? 'before luma' : 'before' }
            const request =
                which === 'current'
                    ? { side: 0 as const, values: this.values, show: this.show }
                    : {
                          side: 1 as const,
                          values: locked?.values ?? this.values,
                          show: this.compare === 'locked' ? show : before,
                      }
            try {
                this.drew(which, rect, by, await this.client.render({ ...request, rect, by }))
            } catch (error) {
                if (which === 'current') {
                    this.obstacle = (error as Error).message
                }
                this.drawn[which] = null
                this.update()
            }
        })
    }

    private findObstacle(): string {
        if (this.show.what !== 'stage') {
            return ''
        }
        if (!this.isOn) {
            return 'The block is off (enable = 0): it makes no stages.'
        }
        const making = this.stage(this.show.stage)!.making[this.textureMode]
        return making.block === null ? `Texture mode ${this.textureMode} does not make ${this.show.stage}.` : ''
    }

    private drew(which: 'current' | 'reference', rect: Rect, by: number, picture: Rendered) {
        const canvas = this.drawn[which]?.canvas ?? document.createElement('canvas')
        if (canvas.width !== picture.width || canvas.height !== picture.height) {
            canvas.width = picture.width
            canvas.height = picture.height
        }
        canvas.getContext('2d')!.putImageData(new ImageData(picture.rgba, picture.width, picture.height), 0, 0)
        this.drawn[which] = { canvas, rect, by }
        this.paint()
        if (which === 'current') {
            this.times = { modelMs: picture.modelMs, ms: picture.ms }
            this.after('count', 200, () => this.count())
        }
        this.update()
    }

    private count() {
        this.counts.ask(async () => {
            const rect = this.visible
            if (rect !== null) {
                this.update({ histograms: await this.client.count(this.values, rect) })
            }
        })
    }
    histogram(lookup: Lookup): Uint32Array | null {
        return this.histograms?.[lookup] ?? null
    }

    // ---- The probe ----

    /** Looks at the pixel below a place of the viewport, unless the probe is pinned. */
    point(at: { x: number; y: number } | null) {
        if (this.frame === null || this.probe?.isPinned) {
            return
        }
        const pixel = at === null ? null : placeAt(this.view, this.viewport, at)
        const isInside =
            pixel !== null && pixel.x >= 0 && pixel.y >= 0 && pixel.x < this.frame.width && pixel.y < this.frame.height
        if (isInside) {
            this.probeAt(Math.floor(pixel.x), Math.floor(pixel.y), false)
        }
    }
    probeAt(x: number, y: number, isPinned: boolean) {
        const { width, height } = this.frame!
        const clamp = (v: number, size: number) => Math.max(0, Math.min(size - 1, v))
        this.probe = { x: clamp(x, width), y: clamp(y, height), isPinned, text: this.probe?.text ?? '' }
        this.refreshProbe()
        this.update()
    }
    unpin() {
        if (this.probe !== null) {
            this.update({ probe: { ...this.probe, isPinned: false } })
        }
    }
    private refreshProbe() {
        if (this.probe === null || this.frame === null) {
            return
        }
        this.probes.ask(async () => {
            const asked = this.probe
            if (asked === null) {
                return
            }
            const text = await this.client
                .explain(this.values, asked.x, asked.y)
                .catch(error => (error as Error).message)
            if (this.probe !== null && this.probe.x === asked.x && this.probe.y === asked.y) {
                this.update({ probe: { ...this.probe, text } })
            }
        })
    }

    // ---- The whole frame ----

    async runFull() {
        if (this.frame === null || this.full?.end) {
            return
        }
        const values = this.values
        const { value, end } = this.client.runFull(values, share => {
            if (this.full !== null) {
                this.update({ full: { ...this.full, share } })
            }
        })
        this.update({ tab: 'frame', full: { share: 0, end, result: null, values } })
        const result = await this.attempt(() => value)
        this.update({ full: result === null ? null : { share: 1, end: null, result, values } })
    }

    // ---- Snapshots ----

    addSnapshot(name: string) {
        this.snapshots = [...this.snapshots.filter(s => s.name !== name), { name, values: this.values }]
        snapshotStore.save(this.snapshots)
        this.update()
    }
    removeSnapshot(name: string) {
        this.snapshots = this.snapshots.filter(s => s.name !== name)
        snapshotStore.save(this.snapshots)
        this.update()
    }
    /** Settings by name that can be started from and compared with. */
    get known(): Snapshot[] {
        const own = Object.entries(presets(this.tables.registers)).map(([name, values]) => ({ name, values }))
        return [...own, ...(this.locked === null ? [] : [this.locked]), ...this.snapshots]
    }

    /** Brings a register into sight. */
    reveal(key: string) {
        this.update({ tab: 'registers', search: '', onlyChanged: false, revealed: key })
    }
    matches(group: Group): boolean {
        if (this.onlyChanged && !this.isChanged(group)) {
            return false
        }
        const section = this.sections.find(s => s.groups.includes(group))!
        const text =
            `${group.name} ${shortName(group.name)} ${group.meaning} ${section.block} ${section.summary}`.toLowerCase()
        return this.search
            .toLowerCase()
            .split(/\s+/)
            .every(word => text.includes(word))
    }
}
