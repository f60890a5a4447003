// SPDX-License-Identifier: Apache-2.0
// One fibre: what it is, what is wrong, and how each event has been.
import { el } from '../dom';
import * as api from './api';
import { multiple, type Series } from './multiples';
import { ago, badge, time } from './words';

const LEAST_LOSS_DB = 0.1;
const LEAST_KM = 0.02;

// One series for each event of the baseline, and one for the end.
export function seriesOf(baseline: api.MeasuredEvent[], rows: api.Comparison[]): Series[] {
  const inOrder = rows.filter((row) => !row.late).reverse();
  const all: Series[] = [];
  for (const event of baseline) {
    const points = inOrder.flatMap((row) => {
      const seen = row.events.find((one) => one.event === event.event && one.loss_db !== null);
      return seen ? [{ at: row.taken_at, value: seen.loss_db!, bad: seen.fail ?? false }] : [];
    });
    if (points.length === 0) continue;
    all.push({
      name: `${event.type} at ${event.km.toFixed(3)} km`, unit: 'dB', base: event.loss_db, points, least: LEAST_LOSS_DB,
    });
  }
  const ends = inOrder.filter((row) => row.end_km > 0)
    .map((row) => ({ at: row.taken_at, value: row.end_km, bad: row.changed }));
  if (ends.length > 0)
    all.push({ name: 'end of the fibre', unit: 'km', base: baseline[baseline.length - 1]?.km ?? null, points: ends, least: LEAST_KM });
  return all;
}

function facts(fibre: api.Fibre): HTMLElement {
  const said: [string, string][] = [
    ['From', fibre.from], ['To', fibre.to], ['Instrument', fibre.instrument],
    ['Last trace', ago(fibre.last_received_at)], ['Waiting', fibre.waiting > 0 ? `${fibre.waiting} traces` : ''],
  ];
  const rows = said.filter(([, value]) => value !== '')
    .map(([name, value]) => el('span', {}, el('span', { class: 'muted', text: `${name} ` }), value));
  return el('p', { class: 'facts' }, badge(fibre.state), ...rows);
}

function trendTable(trends: api.Trend[], baseline: api.MeasuredEvent[]): HTMLElement | null {
  if (trends.length === 0) return null;
  const head = ['Event', 'Quantity', 'dB a month', '95 %', 'Days', ''];
  const rows = trends.map((one) => {
    const event = baseline.find((row) => row.event === one.event);
    const cells = [
      event ? `${event.type} at ${event.km.toFixed(3)} km` : String(one.event),
      one.quantity === 'loss_db' ? 'loss' : 'reflectance', one.per_month.toFixed(4),
      `${one.low_per_month.toFixed(4)} to ${one.high_per_month.toFixed(4)}`, String(one.days), one.creeps ? 'creeps' : '',
    ];
    return el('tr', {}, ...cells.map((text) => el('td', { text })));
  });
  return el('table', {}, el('caption', { class: 'muted', text: 'Trends' }),
    el('thead', {}, el('tr', {}, ...head.map((text) => el('th', { scope: 'col', text })))), el('tbody', {}, ...rows));
}

function history(fibre: api.Fibre, rows: api.Comparison[]): HTMLElement {
  const shown = rows.slice(0, 20).map((row) =>
    el('tr', {},
      el('td', { text: time(row.taken_at) }),
      el('td', {}, ...row.sentences.map((text) => el('div', { text }))),
      el('td', {}, el('a', { href: api.curvesOf(fibre.name, row.trace), text: 'Current over baseline' }))));
  return el('table', {}, el('caption', { class: 'muted', text: 'Latest traces' }),
    el('thead', {}, el('tr', {}, ...['Taken (UTC)', 'What it shows', 'Curve'].map((text) => el('th', { scope: 'col', text })))),
    el('tbody', {}, ...shown));
}

export async function show(into: HTMLElement, fibre: api.Fibre): Promise<void> {
  if (fibre.baseline === null) {
    into.replaceChildren(facts(fibre), el('p', { text: 'The fibre has no baseline, so that nothing is compared.' }));
    return;
  }
  const [baseline, rows, trends] = await Promise.all(
    [api.baseline(fibre.name), api.comparisons(fibre.name), api.trends(fibre.name)]);
  const times = rows.map((row) => row.taken_at);
  const pictures = seriesOf(baseline.events, rows)
    .map((series) => multiple(series, Math.min(...times), Math.max(...times)));
  into.replaceChildren(facts(fibre), el('div', { class: 'multiples' }, ...pictures), history(fibre, rows));
  const table = trendTable(trends, baseline.events);
  if (table) into.append(table);
}
