// SPDX-License-Identifier: Apache-2.0
// The page shows what the program says, and hands can move about in it.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { cells, drop, example, listing, open, saved, show, traces, view } from './browser.mjs';

let browser;
before(async () => (browser = await open()));
after(() => browser.close());

const shown = (value, decimals) => (value === null ? '-' : value.toFixed(decimals).replace(/^-(0\.?0*)$/, '$1').replace('-', '\u2212'));

test('the table of each trace is what the program prints, byte for byte', async () => {
  assert.ok(traces.length >= 5);
  for (const path of traces) {
    const page = await browser.page();
    await show(page, path);
    const expected = listing(path);
    assert.equal(await saved(page), expected, path);
    const { events } = JSON.parse(expected);
    const rows = await cells(page);
    assert.equal(rows.length, events.length, path);
    rows.forEach((row, i) => {
      const event = events[i];
      assert.equal(row[1], String(event.number));
      assert.equal(row[2], shown(event.distance_km, 4));
      assert.equal(row[3], shown(event.loss_db, 3));
      assert.equal(row[4].replace('> ', ''), shown(event.reflectance_db, 2));
      assert.equal(row[6], shown(event.cumulated_db, 3));
    });
    page.expectQuiet();
    await page.context().close();
  }
});

test('wheel, rectangle, middle button and keys move the view as they say', async () => {
  const page = await browser.page();
  await show(page, example('metro-40km.sor'));
  const box = await page.locator('.u-over').first().boundingBox();
  const full = await view(page);
  // The wheel keeps the place under the pointer, and the levels.
  const x = box.x + box.width * 0.25;
  const y = box.y + box.height * 0.5;
  const kmAt = (v, share) => v.fromKm + (v.toKm - v.fromKm) * share;
  await page.mouse.move(x, y);
  await page.mouse.wheel(0, -400);
  const zoomed = await view(page);
  assert.ok(zoomed.toKm - zoomed.fromKm < 0.6 * (full.toKm - full.fromKm));
  assert.ok(Math.abs(kmAt(zoomed, 0.25) - kmAt(full, 0.25)) < (full.toKm - full.fromKm) / box.width);
  assert.equal(zoomed.fromDb, full.fromDb);
  // With Shift it zooms levels alone.
  await page.keyboard.down('Shift');
  await page.mouse.wheel(0, -400);
  await page.keyboard.up('Shift');
  const levels = await view(page);
  assert.ok(levels.toDb - levels.fromDb < 0.6 * (full.toDb - full.fromDb));
  assert.ok(Math.abs(levels.fromKm - zoomed.fromKm) < 1e-6);
  // The middle button moves the place under it along.
  await page.mouse.down({ button: 'middle' });
  await page.mouse.move(x + 60, y, { steps: 3 });
  await page.mouse.up({ button: 'middle' });
  const moved = await view(page);
  const perPixel = (levels.toKm - levels.fromKm) / box.width;
  assert.ok(Math.abs(levels.fromKm - moved.fromKm - 60 * perPixel) < perPixel);
  await page.keyboard.press('f');
  assert.deepEqual(await view(page), full);
  // A rectangle becomes the view.
  await page.mouse.move(box.x + box.width * 0.2, box.y + box.height * 0.3);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width * 0.4, box.y + box.height * 0.6, { steps: 4 });
  await page.mouse.up();
  const drawn = await view(page);
  assert.ok(Math.abs(drawn.fromKm - kmAt(full, 0.2)) < 0.1 && Math.abs(drawn.toKm - kmAt(full, 0.4)) < 0.1);
  assert.ok(Math.abs((drawn.toDb - drawn.fromDb) / (full.toDb - full.fromDb) - 0.3) < 0.02);
  await page.mouse.dblclick(x, y);
  assert.deepEqual(await view(page), full);
  await page.keyboard.press('+');
  assert.ok((await view(page)).toKm - (await view(page)).fromKm < 0.7 * (full.toKm - full.fromKm));
  await page.click('#whole');
  assert.ok((await view(page)).toKm > 50);
  page.expectQuiet();
  await page.context().close();
});

