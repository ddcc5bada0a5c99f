// Every register, by the block that follows it.
import { useEffect, useRef } from 'preact/hooks'
import type { App } from './app.ts'
import { clampTo } from './curve.ts'
import { CurveEditor } from './curve_editor.tsx'
import { NumberField } from './fields.tsx'
import { shortName, type Group, type Register, type Section } from './tables.ts'

export function RegisterList({ app }: { app: App }) {
    const list = useRef<HTMLDivElement>(null)
    useEffect(() => {
        if (app.revealed === '') {
            return
        }
        const row = list.current!.querySelector<HTMLElement>(`[data-group="${CSS.escape(app.revealed)}"]`)
        app.revealed = ''
        row?.closest('details')?.setAttribute('open', '')
        row?.scrollIntoView({ block: 'center' })
        row?.querySelector<HTMLElement>('input:not([type=checkbox]), [tabindex="0"], input')?.focus()
    })
    const shown = app.sections
        .map(section => ({ section, groups: section.groups.filter(g => app.matches(g)) }))
        .filter(({ groups }) => groups.length > 0)
    return (
        <div class="registers">
            <div class="filter">
                <input
                    type="search"
                    placeholder="Search registers  ( / )"
                    aria-label="Search registers"
                    id="search"
                    value={app.search}
                    onInput={event => app.update({ search: event.currentTarget.value })}
                />
                <label title="Only registers that differ from their defaults">
                    <input
                        type="checkbox"
                        checked={app.onlyChanged}
                        onChange={() => app.update({ onlyChanged: !app.onlyChanged })}
                    />{' '}
                    changed only
                </label>
                <StartFrom app={app} />
            </div>
            <div class="list" ref={list}>
                {shown.map(({ section, groups }) => (
                    <SectionView key={section.block} app={app} section={section} groups={groups} />
                ))}
                {shown.length === 0 && (
                    <p class="hint">No register {app.onlyChanged ? 'that is changed ' : ''}matches.</p>
                )}
            </div>
        </div>
    )
}

function StartFrom({ app }: { app: App }) {
    return (
        <select
            aria-label="Start from a setting"
            value=""
            onChange={event => {
                const found = app.known.find(s => s.name === event.currentTarget.value)
                event.currentTarget.value = ''
                if (found !== undefined) {
                    app.replace(found.values)
                }
            }}
        >
            <option value="">Start from&hellip;</option>
            {app.known.map(s => (
                <option value={s.name}>{s.name}</option>
            ))}
        </select>
    )
}

function SectionView({ app, section, groups }: { app: App; section: Section; groups: Group[] }) {
    const changed = groups.filter(g => app.isChanged(g)).length
    return (
        <details open={section.block !== 'no block'}>
            <summary>
                <code>{section.block}</code>{' '}
                {app.isIdle(section.block) && <i>idle in texture mode {app.textureMode}</i>}
                <span>{section.summary}</span>
                {changed > 0 && <em title={`${changed} changed`}>{changed}</em>}
            </summary>
            {groups.map(group => (
                <GroupView key={group.name} app={app} group={group} />
            ))}
        </details>
    )
}

function GroupView({ app, group }: { app: App; group: Group }) {
    const registers = app.tables.registers.slice(group.first, group.first + group.count)
    const [register] = registers
    const isChanged = app.isChanged(group)
    const name = shortName(group.name)
    const isSwitch = group.kind === 'single' && register.greatest === 1
    const range = `: ${register.least} to ${register.greatest}, default ${register.defaultValue}`
    const title = group.name + (group.kind === 'single' ? range : '')
    return (
        <div class={`group ${group.kind} ${isChanged ? 'changed' : ''}`} data-group={group.name}>
            <span class="key" title={title}>
                {name}
            </span>
            {group.kind !== 'single' ? null : isSwitch ? (
                <Switch app={app} group={group} register={register} />
            ) : (
                <>
                    <Slider app={app} group={group} register={register} />
                    <NumberField app={app} register={register} group={group} label={name} isEnabled />
                </>
            )}
            <button
                class="reset"
                title={`Back to the default${group.kind === 'single' ? `, ${register.defaultValue}` : ''}`}
                aria-label={`${name}: back to the default`}
                disabled={!isChanged}
                onClick={() =>
                    app.change(
                        group,
                        '',
                        values =>
                            registers.forEach(r => {
                                values[r.index] = r.defaultValue
                            }),
                        false,
                    )
                }
            >
                &#8634;
            </button>
            <span class="meaning">{group.meaning}</span>
            {group.kind !== 'single' && <CurveEditor app={app} group={group} />}
        </div>
    )
}

interface Props {
    app: App
    group: Group
    register: Register
}

function Switch({ app, group, register }: Props) {
    const value = app.values[register.index]
    return (
        <input
            class="switch"
            type="checkbox"
            role="switch"
            checked={value === 1}
            aria-label={shortName(register.key)}
            data-key={register.key}
            onChange={() =>
                app.change(group, '', values => {
                    values[register.index] = 1 - value
                })
            }
        />
    )
}

/** Wide ranges get finer towards 0, where their useful values lie. */
function Slider({ app, group, register }: Props) {
    const { index, key, least, greatest, defaultValue } = register
    const isWide = greatest > 4095
    const toPlace = (value: number) => (isWide ? Math.round(1000 * Math.cbrt(value / greatest)) : value)
    const toValue = (place: number) => clampTo(register, isWide ? greatest * (place / 1000) ** 3 : place)
    const value = app.values[index]
    const most = isWide ? 1000 : greatest
    const share = (v: number) => (toPlace(v) - least) / (most - least)
    return (
        <span class="slider" style={{ '--at': share(value), '--default': share(defaultValue) }}>
            <input
                type="range"
                min={isWide ? 0 : least}
                max={most}
                step="1"
                value={toPlace(value)}
                aria-label={shortName(key)}
                aria-valuetext={`${value}`}
                data-slider={key}
                onInput={event => {
                    const next = toValue(Number(event.currentTarget.value))
                    app.change(group, `drag ${key}`, values => {
                        values[index] = next
                    })
                }}
                onChange={() => app.endGesture()}
            />
        </span>
    )
}
