// SPDX-License-Identifier: Apache-2.0
// How things are said on the page of a centre.
import { el } from '../dom';
import { now as clock, type Fibre } from './api';

// The worst first; a fibre without a baseline is watched by nobody, and one that was not measured is not known to be well.
const ORDER = ['critical', 'major', 'minor', 'warning', 'no baseline', 'not measured', 'ok'];

export const badness = (state: string): number => ORDER.indexOf(state);

const names = new Intl.Collator(undefined, { numeric: true });
export const byBadness = (one: Fibre, other: Fibre): number =>
  badness(one.state) - badness(other.state) || names.compare(one.name, other.name);

export function badge(state: string): HTMLElement {
  return el('span', { class: `badge ${state.replace(' ', '-')}`, text: state });
}

export function ago(at: number, now = clock()): string {
  if (at <= 0) return 'never';
  const seconds = Math.max(0, Math.round((now - at) / 1000));
  if (seconds < 90) return `${seconds} s ago`;
  if (seconds < 5400) return `${Math.round(seconds / 60)} min ago`;
  if (seconds < 172800) return `${Math.round(seconds / 3600)} h ago`;
  return `${Math.round(seconds / 86400)} days ago`;
}

// With a minus that is as wide as a plus.
export const number = (value: number, digits: number): string => value.toFixed(digits).replace('-', '−');

export const count = (many: number, one: string): string => `${many} ${one}${many === 1 ? '' : 's'}`;

export const time = (at: number): string => (at > 0 ? new Date(at).toISOString().replace('T', ' ').slice(0, 16) : '');