test('row and sign of an event lead to each other, by mouse and by keys', async () => {
  const page = await browser.page();
  await show(page, example('metro-40km.sor'));
  const chosen = () => page.$$eval('.chosen', (all) => all.map((one) => `${one.tagName} ${one.dataset.index}`).sort());
  await page.click('tr.event[data-index="3"]');
  await page.waitForSelector('.sign.chosen');
  assert.deepEqual(await chosen(), ['BUTTON 3', 'TR 3']);
  await page.click('.sign[data-index="1"]');
  await page.waitForSelector('tr.chosen[data-index="1"]');
  assert.deepEqual(await chosen(), ['BUTTON 1', 'TR 1']);
  await page.locator('body').press('ArrowRight');
  await page.waitForSelector('tr.chosen[data-index="2"]');
  // An event that is not seen is brought into view.
  await page.keyboard.press('Escape');
  for (let i = 0; i < 6; ++i) await page.keyboard.press('+');
  await page.keyboard.press('ArrowLeft');
  await page.waitForSelector('.sign.chosen[data-index="6"]:not([hidden])');
  const { fromKm, toKm } = await view(page);
  assert.ok(fromKm < 40.05 && toKm > 40.05);
  page.expectQuiet();
  await page.context().close();
});

test('traces lie over each other, each as far off as one wants', async () => {
  const page = await browser.page();
  await drop(page, example('baseline-40km.sor'), example('current-40km.sor'));
  await page.waitForFunction(() => document.querySelectorAll('#list li').length === 2 && location.hash.includes('x='));
  await page.locator('#list .name').nth(1).click();
  await page.click('#fit');
  const before = await view(page);
  await page.fill('.offsets input >> nth=1', '-20');
  await page.keyboard.press('Tab');
  await page.fill('.offsets input >> nth=0', '5');
  await page.keyboard.press('Tab');
  await page.click('#fit');
  const apart = await view(page);
  assert.ok(Math.abs(before.fromDb - apart.fromDb - 20) < 4, `${before.fromDb} ${apart.fromDb}`);
  assert.ok(Math.abs(apart.toKm - before.toKm - 5) < 0.6, `${before.toKm} ${apart.toKm}`);
  await page.locator('#list input[type=checkbox]').nth(1).uncheck();
  await page.click('#fit');
  assert.ok(Math.abs((await view(page)).fromDb - before.fromDb) < 1);
  page.expectQuiet();
  await page.context().close();
});

test('what the address says is what is shown', async () => {
  const page = await browser.page({}, `${browser.address}#x=5,10&y=-12,-6&u=mi&e=3`);
  await drop(page, example('metro-40km.sor'));
  await page.waitForSelector('tr.chosen[data-index="2"]');
  const now = await view(page);
  assert.deepEqual([now.fromKm, now.toKm, now.fromDb, now.toDb], [5, 10, -12, -6]);
  const [, , place] = (await cells(page))[2];
  const { events } = JSON.parse(listing(example('metro-40km.sor')));
  assert.equal(place, (events[2].distance_km / 1.609344).toFixed(4));
  await page.context().close();
});

