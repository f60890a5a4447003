// SPDX-License-Identifier: Apache-2.0
// The event table, with columns as instruments have them: what it is, number (sections in brackets, with their length),
// place, loss, reflectance, attenuation of the section, cumulated loss; at the end the whole link.
import { el, icon } from './dom';
import type { EventRow, EventTable, LinkTable, Verdict } from './listing';
import type { Model } from './model';
import { worst } from './signs';
import { kindOf, SYMBOLS, WORDS } from './symbols';
import { eventKm, tableOf, Trace } from './traces';
import { bringIntoView } from './views';
import * as units from './units';

type Row = HTMLTableRowElement;

// A number with its deviation behind it, and the colour of what it is worth.
function figure(text: string, sd: string, verdict: Verdict | undefined = null): HTMLTableCellElement {
  const cell = el('td', { class: `number ${verdict ?? ''}` }, el('span', { class: 'value', text }));
  // Numbers stand in line whether a deviation follows or not.
  cell.append(' ', el('span', { class: 'sd', text: text === '-' ? '' : sd }));
  if (verdict && verdict !== 'pass') cell.append(el('span', { class: 'unseen', text: ` ${verdict}` }));
  return cell;
}

// A number that a person has edited, or that comes from a note of the file, says so.
function noteOf(event: EventRow): string | null {
  const comment = event.comment.trim();
  return comment === '' ? null : comment;
}

export class Table {
  private rows: Row[] = [];

  constructor(
    private readonly host: HTMLElement,
    private readonly totals: HTMLElement,
    private readonly model: Model,
  ) {
    model.onChange((changes) => {
      if (changes.has('tables') || changes.has('current') || changes.has('look')) this.rebuild();
      if (changes.has('selection') || changes.has('tables') || changes.has('current')) this.mark();
    });
  }

  private rebuild(): void {
    const trace = this.model.currentTrace;
    const table = trace && tableOf(trace);
    this.rows = [];
    this.totals.replaceChildren();
    if (!trace || !table) {
      this.host.replaceChildren(trace?.failure ? el('p', { class: 'none', text: trace.failure }) : '');
      return;
    }
    this.totals.append(...totalsOf(table));
    this.host.replaceChildren(this.build(trace, table), ...remarks(trace, table));
  }

  private build(trace: Trace, table: EventTable): HTMLTableElement {
    const body = el('tbody');
    table.events.forEach((event, index) => {
      if (index > 0) body.append(sectionRow(table, index));
      const row = this.eventRow(trace, table, event, index);
      this.rows.push(row);
      body.append(row);
    });
    return el(
      'table',
      { class: table.events.some((event) => noteOf(event)) ? 'events' : 'events noteless' },
      el('caption', { class: 'unseen', text: `Events of ${trace.name}` }),
      headings(),
      body,
      el('tfoot', {}, linkRow(table)),
    );
  }

  private eventRow(trace: Trace, table: EventTable, event: EventRow, index: number): Row {
    const kind = kindOf(table, index);
    const choose = () => {
      this.model.select(index);
      bringIntoView(this.model, eventKm(trace, event));
    };
    const note = noteOf(event);
    return el(
      'tr',
      { class: `event ${worst(event)}`, 'data-index': index, click: choose },
      el('td', { class: 'what' }, icon(SYMBOLS[kind], kind), el('span', { text: WORDS[kind], title: event.type })),
      el('th', { scope: 'row' }, el('button', { type: 'button', text: event.number, 'aria-label': `Event ${event.number}, show on the curve` })),
      figure(units.place(event.distance_km), units.placeDeviation(event.distance_sd_m)),
      lossCell(event),
      figure(
        units.reflectance(event.reflectance_db, event.reflectance_at_least),
        units.deviation(event.reflectance_sd_db, 2),
        event.verdict?.reflectance,
      ),
      el('td', { class: 'number' }),
      el('td', { class: 'number' }, el('span', { class: 'value', text: units.fixed(event.cumulated_db, 3) })),
      el('td', { class: 'note', text: note ?? '' }),
    );
  }

  // Whoever goes through the table by keys stays with the chosen event.
  private mark(): void {
    const inside = this.host.contains(document.activeElement) && document.activeElement !== this.host;
    this.rows.forEach((row, index) => {
      const chosen = index === this.model.selected;
      row.classList.toggle('chosen', chosen);
      row.querySelector('button')?.setAttribute('aria-pressed', String(chosen));
      if (!chosen) return;
      row.scrollIntoView({ block: 'nearest' });
      if (inside) row.querySelector('button')?.focus({ preventScroll: true });
    });
  }
}

