/** A failure that users can read. */
export class Failure extends Error {}
