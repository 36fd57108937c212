// Makes recordings with QuenlorHelperAudio, which runs as a child process. The declarations in
// index.d.ts say what callers may rely on.

import { spawn } from 'node:child_process';
import { EventEmitter, once } from 'node:events';
import { createInterface } from 'node:readline';

/** @typedef {import('./index.js').Limits} Limits */
/** @typedef {import('./index.js').Recording} RecordingType */
/** @typedef {import('./index.js').RecordingResult} RecordingResult */
/** @typedef {import('./index.js').StartOptions} StartOptions */

const defaultTimeout = 30_000;
const longestTimeout = 2 ** 31 - 1; // Beyond this setTimeout() does not wait at all.
// A sidecar that is given up has this long to end by itself, and as long to be gone once killed.
const grace = 1000;
const longestOutput = 4096; // The two replies have some 100 characters.

export class RecordingError extends Error {
  name = 'RecordingError';

  /**
   * @param {string} message
   * @param {{ status?: number | null, signal?: string | null, lastLine?: string, cause?: unknown }} details
   */
  constructor(message, { status = null, signal = null, lastLine = '', cause } = {}) {
    super(message, { cause });
    this.status = status;
    this.signal = signal;
    this.lastLine = lastLine;
  }
}

/** @type {typeof import('./index.js').start} */
export async function start(options) {
  const request = serialize(options);
  const sidecar = new Sidecar(await launch(options.sidecarPath));
  const recording = new Recording(sidecar);
  sidecar.write(request);
  const reply = await limited('start', options, sidecar, sidecar.firstReply);
  try {
    checkReady(reply);
  } catch (cause) {
    sidecar.giveUp(`The sidecar's ready reply was not understood: "${reply}"`, cause);
    await sidecar.ended;
  }
  // Whoever awaits the start has a listener by then.
  setImmediate(() => recording.passOnTrace());
  return recording;
}

/** @implements {RecordingType} */
class Recording extends EventEmitter {
  #sidecar;
  /** @type {string[]} */
  #earlyTrace = [];
  /** @param {string} line */
  #keep = (line) => void this.#earlyTrace.push(line);

