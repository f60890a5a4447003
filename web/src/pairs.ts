// SPDX-License-Identifier: Apache-2.0
// Two traces held against each other: a baseline and what the fibre is now, or both directions of a fibre.
import { sentenceOf } from './analysing';
import { el, icon } from './dom';
import type { Engine } from './engine';
import type { Comparison, ComparisonExtras, Maybe, MergedTable } from './listing';
import type { Model } from './model';
import { SYMBOLS } from './symbols';
import type { Trace } from './traces';
import * as units from './units';
import { fitted } from './views';

// A choice among the open traces.
class Choice {
  readonly select: HTMLSelectElement;

  constructor(
    readonly label: string,
    private readonly model: Model,
    changed: () => void,
  ) {
    this.select = el('select', { 'aria-label': label, change: changed });
  }

  get id(): number {
    return Number(this.select.value);
  }

  refresh(): void {
    const kept = this.id;
    this.select.replaceChildren(el('option', { value: 0, text: 'none' }), ...this.model.traces.map((trace) => el('option', { value: trace.id, text: trace.name })));
    this.select.value = String(this.model.traceOf(kept) ? kept : 0);
  }

  get row(): HTMLElement {
    return el('label', { class: 'choice' }, el('span', { text: this.label }), this.select);
  }
}

function heading(...titles: string[]): HTMLTableSectionElement {
  return el('thead', {}, el('tr', {}, ...titles.map((text, i) => el('th', { scope: 'col', text, class: i > 0 ? 'number' : '' }))));
}
const number = (text: string, extra = ''): HTMLTableCellElement => el('td', { class: `number ${extra}`, text });

export class ComparePane {
  private readonly baseline: Choice;
  private readonly current: Choice;
  private readonly answer = el('div', { 'aria-live': 'polite' });

  constructor(
    host: HTMLElement,
    private readonly model: Model,
    private readonly engine: Engine,
  ) {
    this.baseline = new Choice('Baseline', model, () => void this.run());
    this.current = new Choice('Current', model, () => void this.run());
    host.append(
      el('p', { class: 'muted', text: 'A trace of today against one of the same fibre when it was good.' }),
      this.baseline.row,
      this.current.row,
      this.answer,
    );
    model.onChange((changes) => {
      if (changes.has('traces')) this.refresh();
      if (changes.has('look') && model.compared?.comparison) this.show();
    });
    this.refresh();
  }

  private refresh(): void {
    this.baseline.refresh();
    this.current.refresh();
    const { compared } = this.model;
    if (compared && (compared.pair.baseline !== this.baseline.id || compared.pair.current !== this.current.id)) void this.run();
  }

  private async run(): Promise<void> {
    const pair = { baseline: this.baseline.id, current: this.current.id };
    this.model.compared = null;
    if (pair.baseline > 0 && pair.current > 0 && pair.baseline !== pair.current) {
      this.answer.replaceChildren(el('p', { text: 'Comparing' }));
      this.seeBoth(pair.baseline, pair.current);
      this.model.compared = { pair, comparison: null, extras: null, failure: '' };
      try {
        const [comparison, extras] = await this.engine.pair<Comparison, ComparisonExtras>({ do: 'compare', baseline: pair.baseline, trace: pair.current });
        this.model.compared = { pair, comparison, extras, failure: '' };
      } catch (error) {
        this.model.compared.failure = sentenceOf(error);
      }
    }
    this.show();
    this.model.changed('pairs', 'view');
  }

  private seeBoth(baseline: number, current: number): void {
    for (const trace of this.model.traces) trace.visible = trace.id === baseline || trace.id === current;
    this.model.makeCurrent(current);
    this.model.changed('traces');
  }

  private show(): void {
    const { compared } = this.model;
    if (!compared) {
      this.answer.replaceChildren();
      return;
    }
    const { comparison, extras } = compared;
    if (!comparison || !extras) {
      this.answer.replaceChildren(el('p', { class: 'none', text: compared.failure }));
      return;
    }
    const made = extras.made_baseline ? 'The baseline carries no limits of its own: those of the program hold.' : `Limits of the baseline, level "${comparison.level}".`;
    this.answer.replaceChildren(
      el('ul', { class: `sentences ${extras.changed ? 'changed' : 'same'}` }, ...comparison.sentences.map((text) => el('li', { text }))),
      el('p', { class: 'muted', text: made }),
      changesTable(comparison),
      el('ul', { class: 'remarks' }, ...extras.warnings.map((text) => el('li', { text }))),
    );
  }
}

