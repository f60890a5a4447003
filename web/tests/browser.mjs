// SPDX-License-Identifier: Apache-2.0
// A browser with the built page in it. Whatever it complains of, and whatever it asks of anybody but its own server,
// fails the test.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { existsSync, readdirSync, readFileSync, statSync } from 'node:fs';
import { createServer } from 'node:http';
import { basename, dirname, extname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { gzipSync } from 'node:zlib';
import { chromium } from 'playwright-core';

export const root = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
const built = join(root, 'build/web');
export const program = process.env.REFLYZE ?? join(root, 'build/reflyze');
const TYPES = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.wasm': 'application/wasm' };

// The examples, and traces from instruments where there are any beside the checkout.
export const traces = [join(root, 'examples'), process.env.REFLYZE_TRACES ?? join(root, '../shared/traces')]
  .filter((folder) => existsSync(folder))
  .flatMap((folder) => readdirSync(folder).filter((name) => name.endsWith('.sor')).sort().map((name) => join(folder, name)));

// Of what the page for traces loads, bytes. That of a centre is a page of its own.
export const compressedSize = () =>
  readdirSync(built).filter((name) => name !== 'reflyze.html' && !name.startsWith('centre.') && statSync(join(built, name)).isFile()).reduce((bytes, name) => bytes + gzipSync(readFileSync(join(built, name)), { level: 9 }).length, 0);

const SAID = [0, 1, 5]; // all is well, something has changed, a limit is exceeded: each with a listing

export function reflyze(folder, ...words) {
  const run = spawnSync(program, words, { cwd: folder, encoding: 'utf8' });
  assert.ok(SAID.includes(run.status), run.stderr);
  return run.stdout;
}
export const listing = (path) => reflyze(dirname(path), 'analyse', basename(path), '--format', 'json');
// The metro link from its other end.
export function back() {
  const path = join(root, 'build/web-back.sor');
  reflyze(root, 'simulate', 'examples/links/metro-40km-back.json', '-o', path, '--seed', '6');
  return path;
}
export const example = (name) => join(root, 'examples', name);

async function serve() {
  const server = createServer((request, answer) => {
    const path = join(built, request.url === '/' ? 'index.html' : request.url.replace(/[?#].*/, ''));
    if (!existsSync(path)) {
      answer.writeHead(404).end();
      return;
    }
    answer.writeHead(200, { 'content-type': TYPES[extname(path)] ?? 'application/octet-stream' });
    answer.end(readFileSync(path));
  });
  await new Promise((ready) => server.listen(0, '127.0.0.1', ready));
  return { server, address: `http://127.0.0.1:${server.address().port}/` };
}

export async function open() {
  const { server, address } = await serve();
  const browser = await chromium.launch({
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    args: ['--no-sandbox', '--disable-gpu', '--disable-background-networking', '--disable-component-update',
           '--disable-sync', '--no-first-run'],
  });
  return {
    address,
    async close() {
      await browser.close();
      server.close();
    },
    // A fresh page. `settings` are those of a browser's context, such as a viewport or a colour scheme.
    async page(settings = {}, url = address, own = address) {
      const context = await browser.newContext({ viewport: { width: 1280, height: 860 }, acceptDownloads: true, ...settings });
      const page = await context.newPage();
      const complaints = [];
      page.on('console', (message) => ['error', 'warning'].includes(message.type()) && complaints.push(message.text()));
      page.on('pageerror', (error) => complaints.push(String(error)));
      page.on('request', (request) => {
        if (!/^(data|blob):/.test(request.url()) && !request.url().startsWith(own) && !request.url().startsWith('file:'))
          complaints.push(`asks for ${request.url()}`);
      });
      page.expectQuiet = () => assert.deepEqual(complaints, []);
      await page.goto(url);
      await page.waitForSelector('html[data-ready=yes]');
      return page;
    },
  };
}

// Drops files on the page: paths, or [name, bytes].
export async function drop(page, ...files) {
  const given = files.map((file) => (typeof file === 'string' ? [basename(file), readFileSync(file)] : file));
  await page.evaluate((list) => {
    const transfer = new DataTransfer();
    for (const [name, base64] of list)
      transfer.items.add(new File([Uint8Array.from(atob(base64), (letter) => letter.charCodeAt(0))], name));
    document.dispatchEvent(new DragEvent('drop', { dataTransfer: transfer, bubbles: true, cancelable: true }));
  }, given.map(([name, bytes]) => [name, Buffer.from(bytes).toString('base64')]));
}

// Drops files or folders as they lie on the disk, which the browser then reads itself.
export async function dropPaths(page, ...paths) {
  const session = await page.context().newCDPSession(page);
  const data = { items: [], files: paths, dragOperationsMask: 1 };
  for (const type of ['dragEnter', 'dragOver', 'drop']) await session.send('Input.dispatchDragEvent', { type, x: 300, y: 300, data });
  await session.detach();
}

// Drops one trace and waits for its table.
export async function show(page, path) {
  await drop(page, path);
  await page.waitForFunction((name) => document.querySelector('#title h2')?.textContent === name && document.querySelector('table.events'), basename(path));
  await page.waitForFunction(() => location.hash.includes('x='));
}

// The listing that the page saves.
export async function saved(page) {
  const [download] = await Promise.all([page.waitForEvent('download'), page.click('#save')]);
  return readFileSync(await download.path(), 'utf8');
}

// The view: km and dB, as the address has them.
export async function view(page) {
  await page.waitForTimeout(250); // the address follows a while after the hand
  const words = new URLSearchParams(new URL(page.url()).hash.slice(1));
  const [fromKm, toKm] = words.get('x').split(',').map(Number);
  const [fromDb, toDb] = words.get('y').split(',').map(Number);
  return { fromKm, toKm, fromDb, toDb };
}

// Texts of the cells of the table's event rows.
export const cells = (page) => page.$$eval('table.events tr.event', (rows) =>
  rows.map((row) => [...row.cells].map((cell) => cell.querySelector('.value')?.textContent ?? cell.textContent.trim())));
