// The Node.js client against the program with the virtual devices.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtempSync, readFileSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { setTimeout as delay } from 'node:timers/promises';
import { inspect } from 'node:util';
import { RecordingError, start } from '../../examples/node/index.js';

const client = new URL('../../examples/node/index.js', import.meta.url);
const folder = mkdtempSync(join(tmpdir(), 'quenlor-node-'));
after(() => rmSync(folder, { recursive: true }));

// Leaves its process id behind and becomes the sidecar.
const pidFile = join(folder, 'pid');
const sidecarPath = join(folder, 'sidecar');
const program = join(process.env.QUENLOR_BUILD, 'QuenlorHelperAudioVirtual');
writeFileSync(sidecarPath, `#!/bin/sh\necho $$ >'${pidFile}'\nexec '${program}'\n`,
  { mode: 0o755 });

const outputPath = join(folder, 'recording.wav');
const options = { outputPath, title: 'Weekly', sidecarPath };
const sidecarID = () => Number(readFileSync(pidFile, 'utf8'));

function isRunning(id) {
  try {
    return readFileSync(`/proc/${id}/cmdline`).length > 0; // Empty for one that was not yet reaped.
  } catch {
    return false;
  }
}

function assertFinished(path) {
  const file = readFileSync(path);
  assert.equal(file.readUInt32LE(40), file.length - 44);
  return file.length;
}

test('gives the result as the program does, however often it is stopped', async () => {
  const recording = await start(options);
  const results = await Promise.all([recording.stop(), recording.stop(), recording.ended]);
  results.push(await recording.stop());
  for (const result of results) {
    assert.deepEqual(Object.keys(result), ['durationSeconds', 'sizeBytes']);
    assert.equal(result.sizeBytes, assertFinished(outputPath));
  }
});

test('passes on what the sidecar says when it fails, also while it is written to', async () => {
  for (const [changed, lastLine] of [
    [{ outputPath: folder }, `Replacing "${folder}" failed: Is a directory`],
    [{ title: 'x'.repeat(4 << 20) },
      'The helper audio sidecar could not read stdin: a line is longer than 1048576 bytes'],
  ])
    await assert.rejects(start({ ...options, ...changed }),
      { name: 'RecordingError', message: lastLine, lastLine, status: 1, signal: null });
});

test('says that the sidecar is missing', async () => {
  await assert.rejects(start({ ...options, sidecarPath: join(folder, 'none') }), (error) =>
    error instanceof RecordingError && error.status === null && error.cause.code === 'ENOENT');
});

test('tells of a sidecar that was killed, and breaks nothing where nobody watches', async () => {
  const recording = await start(options);
  process.kill(sidecarID(), 'SIGKILL');
  while (inspect(recording.ended).includes('pending')) await delay(5);
  const message = 'The sidecar was ended by SIGKILL.';
  const expected = { message, status: null, signal: 'SIGKILL' };
  await assert.rejects(recording.ended, expected);
  await assert.rejects(recording.stop(), expected);
});

test('leaves a finished recording and no sidecar when its process group is killed', async () => {
  const script = `import { start } from '${client}';
    await start(${JSON.stringify(options)});
    console.log('ready');`;
  const parent = spawn(process.execPath, ['--input-type=module', '-e', script], { detached: true });
  await once(parent.stdout, 'data');
  while (statSync(outputPath).size === 44) await delay(5);
  process.kill(-parent.pid, 'SIGKILL');
  while (isRunning(sidecarID())) await delay(5);
  assert(assertFinished(outputPath) > 44);
});
