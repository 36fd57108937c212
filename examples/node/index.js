// Makes recordings with QuenlorHelperAudio, which runs as a child process. The declarations in
// index.d.ts say what callers may rely on.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { createInterface } from 'node:readline';

export class RecordingError extends Error {
  name = 'RecordingError';

  constructor(message, { status = null, signal = null, lastLine = '', cause } = {}) {
    super(message, { cause });
    Object.assign(this, { status, signal, lastLine });
  }
}

export async function start({ outputPath, title, sidecarPath }) {
  // In a session of its own: the Ctrl-C that ends the parent must not reach the sidecar, which can
  // only finish its file when its input ends.
  const child = spawn(sidecarPath, [], { detached: true });
  const replies = createInterface({ input: child.stdout });
  const ready = once(replies, 'line');
  const ended = outcome(child, replies);

  // Where the sidecar has ended already, its status and last line tell more than a broken pipe.
  child.stdin.on('error', () => {});
  child.stdin.write(JSON.stringify({ mode: 'mixed', outputPath, title }) + '\n');
  // This also makes somebody watch `ended`, so that the parent need not.
  await Promise.race([ready, ended]);
  return new Recording(child, ended);
}

class Recording {
  #child;

  constructor(child, ended) {
    this.#child = child;
    this.ended = ended;
  }

  stop() {
    if (this.#child.stdin.writable) this.#child.stdin.end('stop\n');
    return this.ended;
  }
}

/** Follows the conversation to its end and gives the result. */
async function outcome(child, replies) {
  const lines = [];
  let lastLine = '';
  replies.on('line', (line) => lines.push(line));
  createInterface({ input: child.stderr }).on('line', (line) => (lastLine = line));

  const [status, signal] = await once(child, 'close').catch((cause) => {
    throw new RecordingError(`The sidecar could not be started: ${cause.message}`, { cause });
  });
  if (status === 0 && lines.length === 2) return JSON.parse(lines[1]);
  const end = signal === null ? `ended with status ${status}` : `was ended by ${signal}`;
  const reason = status === 1 && lastLine ? lastLine : `The sidecar ${end}.`;
  throw new RecordingError(reason, { status, signal, lastLine });
}
