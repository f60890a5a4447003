// SPDX-License-Identifier: Apache-2.0
// One fibre: what it is, what is wrong, and how each event has been.
import { el } from '../dom';
import * as api from './api';
import { multiple, type Series } from './multiples';
import { ago, badge, count, number, time } from './words';

const LEAST_LOSS_DB = 0.1;
const LEAST_REFLECTANCE_DB = 2;
const LEAST_KM = 0.02;
const MS_A_DAY = 86400000;
const MOST_TRACES = 20;

type Quantity = 'loss_db' | 'reflectance_db';
const QUANTITIES: [Quantity, string, number][] =
  [['loss_db', 'loss', LEAST_LOSS_DB], ['reflectance_db', 'reflectance', LEAST_REFLECTANCE_DB]];

const nameOf = (event: api.MeasuredEvent): string => `${event.type} at ${event.km.toFixed(3)} km`;

// Loss and reflectance of each event of the baseline, and the end. `days` are daily means from before the first of the rows.
export function seriesOf(baseline: api.MeasuredEvent[], rows: api.Comparison[], days: Map<number, api.Day[]>): Series[] {
  const inOrder = rows.filter((row) => !row.late).reverse();
  const all: Series[] = [];
  for (const event of baseline) {
    for (const [quantity, word, least] of QUANTITIES) {
      const points = inOrder.flatMap((row) => {
        const seen = row.events.find((one) => one.event === event.event && one[quantity] !== null);
        return seen ? [{ at: row.taken_at, value: seen[quantity]!, bad: seen.fail ?? false }] : [];
      });
      const before = (days.get(event.event) ?? []).flatMap((day) => {
        const at = (day.day + 0.5) * MS_A_DAY;
        return day[quantity] !== null && at < inOrder[0].taken_at ? [{ at, value: day[quantity]!, bad: false }] : [];
      });
      if (points.length + before.length === 0) continue;
      all.push({ name: `${nameOf(event)}, ${word}`, unit: 'dB', base: event[quantity], points: [...before, ...points], least });
    }
  }
  const ends = inOrder.filter((row) => row.end_km > 0)
    .map((row) => ({ at: row.taken_at, value: row.end_km, bad: row.changed }));
  if (ends.length > 0)
    all.push({ name: 'end of the fibre', unit: 'km', base: baseline[baseline.length - 1]?.km ?? null, points: ends, least: LEAST_KM });
  return all;
}

// Daily means where a fibre has more traces than were read. They change once a day.
const known = new Map<string, Promise<Map<number, api.Day[]>>>();
function daysOf(fibre: api.Fibre, events: api.MeasuredEvent[], rows: api.Comparison[]): Promise<Map<number, api.Day[]>> {
  if (rows.length < api.MOST_COMPARISONS) return Promise.resolve(new Map());
  const key = `${fibre.name} ${fibre.baseline} ${Math.floor(api.now() / MS_A_DAY)}`;
  let found = known.get(key);
  if (!found) {
    found = Promise.all(events.map(async ({ event }) => [event, await api.days(fibre.name, event)] as const)).then((all) => new Map(all));
    found.catch(() => known.delete(key));
    known.clear();
    known.set(key, found);
  }
  return found;
}

function facts(fibre: api.Fibre): HTMLElement {
  const said: [string, string][] = [
    ['From', fibre.from], ['To', fibre.to], ['Instrument', fibre.instrument],
    ['Last trace', ago(fibre.last_received_at)], ['Waiting', fibre.waiting > 0 ? count(fibre.waiting, 'trace') : ''],
  ];
  const rows = said.filter(([, value]) => value !== '')
    .map(([name, value]) => el('span', {}, el('span', { class: 'muted', text: `${name} ` }), value));
  return el('p', { class: 'facts' }, badge(fibre.state), ...rows);
}

function table(caption: string, head: string[], rows: HTMLElement[]): HTMLElement | null {
  if (rows.length === 0) return null;
  return el('table', {}, el('caption', { class: 'muted', text: caption }),
    el('thead', {}, el('tr', {}, ...head.map((text) => el('th', { scope: 'col', text })))), el('tbody', {}, ...rows));
}

