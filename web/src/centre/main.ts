// SPDX-License-Identifier: Apache-2.0
// The page of a centre: alarms, fibres with the worst first, their routes, and one of them in full. It follows what
// the centre tells as it comes.
import { byId, calm, el } from '../dom';
import * as api from './api';
import * as one from './fibre';
import { RouteMap } from './map';
import { ago, badge, byBadness } from './words';

const MOST_ROWS = 500; // that a list shows; whoever looks for one of ten thousand types a part of its name
const CALM_MS = 300;

const state = {
  fibres: new Map<string, api.Fibre>(),
  alarms: new Map<number, api.Alarm>(),
  places: new Map<number, api.Place>(),
  chosen: '',
  role: 'reader',
};

const map = new RouteMap(byId<HTMLCanvasElement>('map'), (name) => choose(name));

function say(text: string): void {
  byId('said').textContent = text;
}

function openAlarms(): api.Alarm[] {
  const order = ['critical', 'major', 'minor', 'warning'];
  return [...state.alarms.values()].filter((alarm) => alarm.state === 'confirmed')
    .sort((a, b) => order.indexOf(a.severity) - order.indexOf(b.severity) || b.confirmed_at - a.confirmed_at);
}

function alarmRow(alarm: api.Alarm): HTMLElement {
  const place = state.places.get(alarm.id);
  const near = place ? ` Place: ${place.latitude.toFixed(6)}, ${place.longitude.toFixed(6)}, within ` +
    `${(2 * place.sd_m).toFixed(0)} m${place.near ? `, near ${place.near}` : ''}` : '';
  const acknowledged = alarm.acknowledged_at > 0 ? el('td', { text: alarm.acknowledged_by }) :
    el('td', {}, state.role === 'reader' ? 'no' :
      el('button', { type: 'button', text: 'Acknowledge', click: () => void acknowledge(alarm) }));
  const name = alarm.fibre || alarm.instrument;
  return el('tr', { 'data-alarm': alarm.id },
    el('td', {}, badge(alarm.severity)),
    el('td', {}, alarm.fibre ? el('button', { type: 'button', class: 'quiet', text: name, click: () => choose(name) }) : name),
    el('td', {}, alarm.sentence, near ? el('div', { class: 'muted', text: near.trim() }) : null),
    el('td', { text: ago(alarm.confirmed_at) }),
    acknowledged);
}

async function acknowledge(alarm: api.Alarm): Promise<void> {
  try {
    state.alarms.set(alarm.id, (await api.acknowledge(alarm.id)) as api.Alarm);
    say(`acknowledged: ${alarm.sentence}`);
  } catch (error) {
    fail(error);
  }
  draw();
}

function fibreRow(fibre: api.Fibre): HTMLElement {
  return el('tr', { 'aria-selected': fibre.name === state.chosen ? 'true' : 'false' },
    el('td', {}, badge(fibre.state)),
    el('td', {},
      el('button', { type: 'button', class: 'quiet', text: fibre.name, click: () => choose(fibre.name) }),
      fibre.title ? el('div', { class: 'muted', text: fibre.title }) : null),
    el('td', { text: fibre.from }), el('td', { text: fibre.to }), el('td', { text: ago(fibre.last_received_at) }));
}

const draw = calm(() => {
  const alarms = openAlarms();
  const all = [...state.fibres.values()].sort(byBadness);
  const bad = all.filter((fibre) => fibre.alarms > 0).length;
  byId('summary').textContent = `${all.length} fibres, ${bad === 0 ? 'none' : bad} with an alarm`;
  byId('alarms').querySelector('tbody')!.replaceChildren(...alarms.slice(0, MOST_ROWS).map(alarmRow));
  byId('alarms').hidden = alarms.length === 0;
  byId('no-alarm').hidden = alarms.length > 0;
  const wanted = byId<HTMLInputElement>('find').value.toLowerCase();
  const found = all.filter((fibre) =>
    [fibre.name, fibre.title, fibre.from, fibre.to].some((text) => text.toLowerCase().includes(wanted)));
  byId('fibres').querySelector('tbody')!.replaceChildren(...found.slice(0, MOST_ROWS).map(fibreRow));
  byId('more').hidden = found.length <= MOST_ROWS;
  byId('more').textContent = `${found.length - MOST_ROWS} more; type a part of a name to find them`;
  map.show(all, state.chosen);
  byId('map-part').hidden = !map.hasRoutes();
  map.showPlaces(alarms.flatMap((alarm) => {
    const place = state.places.get(alarm.id);
    return place ? [{ place, state: alarm.severity }] : [];
  }));
}, 50);

