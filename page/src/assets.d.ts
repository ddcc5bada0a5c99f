// What the build puts in: the model's code and the settings to start from.
declare module '#model' {
    const createModule: (options: { wasmBinary: Uint8Array; print?: () => void; printErr?: () => void }) => Promise<any>
    export default createModule
}
declare module '#wasm' {
    const bytes: Uint8Array
    export default bytes
}
declare module '*.ini' {
    const text: string
    export default text
}
