import { EventEmitter } from 'node:events';

/** How long to wait. Where a limit comes first, the sidecar is ended before the promise rejects. */
export interface Limits {
  /** Gives up when it is aborted; the error's cause is its reason. */
  signal?: AbortSignal;
  /** Gives up after this many milliseconds: 30000 unless set, Infinity for no limit. */
  timeout?: number;
}

/** The limits are those of the start alone. */
export interface StartOptions extends Limits {
  /** The WAV file to write. A file that exists is replaced; missing folders are made. */
  outputPath: string;
  /** Names the capture stream on the sound server. */
  title: string;
  /** The program QuenlorHelperAudio, or QuenlorHelperAudioVirtual for tests. */
  sidecarPath: string;
}

/** The sidecar's result, as it wrote it. */
export interface RecordingResult {
  durationSeconds: number;
  /** The whole file, header included. */
  sizeBytes: number;
}

/**
 * Emits `trace` for each line on the sidecar's standard error. What came before start() has resolved
 * is emitted right after it.
 */
export interface Recording extends EventEmitter {
  on(event: 'trace', listener: (line: string) => void): this;
  once(event: 'trace', listener: (line: string) => void): this;
  off(event: 'trace', listener: (line: string) => void): this;

  /** The sidecar's process ID. */
  readonly pid: number;

  /**
   * Settles when the recording is over: with the result, or with a RecordingError as soon as the
   * sidecar fails. Need not be watched; a rejection that nobody handles goes unnoticed.
   */
  readonly ended: Promise<RecordingResult>;

  /** Ends the recording and gives what `ended` gives; again when called again. Need not be watched. */
  stop(limits?: Limits): Promise<RecordingResult>;
}

/** A recording that could not be started or finished. The message is fit for people. */
export class RecordingError extends Error {
  /** The sidecar's exit status; null where it was not started or a signal ended it. */
  readonly status: number | null;
  /** The signal that ended the sidecar, or null. */
  readonly signal: string | null;
  /** The last line on the sidecar's standard error: with status 1, why it failed. */
  readonly lastLine: string;
  /**
   * The error behind this one: the system's where the sidecar could not be started, the signal's
   * reason, a TimeoutError, what is wrong with an option or a reply. Where the sidecar itself
   * failed, the other members tell all there is.
   */
  readonly cause?: unknown;
}

/** Starts a recording. Resolves once capture runs, rejects with a RecordingError. */
export function start(options: StartOptions): Promise<Recording>;