// Of a group that can't be told apart the sum alone is known.
function lossCell(event: EventRow): HTMLTableCellElement {
  const cell = figure(units.fixed(event.loss_db, 3), units.deviation(event.loss_sd_db, 3), event.verdict?.loss);
  const group = event.verdict?.group;
  if (group) {
    const sum = units.fixed(event.verdict?.group_loss_db, 3);
    cell.title = `Group ${group}: ${sum} dB together, limit ${units.fixed(event.verdict?.group_limit_db, 3)} dB`;
  }
  return cell;
}

// For the small tables beside the curve.
export function heading(...titles: string[]): HTMLTableSectionElement {
  return el('thead', {}, el('tr', {}, ...titles.map((text, i) => el('th', { scope: 'col', text, class: i > 0 ? 'number' : '' }))));
}
export function number(text: string, extra = '', verdict: Verdict | undefined = null): HTMLTableCellElement {
  const cell = el('td', { class: `number ${extra}`.trim(), text });
  if (verdict && verdict !== 'pass') cell.append(el('span', { class: 'unseen', text: ` ${verdict}` }));
  return cell;
}
export function total(name: string, value: string, unit: string, verdict: Verdict | undefined = null): HTMLElement {
  return el('div', { class: 'total' }, el('span', { class: 'name', text: name }), el('span', { class: `value ${verdict ?? ''}`, text: value === '-' ? value : `${value} ${unit}`.trim() }));
}

function headings(): HTMLTableSectionElement {
  const unit = units.currentUnit();
  const titles = ['Type', 'No', `Location ${unit}`, 'Loss dB', 'Reflectance dB', `Section ${units.scale().slope}`, 'Cumulated dB', 'Note'];
  return el('thead', {}, el('tr', {}, ...titles.map((text, i) => el('th', { scope: 'col', text, class: i > 1 && i < 7 ? 'number' : '' }))));
}

function sectionRow(table: EventTable, index: number): Row {
  const event = table.events[index];
  const length = event.distance_km - table.events[index - 1].distance_km;
  return el(
    'tr',
    { class: 'section' },
    el('td', { class: 'what' }, el('span', { class: 'unseen', text: 'Section' })),
    el('td', { text: `(${index})` }),
    figure(units.place(length), ''),
    el('td', {}),
    el('td', {}),
    figure(units.slope(event.attenuation_db_per_km), units.slopeDeviation(event.attenuation_sd_db_per_km), event.verdict?.attenuation),
    el('td', {}),
    el('td', {}),
  );
}

// The whole link. A return loss with a saturated reflection in it is no more than the number.
function linkRow(table: EventTable): Row {
  const link = table as LinkTable;
  const verdicts = link.verdicts;
  const saturated = table.events.some((event) => event.reflectance_at_least);
  const orl = units.fixed(table.orl_db, 2);
  return el(
    'tr',
    { class: 'link' },
    el('th', { scope: 'row', colspan: 2, text: 'Link' }),
    figure(units.place(table.length_km), '', verdicts?.length),
    figure(units.fixed(table.total_loss_db, 3), units.deviation(table.total_loss_sd_db, 3), verdicts?.span_loss),
    el('td', { class: `number ${verdicts?.return_loss ?? ''}`, colspan: 2, text: `return loss ${saturated && orl !== '-' ? '< ' : ''}${orl} dB` }),
    el('td', {}),
    el('td', {}),
  );
}

// Length, loss, return loss and verdict at one glance.
function totalsOf(table: EventTable): Node[] {
  const link = table as LinkTable;
  const saturated = table.events.some((event) => event.reflectance_at_least);
  const orl = units.fixed(table.orl_db, 2);
  const totals = [
    total('Length', units.place(table.length_km), units.currentUnit(), link.verdicts?.length),
    total('Loss end to end', units.fixed(table.total_loss_db, 3), 'dB', link.verdicts?.span_loss),
    total('Return loss', (saturated && orl !== '-' ? '< ' : '') + orl, 'dB', link.verdicts?.return_loss),
    total('Events', String(table.events.length), ''),
  ];
  if (link.verdict !== undefined) {
    totals.push(el('div', { class: 'total' }, el('span', { class: 'name', text: 'Verdict' }), el('span', { class: `badge ${link.verdict ?? ''}`, text: link.verdict ?? 'unknown' })));
  }
  return totals;
}

// What a user should know: of the file, and of what did not pass.
function remarks(trace: Trace, table: EventTable): Node[] {
  const link = table as LinkTable;
  const sentences = [...(link.verdicts?.sentences ?? []), ...new Set([...trace.warnings, ...table.warnings])];
  if (!table.fibre) sentences.unshift('The trace shows no fibre.');
  if (sentences.length === 0) return [];
  return [el('ul', { class: 'remarks', 'aria-label': 'Remarks' }, ...sentences.map((text) => el('li', { text })))];
}
