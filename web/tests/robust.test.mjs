// SPDX-License-Identifier: Apache-2.0
// Broken files, the page as one file, the page that the program serves, paper, small screens, and what it costs.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { readdirSync, readFileSync, writeFileSync } from 'node:fs';
import { basename, join } from 'node:path';
import { after, before, test } from 'node:test';
import { compressedSize, drop, example, listing, open, program, reflyze, root, saved, show } from './browser.mjs';

let browser;
before(async () => (browser = await open()));
after(() => browser.close());

const built = join(root, 'build/web');

function filesBelow(folder) {
  return readdirSync(folder, { withFileTypes: true }).flatMap((entry) =>
    entry.isDirectory() ? filesBelow(join(folder, entry.name)) : [join(folder, entry.name)]);
}

// What fuzzing has found, and a small record cut at every byte and with a number that lies at every byte: -1, 0 or the
// maximum of two or four bytes, or one more or less, in turns out of step with the fields. REFLYZE_BYTES_APART, an odd
// number, takes fewer of these bytes for who has little time.
function brokenFiles() {
  const link = JSON.parse(readFileSync(example('links/metro-40km.json'), 'utf8'));
  writeFileSync(join(root, 'build/web-small.json'), JSON.stringify({ ...link, range_km: 42, points: 420, pulse_ns: 1000 }));
  reflyze(root, 'simulate', 'build/web-small.json', '-o', 'build/web-small.sor', '--seed', '1');
  reflyze(root, 'baseline', 'build/web-small.sor', '-o', 'build/web-small.sor', '--level', 'page');
  const whole = readFileSync(join(root, 'build/web-small.sor'));
  const apart = Number(process.env.REFLYZE_BYTES_APART ?? 1);
  const files = filesBelow(join(root, 'tests/fuzz/inputs')).map((path) => [path.slice(root.length + 1).replaceAll('/', ' '), readFileSync(path)]);
  for (let size = 0; size < whole.length; size += apart) files.push([`cut ${size}.sor`, whole.subarray(0, size)]);
  for (let place = 0; place + 4 <= whole.length; place += apart) {
    const low = whole[place];
    const lies = [[255, 255], [255, 255, 255, 255], [0, 0], [0, 0, 0, 0], [255, 127], [255, 255, 255, 127], [(low + 1) & 255], [(low - 1) & 255]];
    const bytes = Buffer.from(whole);
    bytes.set(lies[(5 * place + (place >> 3)) % lies.length], place);
    files.push([`lie at ${place}.sor`, bytes]);
  }
  return files;
}

test('each broken file is shown or costs one clear sentence, and the page lives on', async () => {
  const page = await browser.page();
  const files = brokenFiles();
  assert.ok(files.length > 400, String(files.length));
  for (let i = 0; i < files.length; i += 250) {
    const some = files.slice(i, i + 250);
    await drop(page, ...some);
    await page.waitForFunction(() => document.querySelector('#state').textContent === '' && !document.querySelector('#list')?.textContent.includes('reading'), null, { timeout: 60000 });
    await page.waitForTimeout(50);
    const sentences = await page.$$eval('#notice-list p span', (all) => all.map((one) => one.textContent));
    const listed = new Set(await page.$$eval('#list .text', (all) => all.map((one) => one.textContent.replace(/ \(\d+\)$/, ''))));
    for (const sentence of sentences) assert.ok(sentence.length < 300 && !/exception|undefined|NaN|broken down|\n/.test(sentence), sentence);
    for (const [name] of some) {
      const own = sentences.filter((one) => one.startsWith(`${name}: `)).length;
      assert.ok(own === (listed.has(name) ? 0 : 1), `${name}: ${own} sentences`);
    }
    await page.evaluate(() => ['dismiss', 'close-all'].forEach((id) => document.getElementById(id).click()));
    await page.waitForFunction(() => document.querySelectorAll('#list li, #notice-list p').length === 0);
  }
  await drop(page, example('metro-40km.sor'));
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

test('a report for browsers takes limits, thresholds and reels along', async () => {
  const words = ['--limits', 'examples/limits/carrier.ini', '--launch', 'auto', '--lt', '0.1'];
  const file = join(root, 'build/web-report.html');
  const run = spawnSync(program, ['report', 'examples/metro-40km.sor', 'examples/access-2km.sor', '-o', file, '--page', 'build/web/reflyze.html', '--quiet', ...words], { cwd: root, encoding: 'utf8' });
  assert.equal(run.status, 5, run.stderr);
  const page = await browser.page({}, `file://${file}`);
  const { verdict, verdicts, events } = JSON.parse(reflyze(root, 'analyse', 'examples/metro-40km.sor', ...words, '--format', 'json'));
  await page.waitForFunction(() => document.querySelectorAll('#list .badge').length === 2);
  assert.equal(await page.textContent('#totals .badge'), verdict);
  assert.equal(await page.locator('tr.event').count(), events.length);
  const remarks = await page.$$eval('.remarks[aria-label] li', (all) => all.map((one) => one.textContent));
  assert.deepEqual(remarks.slice(0, verdicts.sentences.length), verdicts.sentences);
  assert.equal(await page.inputValue('[aria-label="Threshold Loss, dB"]'), '0.1');
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

test('paper has card, curve and the whole table, with verdicts, on as few pages as they need', async () => {
  const page = await browser.page({ colorScheme: 'dark' });
  await show(page, example('metro-40km.sor'));
  await page.click('#tab-settings');
  await page.click('text=Usual');
  await page.fill('[aria-label="Limit Splice, dB"]', '0.2');
  await page.waitForSelector('td.fail');
  const path = join(root, 'build/web-paper.pdf');
  await page.pdf({ format: 'A4', printBackground: true, path });
  const pages = spawnSync('pdftotext', ['-layout', path, '-'], { encoding: 'utf8' }).stdout.split('\f').filter((text) => text.trim());
  assert.equal(pages.length, 1);
  for (const part of ['metro-40km.sor', 'Cable', '1550 nm', 'Verdict', '40.0507', 'return loss', 'Reflective', 'event 4: loss 0.250 dB, limit 0.200: fail'])
    assert.ok(pages[0].includes(part), part);
  assert.ok(!/Open files|Measure|Save JSON/.test(pages[0]));
  await page.emulateMedia({ media: 'print' });
  assert.ok(await page.locator('#plot canvas').first().isVisible());
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

test('all of the page for traces takes less than 600 KB compressed', () => assert.ok(compressedSize() < 600000, String(compressedSize())));
