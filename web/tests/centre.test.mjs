// SPDX-License-Identifier: Apache-2.0
// The page of a centre, driven as those who sit in front of it do: with the example's network, to which things happen,
// and with small centres of the tests' own.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { createServer } from 'node:http';
import { after, before, test } from 'node:test';
import { open } from './browser.mjs';
import { startCentre, startNetwork } from './centre.mjs';
import { faint, focused, tabTo } from './senses.mjs';

const LONG = 'Q'.repeat(60);
const MARKUP = '<img src=x onerror=window.ran=1><b>"&amp;';
const line = (west, east, north = 50) => ({ type: 'LineString', coordinates: [[west, north], [(west + east) / 2, north], [east, north]] });
const DEGREES_OF_20_KM = 20 / 71.7; // along the 50th parallel

let browser, network, own, watched;
const centres = [];
async function centre(...words) {
  const made = await startCentre(...words);
  centres.push(made);
  return made;
}

const look = (of, settings = {}, path = '') => browser.page(settings, of.address + path, of.address);
const fibres = (page) => page.$$eval('#fibres tbody tr', (rows) => rows.map((row) => `${row.dataset.key} ${row.cells[0].textContent}`));
const alarms = (page) => page.$$eval('#alarms tbody tr', (rows) => rows.map((row) => [...row.cells].map((cell) => cell.innerText.trim())));
const alarmOf = (page, fibre, text = '') => page.locator('#alarms tbody tr', { hasText: fibre }).filter({ hasText: text });
const count = (page, number) => page.waitForFunction((wanted) => document.querySelectorAll('#fibres tbody tr').length === wanted, number);
const live = (page) => page.waitForFunction(() => document.querySelector('#link').textContent === 'live');

// So that a reload would be seen.
const mark = (page) => page.evaluate(() => (window.stayed = true));
const stayed = async (page) => assert.equal(await page.evaluate(() => window.stayed), true, 'the page was not loaded again');

before(async () => {
  [browser, network, own] = await Promise.all([open(), startNetwork(), centre()]);
  await own.add('north', { title: 'North ring', from: 'Aldorf', to: 'Birken', route: line(8, 8 + DEGREES_OF_20_KM) });
  await own.add('east-2', { from: 'Birken', to: 'Celle', instrument: 'OTDR 7' });
  await own.add('east-10', { from: 'Birken', to: 'Dornau' });
  await own.ask('PUT', 'fibres/new', { title: 'not measured yet' });
  // What comes onto the page, and when, from the beginning on.
  watched = await look(network);
  await watched.evaluate(() => {
    window.came = new Map();
    new MutationObserver(() => {
      for (const { dataset, innerText } of document.querySelectorAll('#alarms tbody tr'))
        if (!window.came.has(dataset.key)) window.came.set(dataset.key, { text: innerText, at: Date.now() });
    }).observe(document.querySelector('#alarms tbody'), { childList: true, subtree: true });
  });
});
after(async () => {
  await Promise.all([browser.close(), network.stop(), ...centres.map((one) => one.stop())]);
});

// What becomes of pages that tests are done with.
async function done(page) {
  page.expectQuiet();
  await page.context().close();
}

