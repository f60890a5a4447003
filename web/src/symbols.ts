// SPDX-License-Identifier: Apache-2.0
// The kinds of events, each with the sign that it has on the curve and in the table.
import type { EventRow, EventTable } from './listing';

export type Kind = 'launch' | 'splice' | 'gain' | 'reflective' | 'end' | 'echo' | 'group';

// Drawn in 24 by 24 units: what each looks like on a trace.
export const SYMBOLS: Record<Kind, string> = {
  launch: 'M5 4v16M9 12h10M15 8l4 4-4 4',
  splice: 'M3 8h8l2 8h8',
  gain: 'M3 16h8l2-8h8',
  reflective: 'M3 16h6l2-11 3 13h7',
  end: 'M19 4v16M15 12H5M9 8l-4 4 4 4',
  echo: 'M3 16h4M9 16l2-8 2 8M17 16h4',
  group: 'M3 9h5l2 6h4l2-6h5',
};

export const WORDS: Record<Kind, string> = {
  launch: 'Launch',
  splice: 'Loss',
  gain: 'Gain',
  reflective: 'Reflective',
  end: 'End',
  echo: 'Echo',
  group: 'Group',
};

export function kindOf(table: EventTable, index: number): Kind {
  const event: EventRow = table.events[index];
  if (event.type === 'echo') return 'echo';
  if (index === 0) return 'launch';
  if (index + 1 === table.events.length) return 'end';
  if (event.verdict?.group) return 'group';
  if (event.reflectance_db !== null || /^[12]/.test(event.code)) return 'reflective';
  return (event.loss_db ?? 0) < 0 ? 'gain' : 'splice';
}