test('a link shows the same thresholds, limits, reels, offsets, pair, pane, markers and place', async () => {
  const files = [example('baseline-40km.sor'), example('current-40km.sor'), example('metro-40km.sor')];
  const there = (page) => page.waitForFunction(() => document.querySelectorAll('#list li').length === 3 && document.querySelector('#state').textContent === '' && location.hash.includes('x='));
  const first = await browser.page();
  await drop(first, ...files);
  await there(first);
  await first.locator('#list .name').nth(2).click();
  await first.fill('.offsets input >> nth=0', '0.25');
  await first.fill('.offsets input >> nth=1', '-3');
  await first.selectOption('#unit', 'm');
  await first.click('#tab-settings');
  await first.fill('[aria-label^="Threshold Loss"]', '0.12');
  await first.fill('[aria-label="Limit Splice, dB"]', '0.2');
  await first.fill('[aria-label="Limit of warning Section, dB/km"]', '0.15');
  await first.check('text=Launch >> input');
  await first.fill('[aria-label="Length of the launch reel, km"]', '1.02');
  await first.click('#tab-compare');
  await first.selectOption('#pane-compare select >> nth=0', { index: 1 });
  await first.selectOption('#pane-compare select >> nth=1', { index: 2 });
  await first.waitForSelector('.sentences');
  await first.locator('#list input[type=checkbox]').nth(2).check();
  await first.click('tr.event[data-index="2"]');
  await first.locator('body').press('m');
  await first.click('#tab-compare');
  await first.click('#larger');
  await first.waitForSelector('#totals .badge');
  const seen = (page) => page.evaluate(() => ({
    table: document.querySelector('#events').textContent,
    totals: document.querySelector('#totals').textContent,
    list: [...document.querySelectorAll('#list li')].map((one) => one.textContent + one.querySelector('input').checked),
    fields: [...document.querySelectorAll('#pane-settings input')].map((one) => (one.type === 'checkbox' ? one.checked : one.value)),
    measured: document.querySelector('#pane-measure').textContent,
    compared: document.querySelector('#pane-compare').textContent + [...document.querySelectorAll('#pane-compare select')].map((one) => one.selectedIndex),
    pane: document.querySelector('[aria-selected=true]').id,
    chosen: document.querySelector('tr.chosen')?.dataset.index,
    markers: [...document.querySelectorAll('.marker')].map((one) => one.style.left),
    lower: document.querySelector('#lower').hidden,
  }));
  await first.waitForTimeout(700);
  const wanted = await seen(first);
  assert.ok(wanted.pane === 'tab-compare' && wanted.chosen === '2' && wanted.compared.includes('rose') && wanted.measured.includes('dB/km'));
  const { hash } = new URL(first.url());
  const second = await browser.page({}, browser.address + hash);
  // One file after the other: the place is shown when all are there.
  await drop(second, ...files.slice(0, 2));
  // What is dropped while others are read stands where it is ready first.
  await second.waitForFunction(() => document.querySelectorAll('#list li').length === 2 && document.querySelector('#state').textContent === '');
  await second.waitForTimeout(500);
  assert.equal(new URL(second.url()).hash, hash);
  await drop(second, files[2]);
  await there(second);
  await second.waitForFunction(() => document.querySelector('#pane-compare').textContent.includes('rose') && document.querySelector('[data-figure]'));
  await second.waitForTimeout(700);
  assert.deepEqual(await seen(second), wanted);
  assert.equal(new URL(second.url()).hash, hash);
  // A document of limits is in the address with its text.
  await second.click('#tab-settings');
  await second.setInputFiles('#pane-settings input[type=file]', example('limits/carrier.ini'));
  await second.waitForFunction(() => location.hash.includes('document=carrier.ini'));
  const third = await browser.page({}, second.url());
  await show(third, files[2]);
  assert.equal(await third.textContent('#pane-settings p'), 'Limits of carrier.ini');
  for (const page of [first, second, third]) {
    page.expectQuiet();
    await page.context().close();
  }
});

test('names with markup stay text, and what is no trace costs one sentence', async () => {
  const page = await browser.page();
  const { readFileSync } = await import('node:fs');
  const bytes = readFileSync(example('metro-40km.sor'));
  await drop(page, ['<img src=x onerror=alert(1)>.sor', bytes], ['notes<b>.txt', Buffer.from('no trace')], ['empty.sor', Buffer.alloc(0)],
             ['cut.sor', bytes.subarray(0, 300)]);
  await page.waitForFunction(() => document.querySelectorAll('#notices p').length === 3);
  const sentences = await page.$$eval('#notices p span', (all) => all.map((one) => one.textContent));
  for (const sentence of sentences) assert.ok(sentence.split('\n').length === 1 && sentence.length < 200, sentence);
  assert.equal(await page.textContent('#title h2'), '<img src=x onerror=alert(1)>.sor');
  assert.equal(await page.$$eval('img, b', (all) => all.length), 0);
  page.expectQuiet();
  await page.context().close();
});