test('the worst comes first, news come by themselves, and who acknowledges is kept', async () => {
  const page = await look(own);
  await count(page, 4);
  assert.deepEqual(await fibres(page), ['new no baseline', 'east-2 not measured', 'east-10 not measured', 'north not measured']);
  assert.ok(await page.isVisible('#no-alarm'));
  await live(page);
  await mark(page);
  await own.measure('east-10', { splice: 0.35 });
  await alarmOf(page, 'east-10').waitFor();
  await own.measure('north', { cutKm: 10 });
  await alarmOf(page, 'north', 'fibre broken at 9.99').waitFor();
  await page.waitForFunction(() => document.querySelector('#fibres tbody td').textContent === 'critical');
  assert.deepEqual((await fibres(page)).slice(0, 2), ['north critical', 'east-10 minor']);
  const [first, second] = await alarms(page);
  assert.deepEqual([first[0], first[1], second[0], second[1]], ['critical', 'north', 'minor', 'east-10']);
  assert.match(first[2], /Place: 50\.0000\d\d, 8\.139/);
  assert.match(await page.title(), /^\(2\)/);
  await stayed(page);

  // A press ends on the button where it began, whatever comes meanwhile; the focus and what was marked stay as well.
  await alarmOf(page, 'east-10').locator('[data-act=acknowledge]').hover();
  await page.mouse.down();
  await own.measure('east-2', { splice: 0.7 });
  await page.waitForTimeout(600);
  await page.mouse.up();
  await alarmOf(page, 'east-10', 'by local').waitFor();
  await alarmOf(page, 'east-2', 'loss').waitFor();
  assert.deepEqual((await alarms(page)).map((row) => row[1]), ['north', 'east-2', 'east-10'], 'what nobody takes care of comes first');
  await alarmOf(page, 'north').locator('[data-act=acknowledge]').focus();
  await page.evaluate(() => getSelection().selectAllChildren(document.querySelector('#alarms tr:nth-child(2) td:nth-child(3)')));
  const marked = await page.evaluate(() => getSelection().toString());
  await own.measure('north', { cutKm: 9 }, 2);
  await alarmOf(page, 'north', /broken at 8\.99/).waitFor();
  assert.match((await page.evaluate(() => document.activeElement.getAttribute('aria-label'))), /^Acknowledge north: .* 8\.99/);
  assert.match(marked, /^loss at/);
  assert.equal(await page.evaluate(() => getSelection().toString()), marked, 'what was marked stays so');
  await stayed(page);

  await page.reload();
  await alarmOf(page, 'east-10', 'by local').waitFor();
  // What is mended goes away by itself, also where news never stop coming.
  let busy = true;
  const others = (async () => {
    while (busy) await own.ask('PUT', 'fibres/new', { title: `${Date.now()}` });
  })();
  await own.measure('east-2', {}, 3);
  await alarmOf(page, 'east-2').waitFor({ state: 'detached', timeout: 5000 }).finally(() => (busy = false));
  await others;
  await page.fill('#find', 'OTDR 7');
  await count(page, 1);
  assert.deepEqual(await fibres(page), ['east-2 ok']);
  await page.fill('#find', 'nowhere');
  await page.waitForSelector('#no-fibre:not([hidden])');
  await done(page);
});

// Of the colour of what is wrong, on the map: the middle of all ring and lines.
const redOnMap = (page) => page.evaluate(() => {
  const canvas = document.querySelector('#map');
  const [red, green, blue] = getComputedStyle(canvas).getPropertyValue('--bad').match(/\w\w/g).map((part) => parseInt(part, 16));
  const copy = new OffscreenCanvas(canvas.width, canvas.height).getContext('2d', { willReadFrequently: true });
  copy.drawImage(canvas, 0, 0);
  const { data, width, height } = copy.getImageData(0, 0, canvas.width, canvas.height);
  const found = { x: [], y: [] };
  for (let i = 0; i < data.length; i += 4) {
    if (Math.abs(data[i] - red) + Math.abs(data[i + 1] - green) + Math.abs(data[i + 2] - blue) > 6) continue;
    found.x.push((i / 4) % width);
    found.y.push(Math.floor(i / 4 / width));
  }
  const range = (all) => (all.length ? [Math.min(...all), Math.max(...all)] : null);
  return { x: range(found.x), y: range(found.y), width, height };
});
async function changes(page, act) {
  const image = () => page.$eval('#map', (canvas) => canvas.toDataURL());
  const before = await image();
  await act();
  await page.waitForTimeout(120);
  assert.notEqual(await image(), before, 'the map changes');
  return redOnMap(page);
}

