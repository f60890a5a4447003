// SPDX-License-Identifier: Apache-2.0
// Broken files, the page as one file, the page that the program serves, paper, small screens, and what it costs.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { copyFileSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { basename, join } from 'node:path';
import { after, before, test } from 'node:test';
import { gzipSync } from 'node:zlib';
import { drop, example, listing, open, program, root, saved, show } from './browser.mjs';

let browser;
before(async () => (browser = await open()));
after(() => browser.close());

const built = join(root, 'build/web');

function filesBelow(folder) {
  return readdirSync(folder, { withFileTypes: true }).flatMap((entry) =>
    entry.isDirectory() ? filesBelow(join(folder, entry.name)) : [join(folder, entry.name)]);
}

// Cut anywhere, and with numbers that lie, as the tests of the program have it, and what fuzzing has found.
function brokenFiles() {
  const whole = readFileSync(example('access-2km.sor'));
  const files = filesBelow(join(root, 'tests/fuzz/inputs')).map((path) => [basename(path), readFileSync(path)]);
  for (let size = 0; size < whole.length; size += Math.ceil(whole.length / 60)) files.push([`cut ${size}.sor`, whole.subarray(0, size)]);
  for (let place = 0; place < 900; place += 7) {
    const bytes = Buffer.from(whole);
    bytes.writeUInt32LE([0xffffffff, 0, 0x7fffffff, 0xffff][place % 4], place);
    files.push([`lie at ${place}.sor`, bytes]);
  }
  return files;
}

test('broken files cost a sentence each at most, and the page lives on', async () => {
  const page = await browser.page();
  const files = brokenFiles();
  assert.ok(files.length > 200);
  for (let i = 0; i < files.length; i += 40) {
    await drop(page, ...files.slice(i, i + 40));
    await page.waitForFunction(() => document.querySelector('#state').textContent === '' && !document.querySelector('#list')?.textContent.includes('reading'), null, { timeout: 60000 });
  }
  const sentences = await page.$$eval('#notices p span', (all) => all.map((one) => one.textContent));
  assert.ok(sentences.length > 20 && sentences.length <= files.length);
  for (const sentence of sentences) assert.ok(sentence.length < 300 && !/exception|undefined|NaN|\n/.test(sentence), sentence);
  await drop(page, example('metro-40km.sor'));
  await page.waitForFunction(() => [...document.querySelectorAll('#list .text')].some((one) => one.textContent === 'metro-40km.sor'));
  await page.locator('#list .name', { hasText: 'metro-40km.sor' }).last().click();
  await page.waitForFunction(() => document.querySelectorAll('tr.event').length === 7);
  assert.equal(await saved(page), listing(example('metro-40km.sor')));
  page.expectQuiet();
  await page.context().close();
});

test('an engine that breaks down is replaced, and the traces stay', async () => {
  const page = await browser.page();
  await show(page, example('metro-40km.sor'));
  await page.workers()[0].evaluate(() => setTimeout(() => { throw new Error('broken'); }));
  await page.waitForTimeout(300);
  await drop(page, example('access-2km.sor'));
  await page.waitForFunction(() => document.querySelectorAll('#list li').length === 2);
  await page.click('#tab-settings');
  await page.fill('[aria-label^="Threshold Loss"]', '0.2');
  await page.waitForFunction(() => document.querySelectorAll('tr.event').length < 7 && document.querySelector('#title h2').textContent === 'metro-40km.sor');
  await page.locator('#list .name').nth(1).click();
  await page.waitForFunction(() => document.querySelector('#title h2').textContent === 'access-2km.sor' && document.querySelector('tr.event'));
  await page.context().close();
});

