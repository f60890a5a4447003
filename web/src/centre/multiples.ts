// SPDX-License-Identifier: Apache-2.0
// Small pictures of one quantity over time, all on the same scale of time.
import { el } from '../dom';
import { number, time } from './words';

export interface Series {
  name: string;
  unit: string;
  base: number | null; // of the baseline
  points: { at: number; value: number; bad: boolean }[];
  least: number; // range that is shown at least, so that noise does not look like a change
}

const WIDTH = 200;
const HEIGHT = 50;
const SVG = 'http://www.w3.org/2000/svg';

function shape(tag: string, values: Record<string, string | number>): SVGElement {
  const element = document.createElementNS(SVG, tag);
  for (const [name, value] of Object.entries(values)) element.setAttribute(name, String(value));
  return element;
}

export function multiple(series: Series, from: number, to: number): HTMLElement {
  const values = series.points.map((point) => point.value).concat(series.base ?? []);
  const middle = (Math.min(...values) + Math.max(...values)) / 2;
  const half = Math.max(series.least, Math.max(...values) - Math.min(...values)) * 0.6;
  const x = (at: number): number => (to > from ? (WIDTH * (at - from)) / (to - from) : WIDTH);
  const y = (value: number): number => HEIGHT * (0.5 - (value - middle) / (2 * half));
  const svg = shape('svg', { viewBox: `0 0 ${WIDTH} ${HEIGHT}`, preserveAspectRatio: 'none', 'aria-hidden': 'true' });
  if (series.base !== null)
    svg.append(shape('line', { class: 'base', x1: 0, x2: WIDTH, y1: y(series.base), y2: y(series.base) }));
  const line = series.points.map((point) => `${x(point.at).toFixed(1)},${y(point.value).toFixed(1)}`).join(' ');
  svg.append(shape('polyline', { class: 'curve', points: line }));
  // A line of one point would not be seen.
  for (const { at, value, bad } of series.points)
    if (bad || series.points.length === 1)
      svg.append(shape('rect', { class: bad ? 'bad' : 'lone', x: x(at) - 1, y: y(value) - 2, width: 2, height: 4 }));
  const last = series.points[series.points.length - 1] as Series['points'][number] | undefined;
  const change = last && series.base !== null ? last.value - series.base : null;
  const said = last ? `${number(last.value, 3)} ${series.unit}` : 'nothing measured';
  const by = change === null ? '' : ` (${change < 0 ? '' : '+'}${number(change, 3)})`;
  // Behind a break nothing is measured: an old number is not shown as if it were today's.
  const old = last && last.at < to ? el('div', { class: 'muted', text: `last measured ${time(last.at)}` }) : null;
  return el('div', { class: 'multiple' }, el('div', { class: 'muted', text: series.name }), svg, el('div', { text: said + by }), old);
}