test('the map draws the route and the place of the break; wheel, keys, buttons and a hand move it', async () => {
  const page = await look(own);
  await alarmOf(page, 'north').filter({ hasText: 'Place:' }).waitFor();
  await page.locator('#map').scrollIntoViewIfNeeded();
  await page.waitForTimeout(400);
  const whole = await redOnMap(page);
  assert.ok(whole.x[0] > 0 && whole.x[1] < whole.width, 'all of the route is seen');
  assert.ok(Math.abs((whole.x[0] + whole.x[1]) / 2 - whole.width / 2) < 3 && whole.x[1] - whole.x[0] > 0.8 * whole.width);
  // Across the line there is nothing but the ring, of 9 pixels and its pen.
  assert.ok(Math.abs(whole.y[1] - whole.y[0] - 20) < 4, JSON.stringify(whole));
  const near = await changes(page, () => page.click('#larger'));
  assert.deepEqual(near.x, [0, near.width - 1], 'the route is longer than the map');
  await changes(page, () => page.focus('#map').then(() => page.keyboard.press('-')));
  const left = await changes(page, () => page.keyboard.press('ArrowLeft'));
  assert.ok(left.x[0] - whole.x[0] >= 38, 'the map moves, what it shows goes right');
  assert.deepEqual(await changes(page, () => page.keyboard.press('f')), whole);
  const box = await page.locator('#map').boundingBox();
  const middle = [box.x + box.width / 2, box.y + box.height / 2];
  await page.mouse.move(...middle);
  await changes(page, () => page.mouse.wheel(0, -300));
  await page.mouse.down();
  const down = await changes(page, () => page.mouse.move(middle[0], middle[1] + 50, { steps: 3 }));
  await page.mouse.up();
  assert.ok(Math.abs((down.y[0] + down.y[1]) / 2 - whole.height / 2 - 50) < 4);
  assert.ok(await page.isHidden('#fibre-part'), 'a hand that moves chooses nothing');
  await page.dblclick('#map', { position: { x: 5, y: 5 } });
  await page.waitForTimeout(100);
  assert.deepEqual(await redOnMap(page), whole);
  await page.mouse.click(middle[0] - 60, middle[1] + 1);
  await page.waitForFunction(() => document.querySelector('#fibre-head').textContent === 'north: North ring');
  await done(page);
});

test('pictures of a tile server lie behind the routes, where they belong', async () => {
  const asked = new Set();
  const blue = Buffer.from('<svg xmlns="http://www.w3.org/2000/svg" width="256" height="256"><rect width="256" height="256" fill="#00f"/></svg>');
  const server = createServer((request, answer) => {
    asked.add(request.url);
    answer.writeHead(200, { 'Content-Type': 'image/svg+xml' }).end(blue);
  }).listen(0, '127.0.0.1');
  await once(server, 'listening');
  const tiled = await centre([], ['--tiles', `http://127.0.0.1:${server.address().port}/{z}/{x}/{y}.svg`, '--tiles-credit', 'Surveyors & Sons']);
  await tiled.add('north', { route: line(8, 8 + DEGREES_OF_20_KM) });
  const page = await browser.page({}, tiled.address, 'http://127.0.0.1:');
  await page.locator('#map').scrollIntoViewIfNeeded();
  assert.equal(await page.textContent('#credit'), 'Surveyors & Sons');
  // All of the map is as blue as tiles make it.
  const blueness = async () => {
    const shot = (await page.locator('#map').screenshot()).toString('base64');
    return page.evaluate(async (data) => {
      const bytes = Uint8Array.from(atob(data), (letter) => letter.charCodeAt(0));
      const image = await createImageBitmap(new Blob([bytes]));
      const pen = new OffscreenCanvas(image.width, image.height).getContext('2d');
      pen.drawImage(image, 0, 0);
      const { data: seen } = pen.getImageData(0, 0, image.width, image.height);
      let count = 0;
      for (let i = 0; i < seen.length; i += 4) count += seen[i + 2] - seen[i] > 100 ? 1 : 0;
      return count / (seen.length / 4);
    }, shot);
  };
  for (let i = 0; i < 50 && (await blueness()) < 0.9; ++i) await page.waitForTimeout(100);
  assert.ok((await blueness()) > 0.9);
  // The middle of the route lies at 8.14 degrees east and 50 degrees north; in Web Mercator its tile is known.
  const zooms = [...asked].map((path) => path.match(/^\/(\d+)\/(\d+)\/(\d+)\.svg$/).slice(1).map(Number));
  for (const zoom of new Set(zooms.map(([z]) => z))) {
    const tiles = 2 ** zoom;
    const [x, y] = [((8 + DEGREES_OF_20_KM / 2 + 180) / 360) * tiles, ((1 - Math.log(Math.tan((70 * Math.PI) / 180)) / Math.PI) / 2) * tiles];
    assert.ok(asked.has(`/${zoom}/${Math.floor(x)}/${Math.floor(y)}.svg`), `the tile of the middle at zoom ${zoom}`);
    const near = zooms.filter(([z]) => z === zoom).every(([, a, b]) => Math.abs(a - x) < 8 && Math.abs(b - y) < 6);
    assert.ok(near, 'no tile is fetched that nobody sees');
  }
  // From as far as one can go, and at the pole, where a degree of longitude is nothing, the page still answers.
  await page.focus('#map');
  for (const key of [...Array(30).fill('-'), ...Array(12).fill('ArrowUp'), 'ArrowRight', 'f']) await page.keyboard.press(key);
  await page.waitForTimeout(200);
  assert.ok((await blueness()) > 0.9);
  await done(page);
  server.close();
});