test('of a folder, traces count, in natural order', async () => {
  const folder = mkdtempSync(join(tmpdir(), 'reflyze-page-'));
  mkdirSync(join(folder, 'cable'));
  for (const name of ['f_10.sor', 'f_2.SOR', 'cable/f_1.sor', 'notes.txt']) copyFileSync(example('access-2km.sor'), join(folder, name));
  const page = await browser.page();
  await page.setInputFiles('#folder', folder);
  await page.waitForFunction(() => document.querySelectorAll('#list li').length === 3);
  const names = await page.$$eval('#list .text', (all) => all.map((one) => one.textContent.replace(/^[^/]*\//, '')));
  assert.deepEqual(names, ['cable/f_1.sor', 'f_2.SOR', 'f_10.sor']);
  page.expectQuiet();
  await page.context().close();
  rmSync(folder, { recursive: true });
});

test('one file with traces in it opens on them, without a server', async () => {
  const traces = [{ name: '</script><b>one.sor', sor: readFileSync(example('metro-40km.sor')).toString('base64') }];
  const filled = readFileSync(join(built, 'reflyze.html'), 'utf8').replace('id="reflyze-traces">[]<', () => `id="reflyze-traces">${JSON.stringify(traces).replaceAll('<', '\\u003c')}<`);
  const path = join(root, 'build/web-filled.html');
  writeFileSync(path, filled);
  const page = await browser.page({}, `file://${path}`);
  await page.waitForSelector('table.events');
  assert.equal(await page.textContent('#title h2'), traces[0].name);
  assert.equal((await page.$$('tr.event')).length, 7);
  page.expectQuiet();
  await page.context().close();
});

test('reflyze view serves the page with the traces that it was given', async () => {
  const child = spawn(program, ['view', 'examples/metro-40km.sor', 'examples/access-2km.sor', '--no-browser'], { cwd: root });
  try {
    const address = await new Promise((resolve, reject) => {
      child.stdout.once('data', (data) => resolve(String(data).trim()));
      child.stderr.once('data', (data) => reject(new Error(String(data))));
    });
    const page = await browser.page({}, address, new URL(address).origin);
    await page.waitForFunction(() => document.querySelectorAll('#list li').length === 2 && document.querySelector('table.events'));
    assert.equal(await page.textContent('#title h2'), 'metro-40km.sor');
    const guessed = await page.request.get(`${new URL(address).origin}/traces/00000000000000000000000000000000/list.json`);
    assert.equal(guessed.status(), 404);
    page.expectQuiet();
    await page.context().close();
  } finally {
    child.kill();
  }
});

test('paper has card, curve and the whole table', async () => {
  const page = await browser.page({ colorScheme: 'dark' });
  await show(page, example('metro-40km.sor'));
  const bytes = await page.pdf({ format: 'A4', printBackground: true });
  assert.ok(bytes.length > 10000);
  await page.emulateMedia({ media: 'print' });
  assert.ok(await page.isHidden('.bar'));
  for (const id of ['#plot canvas', '#pane-card dl', 'table.events']) assert.ok(await page.locator(id).first().isVisible(), id);
  const back = await page.evaluate(() => getComputedStyle(document.documentElement).getPropertyValue('--surface'));
  assert.equal(back.trim(), '#ffffff', 'the colours of daylight');
  page.expectQuiet();
  await page.context().close();
});

test('a phone shows all without scrolling sideways, in light and dark', async () => {
  for (const colorScheme of ['light', 'dark']) {
    const page = await browser.page({ colorScheme, viewport: { width: 390, height: 844 } });
    await show(page, example('metro-40km.sor'));
    await page.click('#tab-settings');
    await page.click('text=Usual');
    await page.waitForSelector('#totals .badge');
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 390);
    page.expectQuiet();
    await page.context().close();
  }
});

test('keys alone open, choose and measure; controls have names and texts contrast', async () => {
  const page = await browser.page();
  await show(page, example('metro-40km.sor'));
  await page.keyboard.press('m');
  await page.waitForSelector('.marker:not([hidden])');
  const nameless = await page.$$eval('button, input, select, [role=slider], [role=tab]', (all) =>
    all.filter((one) => one.offsetParent && !(one.getAttribute('aria-label') || one.textContent.trim() || one.closest('label'))).map((one) => one.outerHTML));
  assert.deepEqual(nameless, []);
  for (const theme of ['light', 'dark']) {
    await page.selectOption('#theme', theme);
    assert.deepEqual(await page.evaluate(faint), [], theme);
  }
  const columns = await page.$$eval('table.events thead th', (all) => all.filter((one) => one.scope === 'col').length);
  assert.equal(columns, 8);
  page.expectQuiet();
  await page.context().close();
});

// Texts with less than 4.5 to 1 against what they stand on. Runs in the page.
function faint() {
  const numbers = (colour) => {
    const canvas = document.createElement('canvas').getContext('2d');
    canvas.fillStyle = colour;
    canvas.fillRect(0, 0, 1, 1);
    return [...canvas.getImageData(0, 0, 1, 1).data];
  };
  const light = ([r, g, b]) =>
    [r, g, b].map((c) => c / 255).map((c) => (c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)).reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
  const ground = (element) => {
    for (let one = element; one; one = one.parentElement) {
      const colour = numbers(getComputedStyle(one).backgroundColor);
      if (colour[3] > 200) return colour;
    }
    return [255, 255, 255, 255];
  };
  const found = [];
  for (const one of document.querySelectorAll('body *')) {
    const own = [...one.childNodes].some((node) => node.nodeType === 3 && node.textContent.trim());
    if (!own || !one.offsetParent || one.tagName === 'OPTION') continue;
    const [a, b] = [light(numbers(getComputedStyle(one).color)), light(ground(one))].sort((x, y) => y - x);
    if ((a + 0.05) / (b + 0.05) < 4.5) found.push(`${one.tagName} ${one.className}: ${one.textContent.slice(0, 30)}`);
  }
  return found;
}

test('all of the page takes less than 600 KB compressed', () => {
  const files = readdirSync(built).filter((name) => name !== 'reflyze.html' && statSync(join(built, name)).isFile());
  const sum = files.reduce((bytes, name) => bytes + gzipSync(readFileSync(join(built, name)), { level: 9 }).length, 0);
  assert.ok(sum < 600000, String(sum));
});
