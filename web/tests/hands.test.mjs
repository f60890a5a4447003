// SPDX-License-Identifier: Apache-2.0
// What needs a hand that is more than a mouse's: folders that are dropped, fingers, space and drag; many fibres, many events.
import assert from 'node:assert/strict';
import { copyFileSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { drop, dropPaths, example, open, reflyze, root, show, view } from './browser.mjs';

let browser;
before(async () => (browser = await open()));
after(() => browser.close());

function folderOf(names, path = example('access-2km.sor')) {
  const folder = mkdtempSync(join(tmpdir(), 'reflyze-page-'));
  mkdirSync(join(folder, 'cable/deep'), { recursive: true });
  for (const name of names) copyFileSync(path, join(folder, name));
  return folder;
}

test('of a folder that is dropped or opened, traces count, in natural order', async () => {
  const folder = folderOf(['f_10.sor', 'f_2.SOR', 'cable/deep/f_1.sor', 'notes.txt']);
  const page = await browser.page();
  const names = () => page.$$eval('#list .text', (all) => all.map((one) => one.textContent.replace(/^[^/]*\//, '')));
  for (const give of [() => dropPaths(page, folder), () => page.setInputFiles('#folder', folder)]) {
    await give();
    await page.waitForFunction(() => document.querySelectorAll('#list li').length === 3);
    assert.deepEqual(await names(), ['cable/deep/f_1.sor', 'f_2.SOR', 'f_10.sor']);
    await page.click('#close-all');
    await page.waitForFunction(() => document.querySelectorAll('#list li').length === 0);
    assert.ok(await page.isVisible('#welcome'));
  }
  page.expectQuiet();
  await page.context().close();
  rmSync(folder, { recursive: true });
});

test('two fingers zoom and move, one finger and space with the mouse move', async () => {
  const page = await browser.page({ hasTouch: true, viewport: { width: 800, height: 900 } });
  await show(page, example('metro-40km.sor'));
  const box = await page.locator('.u-over').first().boundingBox();
  const full = await view(page);
  const kmAt = (v, x) => v.fromKm + ((x - box.x) / box.width) * (v.toKm - v.fromKm);
  const session = await page.context().newCDPSession(page);
  const touch = (type, ...points) => session.send('Input.dispatchTouchEvent', { type, touchPoints: points.map(([x, y], id) => ({ x, y, id })) });
  const [x, y] = [box.x + box.width / 2, box.y + box.height / 2];
  await touch('touchStart', [x - 50, y], [x + 50, y]);
  for (let i = 1; i <= 5; ++i) await touch('touchMove', [x - 50 - 10 * i, y], [x + 50 + 10 * i, y]);
  await touch('touchEnd');
  const spread = await view(page);
  assert.ok(Math.abs((full.toKm - full.fromKm) / (spread.toKm - spread.fromKm) - 2) < 0.02, JSON.stringify(spread));
  assert.ok(Math.abs(kmAt(spread, x) - kmAt(full, x)) < 0.1, 'what lies between the fingers stays there');
  await touch('touchStart', [x, y]);
  for (let i = 1; i <= 4; ++i) await touch('touchMove', [x + 10 * i, y]);
  await touch('touchEnd');
  const moved = await view(page);
  assert.ok(Math.abs(kmAt(moved, x + 40) - kmAt(spread, x)) < 0.1);
  await page.mouse.move(x, y);
  await page.keyboard.down(' ');
  await page.mouse.down();
  await page.mouse.move(x - 60, y - 20, { steps: 3 });
  await page.mouse.up();
  await page.keyboard.up(' ');
  const dragged = await view(page);
  assert.ok(Math.abs(kmAt(dragged, x - 60) - kmAt(moved, x)) < 0.1 && dragged.fromDb < moved.fromDb);
  assert.ok(Math.abs(dragged.toKm - dragged.fromKm - (moved.toKm - moved.fromKm)) < 1e-4);
  page.expectQuiet();
  await page.context().close();
});

test('a cable of 288 fibres is a list, shown one by one, judged all together', async () => {
  const folder = folderOf(Array.from({ length: 288 }, (_, i) => `fibre_${i + 1}.sor`));
  const page = await browser.page();
  await dropPaths(page, folder);
  await page.waitForSelector('table.events');
  // The page answers while it reads.
  const slowest = await page.evaluate(async () => {
    let most = 0;
    let last = performance.now();
    for (let i = 0; i < 60; ++i) {
      await new Promise(requestAnimationFrame);
      most = Math.max(most, performance.now() - last);
      last = performance.now();
    }
    return most;
  });
  assert.ok(slowest < 400, `${slowest} ms without a picture`);
  await page.waitForFunction(() => document.querySelector('#of-list').textContent === '288 traces' && document.querySelector('#state').textContent === '', null, { timeout: 120000 });
  assert.equal(await page.locator('#list input:checked').count(), 1);
  await page.locator('#list .name').nth(200).click();
  await page.waitForFunction(() => document.querySelector('#title h2').textContent.endsWith('fibre_201.sor'));
  assert.equal(await page.locator('#list input:checked').count(), 1);
  // Of what was put aside, the engine still can say all.
  await page.locator('#list .name').first().click();
  await page.keyboard.press('m');
  await page.waitForFunction(() => /dB/.test(document.querySelector('[data-figure=two-point]')?.textContent ?? ''));
  await page.click('#tab-settings');
  await page.click('text=Usual');
  await page.waitForFunction(() => /^288 traces, 288 (pass|fail|warning|marginal)$/.test(document.querySelector('#of-list').textContent), null, { timeout: 120000 });
  page.expectQuiet();
  await page.context().close();
  rmSync(folder, { recursive: true });
});

test('forty events have a sign each, and none covers another', async () => {
  const joints = Array.from({ length: 39 }, (_, i) => ({ loss_db: 0.08 + 0.002 * i, ...(i % 4 === 0 ? { reflectance_db: -50 } : {}) }));
  const sections = Array.from({ length: 40 }, (_, i) => ({ length_km: 0.35 + 0.9 * ((i * 0.37) % 1), attenuation_db_per_km: 0.19 }));
  const link = JSON.parse(readFileSync(example('links/metro-40km.json'), 'utf8'));
  Object.assign(link, { pulse_ns: 50, range_km: 45, points: 40000, launch_level_db: -16, sections, joints, receiver: { bandwidth_mhz: 10, noise_db: -34 } });
  writeFileSync(join(root, 'build/web-dense.json'), JSON.stringify(link));
  reflyze(root, 'simulate', 'build/web-dense.json', '-o', 'build/web-dense.sor', '--seed', '1');
  for (const width of [1500, 390]) {
    const page = await browser.page({ viewport: { width, height: 900 } });
    await show(page, join(root, 'build/web-dense.sor'));
    await page.waitForFunction(() => document.querySelectorAll('tr.event').length > 36);
    const boxes = await page.$$eval('.sign:not([hidden])', (all) => all.map((one) => {
      const { left, right, top, bottom } = one.getBoundingClientRect();
      return { left, right, top, bottom, dot: one.classList.contains('small') };
    }));
    const signs = boxes.filter((one) => !one.dot);
    assert.ok(signs.length > 36, `${signs.length} of ${boxes.length}`);
    const over = signs.filter((a, i) => signs.some((b, k) => k > i && a.left < b.right - 1 && b.left < a.right - 1 && a.top < b.bottom - 1 && b.top < a.bottom - 1));
    assert.deepEqual(over, []);
    await page.locator('.sign').nth(5).dispatchEvent('click');
    await page.waitForSelector('.sign.chosen:not(.small)');
    page.expectQuiet();
    await page.context().close();
  }
});
