// SPDX-License-Identifier: Apache-2.0
// The page of a centre: alarms, fibres with the worst first, their routes, and one of them in full. It follows what
// the centre tells as it comes.
import { byId, paced } from '../dom';
import * as api from './api';
import { Feed, type News } from './feed';
import * as one from './fibre';
import { alarmRow, byUrgency, fibreRow } from './lists';
import { RouteMap } from './map';
import { live, notice, well } from './notices';
import { fillRows, onRows } from './rows';
import { byBadness, count } from './words';

const MOST_ROWS = 500; // that a list shows; whoever looks for one of ten thousand types a part of its name
const MOST_SINGLE = 20; // fibres that are asked for one by one
const DRAW_MS = 200;
const ASK_MS = 300;
const OLDER_MS = 5000; // "5 s ago" grows old
const LOOK_MS = 45000; // another centre on the same store tells its own news alone
const RETRY_MS = 3000;
const ZOOM = 1.5;

const state = {
  fibres: new Map<string, api.Fibre>(),
  alarms: new Map<number, api.Alarm>(),
  places: new Map<number, api.Place>(),
  chosen: '',
  role: 'nobody',
};

const map = new RouteMap(byId<HTMLCanvasElement>('map'), (name) => choose(name));
const alarmBody = byId('alarms').querySelector('tbody')!;
const fibreBody = byId('fibres').querySelector('tbody')!;

function write(id: string, text: string): void {
  if (byId(id).textContent !== text) byId(id).textContent = text;
  byId(id).hidden = text === '';
}

function drawAlarms(): void {
  const alarms = [...state.alarms.values()].sort(byUrgency);
  const open = alarms.filter((alarm) => alarm.acknowledged_at === 0).length;
  const mayAcknowledge = state.role === 'operator' || state.role === 'administrator';
  fillRows(alarmBody, alarms.slice(0, MOST_ROWS).map((alarm) => alarmRow(alarm, state.places.get(alarm.id), mayAcknowledge)));
  byId('alarms').hidden = alarms.length === 0;
  byId('no-alarm').hidden = alarms.length > 0;
  write('more-alarms', alarms.length > MOST_ROWS ? `${alarms.length - MOST_ROWS} more, which are less urgent` : '');
  const bad = [...state.fibres.values()].filter((fibre) => fibre.alarms > 0).length;
  write('summary', `${count(state.fibres.size, 'fibre')}, ${bad === 0 ? 'none' : bad} with an alarm` +
    (alarms.length > 0 ? `; ${open === 0 ? 'all' : open} of ${count(alarms.length, 'alarm')} ${open === 0 ? 'acknowledged' : 'not acknowledged'}` : ''));
  document.title = `${open > 0 ? `(${open}) ` : ''}reflyze centre`;
}

function drawFibres(): void {
  const all = [...state.fibres.values()].sort(byBadness);
  const wanted = byId<HTMLInputElement>('find').value.trim().toLowerCase();
  const found = all.filter((fibre) =>
    [fibre.name, fibre.title, fibre.from, fibre.to, fibre.instrument].some((text) => text.toLowerCase().includes(wanted)));
  fillRows(fibreBody, found.slice(0, MOST_ROWS).map((fibre) => fibreRow(fibre, fibre.name === state.chosen)));
  write('no-fibre', found.length > 0 ? '' : all.length > 0 ? 'No fibre is called so.' : 'No fibre is watched yet.');
  write('more', found.length > MOST_ROWS ? `${found.length - MOST_ROWS} more; type a part of a name to find them` : '');
}

let mapIsOld = true;
function drawMap(): void {
  if (!mapIsOld) return;
  mapIsOld = false;
  byId('map-part').hidden = ![...state.fibres.values()].some((fibre) => fibre.has_route);
  map.show([...state.fibres.values()], state.chosen);
  map.showPlaces([...state.alarms.values()].flatMap((alarm) => {
    const place = state.places.get(alarm.id);
    return place ? [{ place, state: alarm.severity }] : [];
  }));
}

// Rows must not move away under a finger that is down.
let pressed = false;
const draw = paced(() => {
  if (pressed) return draw();
  if (byId('centre').hidden) return;
  drawAlarms();
  drawFibres();
  drawMap();
}, DRAW_MS);

function drawAll(): void {
  mapIsOld = true;
  draw();
}

