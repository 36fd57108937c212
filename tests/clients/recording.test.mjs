// The Node.js client against the program with the virtual devices.

import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { existsSync, mkdtempSync, readFileSync, rmSync, statSync, writeFileSync } from 'node:fs';
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

/** Makes a sidecar of a shell script; its process ID is then in a file beside it. */
function fakeSidecar(name, script) {
  const path = join(folder, `fake-${name}`);
  writeFileSync(path, `#!/bin/sh\necho $$ >'${path}.pid'\n${script}\n`, { mode: 0o755 });
  return path;
}

async function failure(promise) {
  const error = await promise.then(() => assert.fail('did not fail'), (error) => error);
  assert(error instanceof RecordingError, inspect(error));
  return error;
}

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

test('starts no sidecar for what cannot be asked for', async () => {
  rmSync(pidFile, { force: true });
  for (const [changed, cause] of [
    [{ sidecarPath: join(folder, 'none') }, { code: 'ENOENT' }],
    [{ sidecarPath: 'a\0b' }, { code: 'ERR_INVALID_ARG_VALUE' }],
    [{ outputPath: Buffer.from(outputPath) }, { name: 'TypeError' }],
    [{ title: 5n }, { name: 'TypeError' }],
    [{ timeout: -1 }, { name: 'TypeError' }],
    [{ timeout: '1' }, { name: 'TypeError' }],
    [{ signal: {} }, { name: 'TypeError' }],
    [{ signal: AbortSignal.abort() }, { name: 'AbortError' }],
  ]) {
    const error = await failure(start({ ...options, ...changed }));
    assert.equal(error.status, null);
    for (const [key, value] of Object.entries(cause)) assert.equal(error.cause[key], value);
  }
  assert(!existsSync(pidFile));
});

test('outlasts sidecars that do not do their part, and leaves none of them', async () => {
  const table = JSON.parse(readFileSync(new URL('failing-sidecars.json', import.meta.url), 'utf8'));
  // All are written before one is started: none may be open for writing then.
  const sidecars = table.map(({ script }, index) => fakeSidecar(index, script));
  await Promise.all(table.map(async ({ does, timeout = 30, fails, message, cause }, index) => {
    const program = sidecars[index];
    const begun = performance.now();
    const limits = { timeout: timeout * 1000 };
    const fake = { ...options, sidecarPath: program };
    const error = await failure(
      fails === 'start' ? start({ ...fake, ...limits }) : (await start(fake)).stop(limits));
    assert(performance.now() - begun < 15_000, does);
    assert(error.message.includes(message), `${does}: ${error.message}`);
    assert.equal(error.cause?.name, cause?.[0], does);
    assert(!isRunning(Number(readFileSync(`${program}.pid`, 'utf8'))), does);
  }));
});

test('discards the recording when the start is aborted, and keeps it when the stop is', async () => {
  const reason = new Error('changed my mind');
  const controller = new AbortController();
  const starting = start({ ...options, signal: controller.signal });
  setTimeout(() => controller.abort(reason));
  assert.equal((await failure(starting)).cause, reason);
  assert(!existsSync(outputPath));

  const recording = await start(options);
  assert.equal((await failure(recording.stop({ signal: controller.signal }))).cause, reason);
  assertFinished(outputPath);
  assert(!isRunning(recording.pid));
});

test('passes the trace on from its first line to the last', async () => {
  const recording = await start(options);
  const lines = [];
  recording.on('trace', (line) => lines.push(line));
  assert.equal(recording.pid, sidecarID());
  await recording.stop();
  const expected = spawnSync(program, { input: JSON.stringify({ mode: 'mixed', ...options }) });
  const events = (trace) => trace.map((line) => line.replace(/[\d-]+T\S+/, ''));
  assert.deepEqual(events(lines), events(expected.stderr.toString().trimEnd().split('\n')));
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