test('one fibre: each event over time, and the curve over its baseline on the page for traces', async () => {
  const page = await look(own);
  await alarmOf(page, 'north').locator('[data-act=choose]').click();
  await page.waitForSelector('.multiple');
  assert.match(page.url(), /#fibre=north$/);
  assert.ok(await page.evaluate(() => document.querySelector('#fibre-head').getBoundingClientRect().top < innerHeight), 'one is led there');
  const seen = await page.$$eval('.multiple', (all) => all.map((one) => one.innerText.replace(/\s+/g, ' ')));
  assert.ok(seen.some((text) => /^end of the fibre 8\.99\d km \(−1[01]\.\d\d\d\)$/.test(text)), seen.join('\n'));
  // After the break nobody knows what a splice behind it is like.
  assert.ok(!seen.some((text) => /at 10\.\d+ km, loss .*\+0\.000\)$/.test(text)), seen.join('\n'));
  const rows = await page.$$eval('#fibre tbody tr', (all) => all.map((row) => row.innerText));
  assert.equal(rows.filter((row) => row.includes('Current over baseline')).length, 2);
  assert.ok(rows.some((row) => /critical\s+fibre broken at 8\.99.*confirmed/s.test(row)), rows.join('\n'));
  const { comparisons: [last] } = await own.ask('GET', 'fibres/north/comparisons?limit=1');
  await page.click('#fibre a >> nth=0');
  await page.waitForSelector('#pane-compare .sentences');
  assert.deepEqual(await page.$$eval('#list .text', (all) => all.map((one) => one.textContent)), ['north, baseline', `north, trace ${last.trace}`]);
  assert.ok((await page.textContent('#pane-compare .sentences')).includes(last.sentences[0]), 'the same words as in the centre');
  // Back leads to the fibre, and once more to all of them.
  await page.goBack();
  await page.waitForSelector('.multiple');
  await page.click('#close');
  assert.ok(await page.isHidden('#fibre-part'));
  assert.equal((await focused(page)).what, 'north');
  await page.goBack();
  await page.waitForSelector('.multiple');
  await done(page);
});

test('users: who has not signed in sees nothing, a reader looks, an operator acknowledges', async () => {
  const guarded = await centre([['eve', 'administrator', 'a long password'], ['ada', 'operator', 'another long one'], ['ray', 'reader', 'the third of them']]);
  await guarded.add('ring', { title: 'secret ring' });
  await guarded.measure('ring', { splice: 0.5 });
  const signIn = async (page, name, password) => {
    await page.fill('#name', name);
    await page.fill('#password', password);
    await page.keyboard.press('Enter');
  };
  const page = await look(guarded);
  await page.waitForSelector('#door:not([hidden])');
  assert.ok(!(await page.content()).includes('secret'));
  assert.equal((await focused(page)).what, 'name');
  await signIn(page, 'ray', 'wrong');
  await page.waitForFunction(() => document.querySelector('#refused').textContent === 'The name or the password is wrong.');
  assert.ok(await page.isHidden('#centre'));
  const box = await page.locator('#login').boundingBox();
  assert.ok(Math.abs(box.x + box.width / 2 - 640) < 2, 'the form stands in the middle');
  for (const colorScheme of ['light', 'dark']) {
    await page.emulateMedia({ colorScheme });
    assert.deepEqual(await page.evaluate(faint), [], colorScheme);
  }
  await signIn(page, 'ray', 'the third of them');
  await alarmOf(page, 'ring', 'no').waitFor();
  assert.equal(await page.textContent('#who'), 'ray (reader)');
  assert.equal(await page.locator('#alarms [data-act=acknowledge]').count(), 0);
  const refused = await page.evaluate(async () => {
    const { alarms: [one] } = await (await fetch('alarms')).json();
    return (await fetch(`alarms/${one.id}/acknowledge`, { method: 'POST', headers: { 'X-Requested-With': 'page' } })).status;
  });
  assert.equal(refused, 403);
  await live(page);
  await mark(page);

  const other = await look(guarded);
  await signIn(other, 'ada', 'another long one');
  await alarmOf(other, 'ring').locator('[data-act=acknowledge]').click();
  await alarmOf(other, 'ring', 'by ada').waitFor();
  await alarmOf(page, 'ring', 'by ada').waitFor();
  await stayed(page);
  await other.click('#logout');
  await other.waitForSelector('#door:not([hidden])');
  await other.reload();
  await other.waitForSelector('#door:not([hidden])');

  // Sessions end with the centre: whoever looks is told to sign in again, and sees what happened meanwhile.
  await guarded.kill();
  await guarded.again();
  await page.waitForSelector('#door:not([hidden])');
  assert.equal(await page.inputValue('#password'), '');
  await guarded.measure('ring', { cutKm: 5 }, 2);
  await signIn(page, 'ray', 'the third of them');
  await alarmOf(page, 'ring', 'broken').waitFor();
  await guarded.measure('ring', { cutKm: 4 }, 3);
  await alarmOf(page, 'ring', /broken at 3\.99/).waitFor();
  await stayed(page);
  await page.context().close(); // browsers complain of each 401 and 403 themselves
  await other.context().close();
});