// What became of each event: loss, reflectance, and attenuation of the section in front.
function changesTable(comparison: Comparison): HTMLElement {
  const change = (value: Maybe, exceeded: boolean, decimals: number) => {
    const size = units.fixed(value, decimals);
    const text = value !== null && value > 0 && Number(size) > 0 ? `+${size}` : size;
    return number(text, exceeded ? 'fail' : '');
  };
  return el(
    'table',
    { class: 'small' },
    el('caption', { class: 'unseen', text: 'Changes of events' }),
    heading(`At ${units.currentUnit()}`, 'Loss', 'Refl.', units.scale().slope),
    el(
      'tbody',
      {},
      ...comparison.events.map((row) =>
        el(
          'tr',
          {},
          el('th', { scope: 'row', text: units.place(row.distance_km) + (row.new ? ' new' : row.fiber_break ? ' break' : '') }),
          change(row.lt.measured_db ?? row.lt.deviation_db, row.lt.exceeded && !row.lt.contradicted, 3),
          change(row.rt.measured_db ?? row.rt.deviation_db, row.rt.exceeded && !row.rt.contradicted, 2),
          change(row.ct.measured_db ?? row.ct.deviation_db, row.ct.exceeded && !row.ct.contradicted, 3),
        ),
      ),
    ),
  );
}

export class DirectionsPane {
  private readonly a: Choice;
  private readonly b: Choice;
  private readonly answer = el('div', { 'aria-live': 'polite' });

  constructor(
    host: HTMLElement,
    private readonly model: Model,
    private readonly engine: Engine,
  ) {
    this.a = new Choice('From A', model, () => void this.run());
    this.b = new Choice('From B', model, () => void this.run());
    host.append(
      el('p', { class: 'muted', text: 'Both directions of a fibre. B is mirrored, so that the same place lies in one line.' }),
      this.a.row,
      this.b.row,
      this.answer,
    );
    model.onChange((changes) => {
      if (changes.has('traces')) this.refresh();
      if (changes.has('look')) this.show();
    });
    this.refresh();
  }

  private refresh(): void {
    this.a.refresh();
    this.b.refresh();
    const { merged } = this.model;
    if (merged && (merged.a !== this.a.id || merged.b !== this.b.id)) void this.run();
  }

  private async run(): Promise<void> {
    const [a, b] = [this.a.id, this.b.id];
    for (const trace of this.model.traces) trace.mirroredAtKm = null;
    this.model.merged = null;
    if (a > 0 && b > 0 && a !== b) {
      this.model.merged = { a, b, table: null, warnings: [], failure: '' };
      try {
        const [table, extras] = await this.engine.pair<MergedTable, { warnings: string[] }>({ do: 'merge', a, b });
        this.model.merged = { a, b, table, warnings: extras.warnings, failure: '' };
        this.mirror(this.model.traceOf(b), table);
      } catch (error) {
        this.model.merged.failure = sentenceOf(error);
      }
      for (const trace of this.model.traces) trace.visible = trace.id === a || trace.id === b;
      this.model.makeCurrent(a);
    }
    this.show();
    this.model.setView(fitted(this.model));
    this.model.changed('traces', 'tables', 'pairs');
  }

  // The start of B comes to lie on the end that A has.
  private mirror(trace: Trace | null, table: MergedTable): void {
    if (trace) trace.mirroredAtKm = table.length_km;
  }

  private show(): void {
    const { merged } = this.model;
    if (!merged) {
      this.answer.replaceChildren();
      return;
    }
    if (!merged.table) {
      this.answer.replaceChildren(el('p', { class: 'none', text: merged.failure }));
      return;
    }
    this.answer.replaceChildren(
      mergedTable(merged.table),
      el('ul', { class: 'remarks' }, ...merged.warnings.map((text) => el('li', { text }))),
    );
  }
}

function mergedTable(table: MergedTable): HTMLElement {
  return el(
    'table',
    { class: 'small merged' },
    el('caption', { class: 'unseen', text: 'Events of both directions, and their mean loss' }),
    heading(`At ${units.currentUnit()}`, 'A dB', 'B dB', 'Mean dB', 'Seen'),
    el(
      'tbody',
      {},
      ...table.events.map((row) =>
        el(
          'tr',
          {},
          el('th', { scope: 'row' }, icon(row.reflectance_a_db !== null || row.reflectance_b_db !== null ? SYMBOLS.reflective : SYMBOLS.splice), units.place(row.distance_km)),
          number(units.fixed(row.loss_a_db, 3)),
          number(units.fixed(row.loss_b_db, 3)),
          number(units.fixed(row.loss_db, 3), 'mean'),
          number(row.seen_from),
        ),
      ),
    ),
  );
}