function choose(name: string): void {
  state.chosen = name;
  history.replaceState(null, '', name ? `#${encodeURIComponent(name)}` : location.pathname);
  void showChosen();
  draw();
}

async function showChosen(): Promise<void> {
  const fibre = state.fibres.get(state.chosen);
  byId('fibre-part').hidden = !fibre;
  if (!fibre) return;
  byId('fibre-head').textContent = fibre.title ? `${fibre.name}: ${fibre.title}` : fibre.name;
  try {
    await one.show(byId('fibre'), fibre);
  } catch (error) {
    fail(error);
  }
}

function fail(error: unknown): void {
  if (error instanceof api.SignIn) return door();
  byId('link').textContent = error instanceof Error ? error.message : String(error);
}

async function findPlaces(): Promise<void> {
  for (const alarm of openAlarms()) {
    const fibre = state.fibres.get(alarm.fibre);
    if (alarm.km === null || !fibre?.has_route || state.places.has(alarm.id)) continue;
    try {
      state.places.set(alarm.id, await api.place(alarm.fibre, alarm.km, alarm.sd_km));
    } catch {
      continue; // a route that does not reach so far
    }
  }
  draw();
}

async function readAll(): Promise<void> {
  const [fibres, alarms] = await Promise.all([api.fibres(), api.alarms()]);
  state.fibres = new Map(fibres.map((fibre) => [fibre.name, fibre]));
  state.alarms = new Map(alarms.map((alarm) => [alarm.id, alarm]));
  draw();
  void findPlaces();
}

// News say which fibres to ask for again; many at once are asked for together.
const stale = new Set<string>();
const refresh = calm(() => {
  const names = [...stale];
  stale.clear();
  void (async () => {
    try {
      if (names.length > 20) await readAll();
      else for (const name of names) state.fibres.set(name, await api.fibre(name));
      if (names.includes(state.chosen)) await showChosen();
    } catch (error) {
      fail(error);
    }
    draw();
  })();
}, CALM_MS);

function follow(): void {
  const news = new EventSource('news');
  news.onopen = () => (byId('link').textContent = 'live');
  news.onerror = () => (byId('link').textContent = 'no connection; trying again');
  news.addEventListener('missed', () => void readAll().catch(fail));
  for (const kind of ['comparison', 'alarm', 'fibre']) {
    news.addEventListener(kind, (event) => {
      const data = JSON.parse((event as MessageEvent<string>).data) as { fibre: string; gone?: boolean } & api.Alarm;
      if (kind === 'alarm') {
        state.alarms.set(data.id, data);
        if (data.state === 'confirmed') say(`${data.severity}: ${data.fibre || data.instrument}: ${data.sentence}`);
        state.places.delete(data.id);
        void findPlaces();
      }
      if (data.gone) state.fibres.delete(data.fibre);
      else if (data.fibre) stale.add(data.fibre);
      refresh();
    });
  }
}

function door(): void {
  byId('centre').hidden = true;
  byId('door').hidden = false;
  byId('name').focus();
}

async function enter(): Promise<void> {
  const { name, role } = await api.me();
  if (role === 'nobody') return door();
  state.role = role;
  byId('who').textContent = name ? `${name} (${role})` : role;
  byId('logout').hidden = name === '' || name === 'local'; // whom nobody asked for a password
  byId('door').hidden = true;
  byId('centre').hidden = false;
  await readAll();
  if (location.hash) choose(decodeURIComponent(location.hash.slice(1)));
  follow();
}

byId('find').addEventListener('input', draw);
byId('close').addEventListener('click', () => choose(''));
byId('logout').addEventListener('click', () => void api.signOut().then(() => location.reload()));
byId('login').addEventListener('submit', (event) => {
  event.preventDefault();
  const [name, password] = ['name', 'password'].map((id) => byId<HTMLInputElement>(id).value);
  api.signIn(name, password).then(enter).catch((error: Error) => {
    byId('refused').textContent = error instanceof api.SignIn ? 'The name or the password is wrong.' : error.message;
  });
});
setInterval(draw, 30000); // "2 min ago" grows old
enter().catch(fail);
