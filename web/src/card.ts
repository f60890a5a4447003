// SPDX-License-Identifier: Apache-2.0
// The card of a file: what it says of itself, before anybody has measured.
import { el } from './dom';
import type { Model } from './model';

type Values = Record<string, unknown>;

// Keys of the listing, in the order and with the words that people know. What a file does not say is left out.
const ROWS: [string, string, string][] = [
  ['cable', 'Cable', ''],
  ['cable_code', 'Cable code', ''],
  ['fibre', 'Fibre', ''],
  ['fibre_type', 'Fibre type', ''],
  ['from', 'From', ''],
  ['to', 'To', ''],
  ['direction', 'Direction', ''],
  ['date_local', 'Date', ''],
  ['operator', 'Operator', ''],
  ['comment', 'Comment', ''],
  ['supplier', 'Maker', ''],
  ['instrument', 'Instrument', ''],
  ['instrument_serial', 'Number', ''],
  ['module', 'Module', ''],
  ['module_serial', 'Module number', ''],
  ['software', 'Software', ''],
  ['wavelength_nm', 'Wavelength', 'nm'],
  ['pulse_ns', 'Pulse', 'ns'],
  ['range_km', 'Range', 'km'],
  ['points', 'Points', ''],
  ['spacing_m', 'Spacing', 'm'],
  ['group_index', 'Group index', ''],
  ['backscatter_db', 'Backscatter', 'dB (1 ns)'],
  ['averages', 'Averages', ''],
  ['user_offset_km', 'User offset', 'km'],
  ['noise_floor_db', 'Noise floor', 'dB'],
];

// Codes of the standard, in words.
const WORDS: Record<string, Record<string, string>> = {
  direction: { ST: 'from the first place', RT: 'from the second place', DT: 'difference of two', RF: 'reference' },
};

export function cardOf(sheet: Values): Values {
  return (sheet.card as Values | undefined) ?? sheet;
}

function textOf(key: string, value: unknown, unit: string): string {
  if (typeof value === 'string' && WORDS[key]?.[value]) return WORDS[key][value];
  if (typeof value === 'string') return key === 'date_local' ? value.replace('T', ' ') : value.trim();
  if (typeof value !== 'number' || (value === 0 && key !== 'user_offset_km')) return '';
  const digits = key === 'group_index' ? value.toFixed(5) : String(Math.round(value * 10000) / 10000);
  return (key === 'fibre_type' ? `G.${value}` : digits) + (unit ? ` ${unit}` : '');
}

export function rowsOf(sheet: Values): [string, string][] {
  const card = cardOf(sheet);
  return ROWS.map(([key, name, unit]): [string, string] => [name, textOf(key, card[key], unit)]).filter(([, text]) => text !== '');
}

export function cardPane(host: HTMLElement, model: Model): void {
  model.onChange((changes) => {
    if (!changes.has('current') && !changes.has('tables')) return;
    const trace = model.currentTrace;
    if (!trace?.card) {
      host.replaceChildren();
      return;
    }
    const error = trace.card.error;
    host.replaceChildren(
      el('h3', { class: 'name', text: trace.name }),
      typeof error === 'string'
        ? el('p', { text: error })
        : el('dl', {}, ...rowsOf(trace.card).flatMap(([name, text]) => [el('dt', { text: name }), el('dd', { text })])),
    );
  });
}