  /** @param {Sidecar} sidecar */
  constructor(sidecar) {
    super();
    this.#sidecar = sidecar;
    this.pid = sidecar.pid;
    this.ended = sidecar.ended;
    sidecar.trace.on('line', this.#keep);
  }

  passOnTrace() {
    this.#sidecar.trace.off('line', this.#keep).on('line', (line) => this.emit('trace', line));
    for (const line of this.#earlyTrace) this.emit('trace', line);
  }

  /** @param {Limits} limits */
  stop(limits = {}) {
    const stopped = this.#stop(limits);
    stopped.catch(() => {}); // Who watches `ended` need not watch this as well.
    return stopped;
  }

  /** @param {Limits} limits */
  async #stop(limits) {
    try {
      checkLimits(limits);
    } catch (cause) {
      throw new RecordingError(`The recording was not stopped: ${text(cause)}`, { cause });
    }
    this.#sidecar.finish('stop');
    return limited('stop', limits, this.#sidecar, this.ended);
  }
}

/** The child process: what it says, and how it ends. */
class Sidecar {
  #child;
  #output = '';
  #lastLine = '';
  /** @type {{ message: string, cause: unknown } | undefined} */
  #failure;
  #abandoned = new AbortController();

  /** @param {import('node:child_process').ChildProcessWithoutNullStreams} child */
  constructor(child) {
    this.#child = child;
    this.pid = Number(child.pid);
    // Where it has ended already, its status and last line tell more than a broken pipe.
    child.stdin.on('error', () => {});
    this.trace = createInterface({ input: child.stderr });
    this.trace.on('line', (line) => (this.#lastLine = line));
    // What it has started may keep the pipes open.
    child.once('exit', () => setTimeout(() => this.#closePipes(), grace).unref());
    this.firstReply = this.#firstReply();
    this.ended = this.#outcome();
    this.ended.catch(() => {}); // Need not be watched.
  }

  /** @returns {Promise<string>} */
  #firstReply() {
    return new Promise((resolve) =>
      this.#child.stdout.setEncoding('utf8').on('data', (text) => {
        if (this.#output.length < longestOutput) this.#output += text;
        if (this.#failure) return; // What it replies now is too late.
        if (this.#output.includes('\n') || this.#output.length >= longestOutput)
          resolve(this.#output.split('\n', 1)[0]);
      }));
  }

  /** @param {string} text */
  write(text) {
    this.#child.stdin.write(text);
  }

  /**
   * Writes the line that ends the conversation, unless one was written.
   * @param {string} word
   */
  finish(word) {
    if (this.#child.stdin.writable) this.#child.stdin.end(`${word}\n`);
  }

  /**
   * Makes the recording fail and the sidecar end. One that has not been told to stop discards what
   * it has.
   * @param {string} message
   * @param {unknown} cause
   */
  giveUp(message, cause) {
    if (this.#failure) return;
    this.#failure = { message, cause };
    this.finish('discard');
    // While the child is there, the event loop waits for it, and so for these.
    setTimeout(() => this.#kill(), grace).unref();
    setTimeout(() => this.#abandon(), 2 * grace).unref();
  }

  #kill() {
    if (this.#child.exitCode !== null || this.#child.signalCode !== null) return;
    try {
      process.kill(-this.pid, 'SIGKILL'); // It leads a process group.
    } catch {
      // It has just ended.
    }
  }

  /** Not even a kill helps where the system waits for a disk. */
  #abandon() {
    this.#closePipes();
    this.#child.unref();
    this.#abandoned.abort();
  }

  #closePipes() {
    for (const pipe of this.#child.stdio) pipe?.destroy();
  }

  /** @returns {Promise<RecordingResult>} */
  async #outcome() {
    const [status, signal] = await once(this.#child, 'close', { signal: this.#abandoned.signal })
      .catch(() => [null, null]);
    /** @param {string} message @param {unknown} [cause] */
    const failure = (message, cause) =>
      new RecordingError(message, { status, signal, lastLine: this.#lastLine, cause });
    if (this.#failure) throw failure(this.#failure.message, this.#failure.cause);
    if (status === 1 && this.#lastLine) throw failure(this.#lastLine);
    if (signal !== null) throw failure(`The sidecar was ended by ${signal}.`);
    if (status !== 0) throw failure(`The sidecar ended with status ${status}.`);
    const [, reply = ''] = this.#output.split('\n');
    try {
      return parseResult(reply);
    } catch (cause) {
      throw failure(`The sidecar's result was not understood: "${reply}"`, cause);
    }
  }
}

/**
 * Gives the start request.
 * @param {StartOptions} options
 */
function serialize(options) {
  try {
    const { outputPath, title } = options;
    if (typeof outputPath !== 'string') throw new TypeError('outputPath is no string');
    if (typeof title !== 'string') throw new TypeError('title is no string');
    checkLimits(options);
    options.signal?.throwIfAborted();
    return JSON.stringify({ mode: 'mixed', outputPath, title }) + '\n';
  } catch (cause) {
    throw new RecordingError(`The recording was not started: ${text(cause)}`, { cause });
  }
}

/** @param {string} program */
async function launch(program) {
  try {
    // In a session of its own: the Ctrl-C that ends the parent must not reach the sidecar, which can
    // only finish its file when its input ends.
    const child = spawn(program, [], { detached: true });
    if (child.pid === undefined) throw (await once(child, 'error'))[0];
    return child;
  } catch (cause) {
    throw new RecordingError(`The sidecar could not be started: ${text(cause)}`, { cause });
  }
}

/** @param {Limits} limits */
function checkLimits({ signal, timeout = defaultTimeout }) {
  if (signal !== undefined && !(signal instanceof AbortSignal))
    throw new TypeError('signal is no AbortSignal');
  if (typeof timeout !== 'number' || !(timeout >= 0)) throw new TypeError('timeout is no time');
}

/**
 * Gives the answer, or the error that the sidecar ended with. Gives the sidecar up where the
 * caller's limits come first.
 * @template T
 * @param {string} step
 * @param {Limits} limits
 * @param {Sidecar} sidecar
 * @param {Promise<T>} answer
 */
async function limited(step, { signal, timeout = defaultTimeout }, sidecar, answer) {
  const abort = () => sidecar.giveUp(`The ${step} was aborted.`, signal?.reason);
  const expire = () => {
    const message = `The ${step} took longer than ${timeout} ms.`;
    sidecar.giveUp(message, new DOMException(message, 'TimeoutError'));
  };
  const timer = setTimeout(expire, Math.min(timeout, longestTimeout));
  signal?.addEventListener('abort', abort);
  if (signal?.aborted) abort();
  try {
    return await Promise.race([answer, sidecar.ended.then(() => answer)]);
  } finally {
    clearTimeout(timer);
    signal?.removeEventListener('abort', abort);
  }
}

/** @param {string} line */
function checkReady(line) {
  if (JSON.parse(line)?.status !== 'ready') throw new TypeError('it is no ready reply');
}

/** @param {string} line @returns {RecordingResult} */
function parseResult(line) {
  const result = JSON.parse(line);
  if (typeof result?.durationSeconds !== 'number' || typeof result.sizeBytes !== 'number')
    throw new TypeError('it is no result');
  return result;
}

/** @param {unknown} error */
function text(error) {
  return error instanceof Error ? error.message : String(error);
}