function alarmTable(alarms: api.Alarm[]): HTMLElement | null {
  const rows = alarms.map((alarm) => {
    const care = alarm.acknowledged_at > 0 ? `${alarm.acknowledged_by}, ${time(alarm.acknowledged_at)}` : 'no';
    const state = alarm.cleared_at > 0 ? `${alarm.state} ${time(alarm.cleared_at)}` : alarm.state;
    return el('tr', {}, el('td', {}, badge(alarm.severity)), el('td', { text: alarm.sentence }),
      ...[time(alarm.raised_at), state, care].map((text) => el('td', { text })));
  });
  return table('Alarms of this fibre, the newest first', ['Severity', 'What', 'Raised (UTC)', 'State', 'Acknowledged'], rows);
}

function trendTable(trends: api.Trend[], baseline: api.MeasuredEvent[]): HTMLElement | null {
  const rows = trends.map((one) => {
    const event = baseline.find((row) => row.event === one.event);
    const cells = [
      event ? nameOf(event) : String(one.event), one.quantity === 'loss_db' ? 'loss' : 'reflectance', number(one.per_month, 4),
      `${number(one.low_per_month, 4)} to ${number(one.high_per_month, 4)}`, String(one.days), one.creeps ? 'creeps' : 'steady',
    ];
    return el('tr', {}, ...cells.map((text) => el('td', { text })));
  });
  return table('Trends', ['Event', 'Quantity', 'dB a month', '95 % interval', 'Days', 'Verdict'], rows);
}

// The latest traces, with those that could not be compared.
function history(fibre: api.Fibre, rows: api.Comparison[], traces: api.TraceRow[]): HTMLElement | null {
  const bad = traces.filter((trace) => trace.state === 'bad')
    .map((trace) => ({ trace: trace.id, taken_at: trace.taken_at, sentences: [`not compared: ${trace.problem}`] }));
  const shown = [...rows.map((row) => ({ ...row, sentences: row.late ? ['late', ...row.sentences] : row.sentences })), ...bad]
    .sort((one, other) => other.taken_at - one.taken_at || other.trace - one.trace).slice(0, MOST_TRACES)
    .map((row) => el('tr', {},
      el('td', { text: time(row.taken_at) }),
      el('td', {}, ...row.sentences.map((text) => el('div', { text }))),
      el('td', {}, el('a', {
        href: api.curvesOf(fibre.name, row.trace), text: 'Current over baseline', 'aria-label': `Current over baseline, ${time(row.taken_at)}`,
      }))));
  return table(shown.length < MOST_TRACES ? 'All traces' : `Latest ${MOST_TRACES} traces`, ['Taken (UTC)', 'What it shows', 'Curve'], shown);
}

function pictures(baseline: api.MeasuredEvent[], rows: api.Comparison[], days: Map<number, api.Day[]>): HTMLElement[] {
  const all = seriesOf(baseline, rows, days);
  const times = all.flatMap((series) => series.points.map((point) => point.at));
  if (times.length === 0) return [];
  const [from, to] = times.reduce(([low, high], at) => [Math.min(low, at), Math.max(high, at)], [Infinity, -Infinity]);
  return [
    el('p', { class: 'muted', text: `${time(from)} to ${time(to)} UTC. The dashed line is the baseline; red is beyond a limit.` }),
    el('div', { class: 'multiples' }, ...all.map((series) => multiple(series, from, to))),
  ];
}

// Shows a fibre as it is now, unless `wanted` says that another was asked for meanwhile.
export async function show(into: HTMLElement, fibre: api.Fibre, wanted: () => boolean): Promise<void> {
  if (fibre.baseline === null) {
    into.replaceChildren(facts(fibre), el('p', { text: 'The fibre has no baseline, so that nothing is compared.' }));
    return;
  }
  const [baseline, rows, trends, alarms, traces] = await Promise.all([
    api.baseline(fibre.name), api.comparisons(fibre.name), api.trends(fibre.name), api.alarmsOf(fibre.name), api.traces(fibre.name)]);
  const days = await daysOf(fibre, baseline.events, rows);
  if (!wanted()) return;
  const link = into.contains(document.activeElement) ? document.activeElement!.getAttribute('href') : null;
  const parts = [alarmTable(alarms), ...pictures(baseline.events, rows, days), trendTable(trends, baseline.events), history(fibre, rows, traces)];
  into.replaceChildren(facts(fibre), ...parts.filter((part): part is HTMLElement => part !== null));
  if (link) [...into.querySelectorAll('a')].find((one) => one.getAttribute('href') === link)?.focus({ preventScroll: true });
}