test('the centre stops and comes back: the page says so, and then shows what is', async () => {
  const frail = await centre();
  await frail.add('ring');
  await frail.measure('ring', { cutKm: 5 });
  const page = await look(frail);
  await alarmOf(page, 'ring', 'broken').waitFor();
  await live(page);
  await mark(page);
  await frail.kill();
  await page.waitForSelector('#lost:not([hidden])');
  assert.match(await page.textContent('#lost'), /^No connection to the centre since \d\d:\d\d:\d\d\. What is shown is as it was then/);
  assert.equal(await page.textContent('#link'), 'not connected');
  await alarmOf(page, 'ring').locator('[data-act=acknowledge]').click();
  await page.waitForFunction(() => document.querySelector('#notice').textContent.startsWith('Not acknowledged: '));
  for (const colorScheme of ['light', 'dark']) {
    await page.emulateMedia({ colorScheme });
    assert.deepEqual(await page.evaluate(faint), [], colorScheme);
  }
  await page.click('#dismiss-notice');
  await frail.again();
  await frail.measure('ring', {}, 2);
  await alarmOf(page, 'ring').waitFor({ state: 'detached' });
  await page.waitForSelector('#lost', { state: 'hidden' });
  await frail.measure('ring', { cutKm: 4 }, 3);
  await alarmOf(page, 'ring', 'broken').waitFor();
  await stayed(page);
  await page.context().close(); // browsers complain of a server that is not there
});

test('names, titles and alarms with markup are texts, and long ones fit a phone', async () => {
  const odd = await centre();
  for (const name of ['odd-1', LONG]) {
    await odd.add(name, { title: MARKUP, from: MARKUP, to: `${LONG}${LONG}`, instrument: MARKUP, every_s: 1, route: line(8, 8.3) });
    await odd.measure(name, { cutKm: 3 });
  }
  const page = await look(odd, { viewport: { width: 390, height: 844 }, hasTouch: true, isMobile: true });
  await alarmOf(page, 'odd-1', 'broken').waitFor();
  const fits = async (what) => assert.ok(await page.evaluate(() => document.documentElement.scrollWidth === 390), `${what} fits`);
  await page.locator('#fibres [data-key=odd-1] button').tap();
  await page.waitForSelector('.multiple');
  await alarmOf(page, MARKUP, `instrument ${MARKUP} sends no trace`).waitFor();
  assert.equal(await page.textContent('#fibre-head'), `odd-1: ${MARKUP}`);
  assert.ok((await page.textContent('.facts')).includes(MARKUP));
  await fits('a fibre');
  const small = await page.$$eval('button', (all) => all.filter((one) => one.checkVisibility()).map((one) => [one.textContent, one.getBoundingClientRect()])
    .filter(([, box]) => box.height < 24 || box.width < 24).map(([text]) => text));
  assert.deepEqual(small, [], 'a finger meets every button');
  await page.locator('#fibre a >> nth=0').tap();
  await page.waitForSelector('#pane-compare .sentences');
  await page.goto(`${odd.address}index.html?fibre=${encodeURIComponent(MARKUP)}&trace=1`);
  await page.waitForFunction((text) => document.querySelector('#notices').textContent.includes(text), MARKUP);
  assert.equal(await page.evaluate(() => window.ran), undefined);
  assert.equal(await page.locator('img, main b').count(), 0);
  await page.context().close();
});

