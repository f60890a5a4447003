// SPDX-License-Identifier: Apache-2.0
// Markers, limits, overlays, baselines and directions: the same numbers as the program's.
import assert from 'node:assert/strict';
import { readFileSync, writeFileSync } from 'node:fs';
import { after, before, test } from 'node:test';
import { back, cells, drop, example, open, reflyze, root, show, view } from './browser.mjs';

let browser;
before(async () => (browser = await open()));
after(() => browser.close());

const plain = (text) => text.replaceAll('\u2212', '-').replace(/\s+/g, ' ').trim();
const measured = (...words) => JSON.parse(reflyze(root, 'measure', 'examples/metro-40km.sor', ...words, '--format', 'json'));

test('markers give the numbers of reflyze measure, and arrow keys move them by a point', async () => {
  const page = await browser.page({}, `${browser.address}#x=0,41&y=-40,-5&m=1.2,7.459,7.55,15.5`);
  await drop(page, example('metro-40km.sor'));
  await page.waitForSelector('[data-figure=event]', { state: 'attached' });
  const figures = () => page.$$eval('[data-figure]', (all) => Object.fromEntries(all.map((one) => [one.dataset.figure, one.textContent])));
  const near = (text, value, sd, decimals) => {
    const [shown, deviation] = plain(text).split(' ');
    assert.equal(shown, value === null ? '-' : value.toFixed(decimals));
    if (value !== null) assert.equal(deviation, '±' + (Math.max(1, Math.ceil(sd * 10 ** decimals - 1e-9)) / 10 ** decimals).toFixed(decimals));
  };
  const check = async (a, A, B, b) => {
    const now = await figures();
    const event = measured('--event', [a, A, B, b].join(','));
    const two = measured('--from', A, '--to', B);
    const line = measured('--from', A, '--to', B, '--lsa');
    const orl = measured('--from', A, '--to', B, '--orl');
    near(now.event, event.loss_db, event.loss_sd_db, 3);
    near(now['two-point'], two.loss_db, two.loss_sd_db, 3);
    near(now['lsa-slope'], line.attenuation_db_per_km, line.attenuation_sd_db_per_km, 4);
    near(now.orl, orl.orl_db, orl.orl_sd_db, 2);
    near(now.level, measured('--at', A).level_db, measured('--at', A).level_sd_db, 3);
  };
  await check(1.2, 7.459, 7.55, 15.5);
  const before = (await figures())['two-point'];
  await page.focus('.marker >> nth=2');
  for (let i = 0; i < 20; ++i) await page.keyboard.press('Shift+ArrowRight');
  await page.waitForFunction((old) => document.querySelector('[data-figure=two-point]').textContent !== old, before);
  await page.waitForTimeout(600);
  const places = new URLSearchParams(new URL(page.url()).hash.slice(1)).get('m').split(',').map(Number);
  assert.ok(Math.abs(places[2] - 7.55 - 200 * 0.0025) < 0.003, String(places));
  await check(...places);
  await page.keyboard.press('Escape');
  assert.equal(await page.isHidden('.marker >> nth=0'), true);
  page.expectQuiet();
  await page.context().close();
});

test('thresholds and limits count as one types', async () => {
  const page = await browser.page();
  await show(page, example('metro-40km.sor'));
  await page.click('#tab-settings');
  await page.fill('[aria-label^="Threshold Loss"]', '0.2');
  const fewer = JSON.parse(reflyze(root, 'analyse', 'examples/metro-40km.sor', '--lt', '0.2', '--format', 'json')).events.length;
  assert.ok(fewer < 7);
  await page.waitForFunction((count) => document.querySelectorAll('tr.event').length === count, fewer);
  await page.fill('[aria-label^="Threshold Loss"]', '');
  await page.fill('[aria-label^="Limit Splice"]', '0.12');
  await page.fill('[aria-label="Limit of warning Splice, dB"]', '0.08');
  await page.waitForSelector('td.fail');
  await page.waitForFunction(() => document.querySelectorAll('tr.event').length === 7);
  const verdicts = await page.$$eval('tr.event', (rows) => rows.map((row) => row.cells[3].className.replace('number', '').trim()));
  assert.deepEqual(verdicts, ['', '', 'pass', 'fail', 'fail', 'warning', '']);
  assert.equal(await page.textContent('#totals .badge'), 'fail');
  // A document of limits, and reels.
  await page.setInputFiles('#pane-settings input[type=file]', example('limits/carrier.ini'));
  await page.waitForFunction(() => document.querySelector('#pane-settings p').textContent.includes('carrier.ini'));
  await page.check('text=Launch >> input');
  await page.waitForFunction(() => document.querySelector('tr.event[data-index="1"] .value').textContent === '0.0000');
  const spans = JSON.parse(reflyze(root, 'analyse', 'examples/metro-40km.sor', '--launch', 'auto', '--limits', 'examples/limits/carrier.ini', '--format', 'json'));
  assert.deepEqual((await cells(page)).map((row) => plain(row[2])), spans.events.map((event) => event.distance_km.toFixed(4)));
  page.expectQuiet();
  await page.context().close();
});

test('a trace against its baseline, with the sentences of compare and the difference', async () => {
  const page = await browser.page();
  await drop(page, example('baseline-40km.sor'), example('current-40km.sor'));
  await page.waitForFunction(() => document.querySelectorAll('#list li').length === 2);
  await page.click('#tab-compare');
  await page.selectOption('#pane-compare select >> nth=0', { label: 'baseline-40km.sor' });
  await page.selectOption('#pane-compare select >> nth=1', { label: 'current-40km.sor' });
  await page.waitForSelector('.sentences');
  reflyze(root, 'baseline', 'examples/baseline-40km.sor', '-o', 'build/web-baseline.sor', '--level', 'page');
  const said = reflyze(root, 'compare', 'build/web-baseline.sor', 'examples/current-40km.sor', '--format', 'json');
  assert.deepEqual(await page.$$eval('.sentences li', (all) => all.map((one) => one.textContent)), JSON.parse(said).sentences);
  assert.ok(await page.isVisible('#lower canvas'));
  page.expectQuiet();
  await page.context().close();
});