async function acknowledge(alarm: api.Alarm): Promise<void> {
  try {
    state.alarms.set(alarm.id, (await api.acknowledge(alarm.id)) as api.Alarm);
    byId('said').textContent = `acknowledged: ${alarm.sentence}`;
  } catch (error) {
    if (error instanceof api.SignIn) return door();
    notice(`Not acknowledged: ${error instanceof Error ? error.message : String(error)}`);
    void look(false);
  }
  draw();
}

const fromAddress = (): string => {
  try {
    return decodeURIComponent(/^#fibre=(.*)$/.exec(location.hash)?.[1] ?? '');
  } catch {
    return '';
  }
};

// Shows a fibre, or none, and leads there whoever asked for it.
function choose(name: string): void {
  const before = state.chosen;
  if (name !== fromAddress()) history.pushState(null, '', name ? `#fibre=${encodeURIComponent(name)}` : location.pathname);
  state.chosen = name;
  drawAll();
  const part = byId('fibre-part');
  void showChosen().then(() => name === state.chosen && part.scrollIntoView({ block: 'start' }));
  if (!part.hidden) {
    byId('fibre-head').focus();
  } else if (before) {
    drawFibres();
    const row = [...fibreBody.children].find((one) => (one as HTMLElement).dataset.key === before);
    (row?.querySelector('button') ?? byId('find')).focus();
  }
}

async function showChosen(): Promise<void> {
  const name = state.chosen;
  const fibre = state.fibres.get(name);
  byId('fibre-part').hidden = !fibre;
  if (!fibre) return;
  const head = fibre.title ? `${fibre.name}: ${fibre.title}` : fibre.name;
  if (byId('fibre-head').textContent !== head) byId('fibre').replaceChildren();
  write('fibre-head', head);
  try {
    await one.show(byId('fibre'), fibre, () => state.chosen === name);
  } catch (error) {
    fail(error);
  }
}

// Of what was asked without anybody's hand. That there is no way to the centre, the feed tells.
function fail(error: unknown): void {
  if (error instanceof api.SignIn) return door();
  if (!(error instanceof TypeError)) notice(error instanceof Error ? error.message : String(error), true);
}

const placesAsked = new Set<string>();
async function findPlaces(): Promise<void> {
  for (const alarm of [...state.alarms.values()].sort(byUrgency)) {
    const key = `${alarm.id} ${alarm.km} ${alarm.sd_km}`;
    if (alarm.km === null || !state.fibres.get(alarm.fibre)?.has_route || placesAsked.has(key)) continue;
    placesAsked.add(key);
    try {
      state.places.set(alarm.id, await api.place(alarm.fibre, alarm.km, alarm.sd_km));
      drawAll();
    } catch {
      continue; // a route that does not reach so far
    }
  }
}

// Asks for everything again, with the routes or without them, since they hardly ever change.
async function look(routes: boolean): Promise<void> {
  try {
    const [fibres, alarms] = await Promise.all([api.fibres(routes), api.alarms()]);
    const before = state.fibres;
    state.fibres = new Map(fibres.map((fibre) => [fibre.name, routes ? fibre : { ...fibre, route: before.get(fibre.name)?.route }]));
    const missing = [...state.fibres.values()].filter((fibre) => fibre.has_route && !fibre.route);
    if (!routes && missing.length > MOST_SINGLE) return look(true);
    for (const { name } of missing) stale.add(name);
    state.alarms = new Map(alarms.filter((alarm) => alarm.state === 'confirmed').map((alarm) => [alarm.id, alarm]));
    if (stale.size > 0) refresh();
    well();
    drawAll();
    void findPlaces();
    await showChosen();
  } catch (error) {
    fail(error);
  }
}

// News say which fibres to ask for again; many at once are asked for together.
const stale = new Set<string>();
let asking = false;
const refresh = paced(() => {
  if (asking) return refresh();
  asking = true;
  const names = [...stale];
  stale.clear();
  void (names.length > MOST_SINGLE ? look(false) : askFor(names)).finally(() => (asking = false));
}, ASK_MS);

async function askFor(names: string[]): Promise<void> {
  for (const name of names) {
    try {
      state.fibres.set(name, await api.fibre(name));
    } catch (error) {
      if (error instanceof api.SignIn) return door();
    }
  }
  drawAll();
  void findPlaces();
  if (names.includes(state.chosen)) await showChosen();
}

const showAgain = paced(() => void showChosen(), ASK_MS);

function takeAlarm(alarm: api.Alarm): void {
  const isNew = alarm.state === 'confirmed' && !state.alarms.has(alarm.id);
  if (alarm.state === 'confirmed') state.alarms.set(alarm.id, alarm);
  else state.alarms.delete(alarm.id);
  if (isNew) byId('said').textContent = `${alarm.severity}: ${alarm.fibre || alarm.instrument}: ${alarm.sentence}`;
  if (alarm.fibre) stale.add(alarm.fibre);
  refresh();
  drawAll();
  void findPlaces();
}

function take(news: News): void {
  if (news.kind === 'alarm') return takeAlarm(news.alarm);
  const fibre = state.fibres.get(news.fibre);
  if (news.kind === 'fibre' && news.gone) {
    state.fibres.delete(news.fibre);
    for (const alarm of state.alarms.values()) if (alarm.fibre === news.fibre) state.alarms.delete(alarm.id);
    drawAll();
  } else if (news.kind === 'comparison' && fibre) {
    // Comes for every trace; all that it changes in the list is known.
    fibre.last_taken_at = Math.max(fibre.last_taken_at, news.takenAt);
    fibre.last_received_at = Math.max(fibre.last_received_at, news.receivedAt);
    if (news.fibre === state.chosen) showAgain();
    draw();
  } else {
    stale.add(news.fibre);
    refresh();
  }
}

const feed = new Feed({ news: take, again: () => void look(true), live });

function door(): void {
  feed.stop();
  state.role = 'nobody';
  state.fibres.clear();
  state.alarms.clear();
  byId('lost').hidden = true;
  byId('logout').hidden = true;
  for (const id of ['who', 'link', 'summary']) byId(id).textContent = '';
  document.title = 'reflyze centre';
  byId('centre').hidden = true;
  byId('door').hidden = false;
  byId<HTMLInputElement>('password').value = '';
  byId('name').focus();
}

async function enter(): Promise<void> {
  const { name, role } = await api.me();
  document.documentElement.dataset.ready = 'yes';
  if (role === 'nobody') return door();
  state.role = role;
  byId('who').textContent = name ? `${name} (${role})` : role;
  byId('logout').hidden = name === '' || name === 'local'; // whom nobody asked for a password
  byId('door').hidden = true;
  byId('centre').hidden = false;
  byId('refused').textContent = '';
  state.chosen = fromAddress();
  const { tiles, credit } = await api.behindMap();
  if (tiles) map.putBehind(tiles);
  write('credit', (tiles && credit) || '');
  feed.start();
  await look(true);
  if (state.chosen && !state.fibres.has(state.chosen)) notice(`There is no fibre ${state.chosen}.`);
}

function tryToEnter(): void {
  enter().catch((error) => {
    if (!(error instanceof api.SignIn)) {
      notice(`The centre does not answer: ${error instanceof Error ? error.message : String(error)}. The page goes on trying.`, true);
      setTimeout(tryToEnter, RETRY_MS);
    } else door();
  });
}

onRows(alarmBody, (key, what) => {
  const alarm = state.alarms.get(Number(key));
  if (alarm && what === 'acknowledge') void acknowledge(alarm);
  else if (alarm) choose(alarm.fibre);
});
onRows(fibreBody, (key) => choose(key));
window.addEventListener('pointerdown', () => (pressed = true));
for (const end of ['pointerup', 'pointercancel', 'blur']) window.addEventListener(end, () => (pressed = false));
window.addEventListener('popstate', () => {
  if (fromAddress() !== state.chosen) choose(fromAddress());
});
document.querySelector('.skip')!.addEventListener('click', (event) => {
  event.preventDefault(); // the address names the fibre
  byId('fibres-part').focus();
});
byId('find').addEventListener('input', draw);
byId('close').addEventListener('click', () => choose(''));
byId('larger').addEventListener('click', () => map.step(ZOOM));
byId('smaller').addEventListener('click', () => map.step(1 / ZOOM));
byId('fit').addEventListener('click', () => map.fit());
byId('logout').addEventListener('click', () => void api.signOut().then(() => location.reload()).catch(fail));
byId('login').addEventListener('submit', (event) => {
  event.preventDefault();
  const [name, password] = ['name', 'password'].map((id) => byId<HTMLInputElement>(id).value);
  api.signIn(name, password).then(enter).catch((error: Error) => {
    byId('refused').textContent = error instanceof api.SignIn ? 'The name or the password is wrong.' :
      error instanceof TypeError ? 'The centre does not answer.' : error.message;
    byId('password').focus();
  });
});
setInterval(draw, OLDER_MS);
setInterval(() => state.role !== 'nobody' && !document.hidden && void look(false), LOOK_MS);
tryToEnter();