test('keys alone, a screen reader, and contrast in both looks', async () => {
  const page = await look(network);
  await alarmOf(page, 'creeps').waitFor();
  await tabTo(page, 'Skip to the fibres');
  await page.keyboard.press('Enter');
  assert.equal(await page.evaluate(() => document.activeElement.id), 'fibres-part');
  await page.keyboard.press('Shift+Tab');
  assert.match((await focused(page)).what, /^Acknowledge /);
  await page.keyboard.press('Enter');
  await page.waitForFunction(() => [...document.querySelectorAll('#alarms td')].some((cell) => cell.textContent.startsWith('by local')));
  await tabTo(page, 'find');
  await page.keyboard.press('Tab');
  const name = (await focused(page)).what;
  assert.ok((await focused(page)).ring && (await focused(page)).seen);
  await page.keyboard.press('Enter');
  await page.waitForSelector('.multiple');
  assert.equal((await focused(page)).what, 'fibre-head');
  await page.keyboard.press('Tab');
  assert.equal((await focused(page)).what, 'close');
  await page.keyboard.press('Enter');
  assert.equal((await focused(page)).what, name);
  await page.keyboard.press('Enter');
  await page.waitForSelector('.multiple');

  const session = await page.context().newCDPSession(page);
  const { nodes } = await session.send('Accessibility.getFullAXTree');
  const named = (role) => nodes.filter((node) => !node.ignored && node.role.value === role).map((node) => node.name?.value ?? '');
  for (const role of ['button', 'link', 'image', 'region', 'searchbox', 'table', 'columnheader'])
    assert.ok(named(role).length > 0 && !named(role).includes(''), `each ${role} has a name: ${named(role)}`);
  for (const wanted of ['Alarms', 'Fibres', 'Map']) assert.ok(named('region').includes(wanted));
  assert.ok(named('table').includes('Alarms') && named('table').includes('Fibres'));
  assert.deepEqual(named('columnheader').slice(0, 5), ['Severity', 'Fibre', 'What', 'Since', 'Acknowledged']);
  for (const colorScheme of ['light', 'dark']) {
    await page.emulateMedia({ colorScheme });
    assert.deepEqual(await page.evaluate(faint), [], colorScheme);
  }
  await done(page);
});

test('the network of the examples: the page shows each thing that happens within a minute', async (t) => {
  const patterns = { 'creeping splice': /creeps by 0\.0\d+ dB a month/, cut: /fibre broken at 3\.\d+ km/, swapped: /22\.\d+ km/, instrument: /instrument OTDR-\S+ sends no trace/ };
  for (const [what, pattern] of Object.entries(patterns)) {
    await watched.locator('#alarms tbody tr', { hasText: pattern }).first().waitFor({ timeout: 60000 });
    const came = (await watched.evaluate(() => [...window.came.values()])).find(({ text }) => pattern.test(text)); // fails after a reload
    const happened = what === 'creeping splice' ? network.lines[0].at : network.lines.find(({ line }) => line.endsWith(`: ${what}`)).at;
    const seconds = (came.at - happened) / 1000;
    assert.ok(seconds < 60, `${what}: after ${seconds} s`);
    t.diagnostic(`${what}: after ${seconds.toFixed(1)} s`);
  }
  const severities = (await alarms(watched)).map((row) => row[0]);
  assert.ok(severities.includes('critical') && severities.includes('major') && severities.includes('warning'));
  const map = await redOnMap(watched);
  assert.ok(map.x[0] > 5 && map.x[1] < map.width - 5 && map.y[0] > 5 && map.y[1] < map.height - 5, 'the map grows with the network');
  await alarmOf(watched, 'creeps').locator('[data-act=choose]').click();
  const trend = watched.locator('#fibre tr', { hasText: 'creeps' }).filter({ hasText: /0\.0\d+ to 0\.0\d+/ }).filter({ hasNotText: 'confirmed' });
  await trend.waitFor();
  const slope = Number((await trend.innerText()).split('\t')[2]);
  assert.ok(Math.abs(slope - 0.02) < 0.006, `it creeps by ${slope} dB a month`);
  await done(watched);
});
