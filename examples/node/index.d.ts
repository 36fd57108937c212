export interface StartOptions {
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

export interface Recording {
  /**
   * Settles when the recording is over: with the result, or with a RecordingError as soon as the
   * sidecar fails. Need not be watched; a rejection that nobody handles goes unnoticed.
   */
  readonly ended: Promise<RecordingResult>;

  /** Ends the recording and gives `ended`. Further calls give the same promise. */
  stop(): Promise<RecordingResult>;
}

/** A recording that could not be started or finished. The message is fit for people. */
export class RecordingError extends Error {
  /** The sidecar's exit status; null where it was not started or a signal ended it. */
  readonly status: number | null;
  /** The signal that ended the sidecar, or null. */
  readonly signal: string | null;
  /** The last line on the sidecar's standard error: with status 1, why it failed. */
  readonly lastLine: string;
  /** The system's error where the sidecar could not be started. */
  readonly cause?: unknown;
}

/** Starts a recording. Resolves once capture runs, rejects with a RecordingError. */
export function start(options: StartOptions): Promise<Recording>;