const choosePair = async (page, pane, one, other) => {
  await page.click(`#tab-${pane}`);
  await page.selectOption(`#pane-${pane} select >> nth=0`, { label: one });
  await page.selectOption(`#pane-${pane} select >> nth=1`, { label: other });
};

test('two directions, B mirrored, with the table of merge', async () => {
  const page = await browser.page();
  await drop(page, example('metro-40km.sor'), back());
  await page.waitForFunction(() => document.querySelectorAll('#list li').length === 2);
  await choosePair(page, 'directions', 'metro-40km.sor', 'web-back.sor');
  await page.waitForSelector('.merged');
  const { events } = JSON.parse(reflyze(root, 'merge', 'examples/metro-40km.sor', 'build/web-back.sor', '-o', 'build/web-a.sor', 'build/web-b.sor', '--format', 'json'));
  const shown = await page.$$eval('.merged tbody tr', (rows) => rows.map((row) => [row.cells[0].textContent, row.cells[3].textContent]));
  assert.deepEqual(shown.map((row) => row.map(plain)), events.map((event) => [event.distance_km.toFixed(4), event.loss_db === null ? '-' : event.loss_db.toFixed(3)]));
  // The launch of B lies on the end of A: fitted, both take no more room than one.
  const { fromKm, toKm } = await view(page);
  assert.ok(fromKm > -4 && toKm < 44, `${fromKm} ${toKm}`);
  page.expectQuiet();
  await page.context().close();
});

// A link between two reels, from both ends; from B the reels change places.
function linkBetweenReels() {
  const link = JSON.parse(readFileSync(example('links/metro-40km.json'), 'utf8'));
  const glass = (length_km) => ({ length_km, attenuation_db_per_km: 0.19 });
  const sections = [glass(1.0), glass(7.4), glass(5.1), glass(6.2), glass(0.6)];
  const joints = [{ loss_db: 0.3, reflectance_db: -45 }, { loss_db: 0.15 }, { loss_db: 0.06 }, { loss_db: 0.4, reflectance_db: -38 }];
  const write = (name, turned) => {
    const turn = (list) => (turned ? [...list].reverse() : list);
    writeFileSync(`${root}/build/${name}.json`, JSON.stringify({ ...link, range_km: 30, points: 24000, sections: turn(sections), joints: turn(joints) }));
    reflyze(root, 'simulate', `build/${name}.json`, '-o', `build/${name}.sor`, '--seed', turned ? '2' : '1');
    return `${root}/build/${name}.sor`;
  };
  return [write('web-reels-a', false), write('web-reels-b', true)];
}

test('two directions between reels, judged, and again as settings change', async () => {
  const page = await browser.page();
  await drop(page, ...linkBetweenReels());
  await page.waitForFunction(() => document.querySelectorAll('#list li').length === 2);
  await choosePair(page, 'directions', 'web-reels-a.sor', 'web-reels-b.sor');
  await page.waitForSelector('.merged');
  await page.click('#tab-settings');
  await page.setInputFiles('#pane-settings input[type=file]', example('limits/carrier.ini'));
  await page.check('text=Launch >> input');
  await page.check('text=Receive >> input');
  await page.click('#tab-directions');
  await page.waitForSelector('#pane-directions .totals >> text=Mean loss');
  const wanted = JSON.parse(reflyze(root, 'merge', 'build/web-reels-a.sor', 'build/web-reels-b.sor', '-o', 'build/web-a.sor', 'build/web-b.sor',
    '--launch', 'auto', '--receive', 'auto', '--limits', 'examples/limits/carrier.ini', '--format', 'json'));
  assert.equal(wanted.events.length, 4);
  const number = (value, decimals) => (value === null ? '-' : value.toFixed(decimals));
  const rows = () => page.$$eval('.merged tbody tr', (all) => all.map((row) => [...row.cells].map((cell) => [cell.textContent, (/fail|warning|marginal|pass/.exec(cell.className) ?? [''])[0]])));
  await page.waitForFunction((count) => document.querySelectorAll('.merged tbody tr').length === count, wanted.events.length);
  const shown = (await rows()).map((row) => row.map(([text, verdict]) => [plain(text).split(' ')[0], verdict]));
  wanted.events.forEach((event, i) => {
    assert.equal(shown[i][0][0], event.distance_km.toFixed(4));
    assert.deepEqual(shown[i][3], [number(event.loss_db, 3), event.verdict.loss ?? '']);
    assert.equal(shown[i][4][1], event.verdict.reflectance ?? '');
    assert.deepEqual(shown[i][5], [number(event.attenuation_db_per_km, 3), event.verdict.attenuation ?? '']);
  });
  const totals = plain(await page.textContent('#pane-directions .totals'));
  for (const part of [`Length${wanted.length_km.toFixed(4)}`, `Mean loss${wanted.loss_db.toFixed(3)}`, `Return loss${wanted.orl_db.toFixed(2)}`, `Verdict${wanted.verdict}`])
    assert.ok(totals.includes(part), `${totals}: ${part}`);
  assert.deepEqual(await page.$$eval('#pane-directions .remarks li', (all) => all.map((one) => one.textContent)), [...wanted.verdicts.sentences]);
  page.expectQuiet();
  await page.context().close();
});
