// SPDX-License-Identifier: Apache-2.0
// Alarms and fibres as rows of tables.
import { el } from '../dom';
import type { Alarm, Fibre, Place } from './api';
import { ago, badge, badness, time } from './words';

// What nobody takes care of yet comes first, then the worst, then the newest.
export const byUrgency = (one: Alarm, other: Alarm): number =>
  Number(one.acknowledged_at > 0) - Number(other.acknowledged_at > 0) ||
  badness(one.severity) - badness(other.severity) || other.confirmed_at - one.confirmed_at || other.id - one.id;

const since = (at: number): HTMLElement => el('td', { text: ago(at), title: at > 0 ? `${time(at)} UTC` : undefined });

function placeText(place: Place): string {
  const near = place.near ? `, near ${place.near}` : '';
  return `Place: ${place.latitude.toFixed(6)}, ${place.longitude.toFixed(6)}, within ${(2 * place.sd_m).toFixed(0)} m${near}`;
}

export function alarmRow(alarm: Alarm, place: Place | undefined, mayAcknowledge: boolean): HTMLTableRowElement {
  const name = alarm.fibre || alarm.instrument;
  const care = alarm.acknowledged_at > 0 ? `by ${alarm.acknowledged_by}, ${ago(alarm.acknowledged_at)}` : 'no';
  return el('tr', { 'data-key': alarm.id },
    el('td', {}, badge(alarm.severity)),
    el('td', {}, alarm.fibre ? el('button', { type: 'button', class: 'quiet', 'data-act': 'choose', text: name }) : name),
    el('td', {}, alarm.sentence, place ? el('div', { class: 'muted', text: placeText(place) }) : null),
    since(alarm.confirmed_at),
    el('td', {}, alarm.acknowledged_at === 0 && mayAcknowledge ?
      el('button', { type: 'button', 'data-act': 'acknowledge', 'aria-label': `Acknowledge ${name}: ${alarm.sentence}`, text: 'Acknowledge' }) :
      care));
}

export function fibreRow(fibre: Fibre, chosen: boolean): HTMLTableRowElement {
  return el('tr', { 'data-key': fibre.name, 'aria-current': String(chosen) },
    el('td', {}, badge(fibre.state)),
    el('td', {},
      el('button', { type: 'button', class: 'quiet', 'data-act': 'choose', text: fibre.name }),
      fibre.title ? el('div', { class: 'muted', text: fibre.title }) : null),
    el('td', { text: fibre.from }), el('td', { text: fibre.to }), since(fibre.last_received_at));
}
