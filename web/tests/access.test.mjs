// SPDX-License-Identifier: Apache-2.0
// The page without a mouse and without eyes: keys alone, what a screen reader is told, and contrast in every state.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { back, drop, example, open, show } from './browser.mjs';
import { faint, focused, tabTo } from './senses.mjs';

let browser;
before(async () => (browser = await open()));
after(() => browser.close());

const said = (page, text) => page.waitForFunction((part) => document.querySelector('#said').textContent.includes(part), text);

test('keys alone open, look, choose, measure, judge and close', async () => {
  const page = await browser.page();
  page.on('filechooser', (chooser) => chooser.setFiles(example('metro-40km.sor')));
  await tabTo(page, 'open-files');
  await page.keyboard.press('Enter');
  await said(page, 'metro-40km.sor: 7 events, length 40.0507 km');
  // Tab comes to everything, in the order in which it stands, and one always sees where one is.
  const order = [];
  for (let i = 0; i < 60; ++i) {
    await page.keyboard.press('Tab');
    const now = await focused(page);
    if (now.what === 'body') continue;
    assert.ok(now.ring && now.seen, JSON.stringify(now));
    order.push(now.what);
  }
  const wanted = ['open-files', 'open-folder', 'unit', 'theme', 'print', 'help', 'fit', 'whole', 'larger', 'smaller', 'previous', 'next', 'close',
    'lines', 'residuals', 'markers', 'save', ...[1, 2, 3, 4, 5, 6, 7].map((number) => `Event ${number}, show on the curve`), 'tab-card'];
  const from = order.indexOf('open-files', order.indexOf('Skip to the event table'));
  assert.deepEqual(order.slice(from, from + wanted.length), wanted);
  // A dialog keeps the focus, and gives it back.
  await tabTo(page, 'help');
  await page.keyboard.press('Enter');
  for (let i = 0; i < 4; ++i) {
    await page.keyboard.press('Tab');
    assert.ok((await focused(page)).inDialog);
  }
  await page.keyboard.press('Escape');
  await page.waitForFunction(() => document.activeElement.id === 'help');
  // Through the table, the focus stays with the chosen event.
  await tabTo(page, 'Event 3, show on the curve');
  await page.keyboard.press('Enter');
  await said(page, 'Event 3, Gain, at 7.4594 km');
  await page.keyboard.press('ArrowRight');
  await said(page, 'Event 4, Loss, at 15.5773 km, loss 0.250 dB');
  assert.equal((await focused(page)).what, 'Event 4, show on the curve');
  await page.keyboard.press('e');
  await page.keyboard.press('m');
  await said(page, 'Markers are set');
  await page.evaluate(() => document.activeElement.blur());
  await tabTo(page, 'Marker B, B');
  const place = () => page.evaluate(() => Number(document.activeElement.getAttribute('aria-valuenow')));
  const before = await place();
  await page.keyboard.press('Shift+ArrowRight');
  await page.waitForTimeout(100);
  assert.ok(Math.abs((await place()) - before - 0.025) < 0.001);
  await page.keyboard.press('Escape');
  await said(page, 'Markers are cleared');
  // From tab to tab by arrows, and into the pane.
  await page.focus('#tab-measure');
  await page.keyboard.press('ArrowRight');
  assert.equal((await focused(page)).what, 'tab-settings');
  await page.keyboard.press('Tab');
  await page.keyboard.type('0.2');
  await page.waitForFunction(() => document.querySelectorAll('tr.event').length < 7);
  await said(page, 'metro-40km.sor: 4 events');
  page.expectQuiet();
  await page.context().close();
});

test('a screen reader is told of table, tabs, markers, curve and verdicts', async () => {
  const page = await browser.page();
  await show(page, example('metro-40km.sor'));
  await page.keyboard.press('m');
  await page.click('#tab-settings');
  await page.fill('[aria-label="Limit Splice, dB"]', '0.2');
  await said(page, ', fail.');
  const session = await page.context().newCDPSession(page);
  const { nodes } = await session.send('Accessibility.getFullAXTree');
  const told = nodes.filter((node) => !node.ignored).map((node) => ({ role: node.role.value, name: node.name?.value ?? '', text: node.value?.value ?? '' }));
  const named = (role) => told.filter((node) => node.role === role).map((node) => node.name);
  for (const role of ['button', 'checkbox', 'combobox', 'slider', 'spinbutton', 'tab', 'tabpanel', 'table', 'group', 'region', 'complementary', 'dialog'])
    for (const name of named(role)) assert.notEqual(name, '', `a ${role} without a name`);
  assert.deepEqual(named('slider'), ['Marker a, begin of the line in front', 'Marker A, A', 'Marker B, B', 'Marker b, end of the line behind']);
  assert.ok(named('table').includes('Events of metro-40km.sor'));
  assert.deepEqual(named('columnheader').slice(0, 8), ['Type', 'No', 'Location km', 'Loss dB', 'Reflectance dB', 'Section dB/km', 'Cumulated dB', 'Note']);
  assert.equal(named('rowheader').filter((name) => /^Event \d, show on the curve$/.test(name)).length, 7);
  assert.ok(named('button').includes('Event 4, Loss, at 15.5773 km'), 'signs on the curve are told');
  assert.ok([...named('cell'), ...named('gridcell')].some((name) => /0\.250.*fail/.test(name)), 'a colour is also a word');
  assert.ok(named('tab').length === 5 && named('tabpanel').includes('Settings'));
  page.expectQuiet();
  await page.context().close();
});

test('texts, lines and rings contrast in every state, in light and dark', async () => {
  const page = await browser.page({ viewport: { width: 1500, height: 950 } });
  await drop(page, example('metro-40km.sor'), back(), ['none.sor', Buffer.alloc(0)], ['text.sor', Buffer.from('text')]);
  await page.waitForFunction(() => document.querySelectorAll('#list li').length === 2 && document.querySelector('#state').textContent === '');
  const check = async (state) => {
    for (const theme of ['light', 'dark']) {
      await page.selectOption('#theme', theme);
      assert.deepEqual(await page.evaluate(faint), [], `${state}, ${theme}`);
    }
  };
  await page.keyboard.press('m');
  await check('markers');
  await page.click('#tab-settings');
  await page.click('text=Usual');
  await page.fill('[aria-label="Limit Splice, dB"]', '0.2');
  await page.fill('[aria-label="Limit of warning Splice, dB"]', '0.12');
  await page.waitForSelector('td.warning');
  await page.click('tr.event[data-index="3"]');
  await check('limits');
  for (const [pane, table] of [['directions', '.merged'], ['compare', '#pane-compare td']]) {
    await page.click(`#tab-${pane}`);
    await page.selectOption(`#pane-${pane} select >> nth=0`, { index: 1 });
    await page.selectOption(`#pane-${pane} select >> nth=1`, { index: 2 });
    await page.waitForSelector(`${table}, #pane-${pane} .none`);
    await check(pane);
  }
  await page.evaluate(() => document.querySelector('#keys').showModal());
  assert.deepEqual(await page.evaluate(faint), [], 'keys');
  page.expectQuiet();
  await page.context().close();
});
