// SPDX-License-Identifier: Apache-2.0
// Centres to look at: one of a test's own, and the network of the examples.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { program, root } from './browser.mjs';

const page = join(root, 'build/web');
const temporary = () => mkdtempSync(join(tmpdir(), 'reflyze-page-'));
const traces = temporary();
process.on('exit', () => rmSync(traces, { recursive: true, force: true }));

// Runs a program that prints its address first; `lines` are what it prints then.
async function run(words, env = process.env) {
  const child = spawn(words[0], words.slice(1), { stdio: ['ignore', 'pipe', 'inherit'], env });
  const lines = [];
  const reader = createInterface({ input: child.stdout });
  const first = once(reader, 'line');
  reader.on('line', (line) => lines.push({ line, at: Date.now() }));
  const [address] = await Promise.race([first, once(child, 'exit').then(() => assert.fail(`${words.join(' ')} has ended`))]);
  return { child, lines, address };
}

async function end(child, signal) {
  if (child.exitCode !== null || child.signalCode !== null) return;
  const gone = once(child, 'exit');
  child.kill(signal);
  await gone;
}

// A centre in a folder of its own. `users` are [name, role, password], `more` further options.
export async function startCentre(users = [], more = []) {
  const folder = temporary();
  const store = join(folder, 'w.db');
  for (const [name, role, password] of users) {
    const made = spawnSync(program, ['watch', '--store', store, '--set-user', name, '--role', role], { input: password, encoding: 'utf8' });
    assert.equal(made.status, 0, made.stderr);
  }
  const words = (port) => [program, 'watch', '--store', store, '--page', page, '--port', String(port), ...more];
  let { child, address } = await run(words(0));
  const [name, , password] = users[0] ?? [];
  return {
    address,
    async ask(method, path, body) {
      const answer = await fetch(address + path, {
        method,
        headers: { 'X-Requested-With': 'test', ...(name ? { Authorization: `Basic ${Buffer.from(`${name}:${password}`).toString('base64')}` } : {}) },
        body: body === undefined || Buffer.isBuffer(body) ? body : JSON.stringify(body),
      });
      const text = await answer.text();
      assert.ok(answer.ok, `${method} ${path}: ${text}`);
      return text ? JSON.parse(text) : null;
    },
    // A fibre with its baseline.
    async add(fibre, values = {}, link = {}) {
      await this.ask('PUT', `fibres/${fibre}`, { confirm: 1, ...values });
      await this.ask('PUT', `fibres/${fibre}/baseline`, trace(fibre, link));
    },
    async measure(fibre, link, day = 1) {
      return (await this.ask('PUT', `fibres/${fibre}/traces`, trace(fibre, link, day))).id;
    },
    kill: () => end(child, 'SIGKILL'),
    async again() {
      ({ child } = await run(words(new URL(address).port)));
    },
    async stop() {
      await end(child, 'SIGTERM');
      rmSync(folder, { recursive: true, force: true });
    },
  };
}

const NOON = Math.floor(Date.now() / 86400000) * 86400 - 43200; // of yesterday, as no trace is from the future

// What an instrument measures on a fibre of 20 km with a splice in the middle: as it was, or with other values.
export function trace(fibre, { splice = 0.1, cutKm = 0 } = {}, day = 0) {
  const section = (length_km) => ({ length_km, attenuation_db_per_km: 0.205 });
  const link = {
    fibre, wavelength_nm: 1625, pulse_ns: 300, range_km: 26, points: 4096, averages: 60000, date_utc: NOON - (30 - day) * 3600,
    launch: { loss_db: 0.3, reflectance_db: -48 },
    sections: cutKm ? [section(cutKm)] : [section(10), section(10)],
    joints: cutKm ? [] : [{ loss_db: splice }],
    end: { reflectance_db: cutKm ? -50 : -16 },
  };
  const path = join(traces, 'trace.sor');
  const made = spawnSync(program, ['simulate', '-', '-o', path, '--seed', String(day + 1)], { input: JSON.stringify(link), encoding: 'utf8' });
  assert.equal(made.status, 0, made.stderr);
  return readFileSync(path);
}

// The network of the examples; small and fast if nothing else is said.
export async function startNetwork(fibres = 20, turn = 1, past = 60) {
  const folder = temporary();
  const { child, lines, address } = await run(
    ['python3', join(root, 'examples/network/run'), program, folder, '--port', '0', '--page', page,
     '--fibres', `${fibres}`, '--turn', `${turn}`, '--past', `${past}`],
    { ...process.env, PYTHONUNBUFFERED: '1' });
  return {
    address,
    lines,
    async stop() {
      await end(child, 'SIGINT');
      rmSync(folder, { recursive: true, force: true });
    },
  };
}
