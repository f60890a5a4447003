// SPDX-License-Identifier: Apache-2.0
// Both directions of a fibre, with the table of `reflyze merge`: B is mirrored, so that the same place lies in one line.
// Thresholds, reels and limits are those of the settings.
import { Analysing, sentenceOf } from './analysing';
import { PairChoice } from './choice';
import { el, icon } from './dom';
import type { Engine } from './engine';
import type { MergedRow, MergedTable, Verdict } from './listing';
import type { Merged, Model } from './model';
import { SYMBOLS } from './symbols';
import { heading, number, total } from './table';
import * as units from './units';
import { fitted } from './views';

export class DirectionsPane {
  readonly choice: PairChoice;
  private readonly answer = el('div', { 'aria-live': 'polite' });

  constructor(
    host: HTMLElement,
    private readonly model: Model,
    private readonly engine: Engine,
    private readonly analysing: Analysing,
    private readonly chosen: () => void,
  ) {
    host.append(el('p', { class: 'muted', text: 'Both directions of a fibre. B is mirrored, so that the same place lies in one line.' }));
    this.choice = new PairChoice(host, model, ['From A', 'From B'], ['a', 'b'], (pair, recalled) => void this.run(pair, recalled));
    host.append(this.answer);
    model.onChange((changes) => {
      if (changes.has('settings') && model.merged) void this.ask(model.merged);
      if (changes.has('look')) this.show();
    });
  }

  // A view that the address asks for stays.
  private async run(chosen: [number, number] | null, recalled: boolean): Promise<void> {
    const { model } = this;
    for (const trace of model.traces) trace.mirroredAtKm = null;
    model.merged = null;
    if (chosen) {
      this.chosen();
      model.merged = { a: chosen[0], b: chosen[1], table: null, warnings: [], failure: '' };
      for (const trace of model.traces) trace.shown = null;
      model.makeCurrent(chosen[0]);
      model.changed('traces');
      await this.ask(model.merged);
    }
    this.show();
    if (!recalled) model.setView(fitted(model));
    model.changed('traces', 'tables', 'pairs');
  }

  private async ask(merged: Merged): Promise<void> {
    const asked = this.analysing.asked;
    try {
      const [table, extras] = await this.engine.pair<MergedTable, { warnings: string[] }>({ do: 'merge', a: merged.a, b: merged.b, ...asked });
      if (this.analysing.asked !== asked) return;
      Object.assign(merged, { table, warnings: extras.warnings, failure: '' });
    } catch (error) {
      Object.assign(merged, { table: null, warnings: [], failure: sentenceOf(error) });
    }
    if (this.model.merged !== merged) return;
    // The start of B comes to lie on the end that A has; between reels both count from their first connector.
    const b = this.model.traceOf(merged.b);
    if (b) b.mirroredAtKm = merged.table?.length_km ?? null;
    this.show();
    this.model.changed('traces', 'view', 'pairs');
  }

  private show(): void {
    const { merged } = this.model;
    if (!merged) {
      this.answer.replaceChildren();
      return;
    }
    if (!merged.table) {
      this.answer.replaceChildren(el('p', { class: 'none', text: merged.failure || 'Merging' }));
      return;
    }
    const sentences = [...(merged.table.verdicts?.sentences ?? []), ...merged.warnings];
    this.answer.replaceChildren(
      el('div', { class: 'totals' }, ...totalsOf(merged.table)),
      mergedTable(merged.table),
      el('ul', { class: 'remarks' }, ...sentences.map((text) => el('li', { text }))),
    );
  }
}

function totalsOf(table: MergedTable): Node[] {
  const { verdicts } = table;
  const totals = [total('Length', units.place(table.length_km), units.currentUnit(), verdicts?.length)];
  if (table.span_a) {
    totals.push(
      total('Mean loss', units.fixed(table.loss_db, 3), 'dB', verdicts?.span_loss),
      total('Return loss', units.fixed(table.orl_db, 2), 'dB', verdicts?.return_loss),
      total('Ends apart', units.fixed(table.ends_apart_m, 2), 'm'),
    );
  }
  if (table.verdict !== undefined) totals.push(total('Verdict', table.verdict ?? 'unknown', '', table.verdict));
  return totals;
}

// Of reflectances the higher is judged.
function higher(row: MergedRow): number | null {
  const both = [row.reflectance_a_db, row.reflectance_b_db].filter((value): value is number => value !== null);
  return both.length > 0 ? Math.max(...both) : null;
}

function mergedTable(table: MergedTable): HTMLElement {
  // What one direction alone has seen is judged by itself.
  const lossVerdict = (row: MergedRow, value: number | null) => (row.loss_db === null && value !== null ? row.verdict?.loss : null);
  const judged = (text: string, verdict: Verdict | undefined, extra = '') => number(text, `${extra} ${verdict ?? ''}`, verdict);
  const reels = table.span_a !== undefined;
  const titles = [`At ${units.currentUnit()}`, 'A dB', 'B dB', 'Mean', 'Refl.', ...(reels ? [units.scale().slope] : []), 'Seen'];
  return el(
    'div',
    { class: 'wide', tabindex: 0, role: 'group', 'aria-label': 'Events of both directions' },
    el(
      'table',
      { class: 'small merged' },
      el('caption', { class: 'unseen', text: 'Events of both directions, and their mean loss' }),
      heading(...titles),
      el(
        'tbody',
        {},
        ...table.events.map((row) =>
          el(
            'tr',
            {},
            el('th', { scope: 'row' }, icon(higher(row) !== null ? SYMBOLS.reflective : SYMBOLS.splice), units.place(row.distance_km)),
            judged(units.fixed(row.loss_a_db, 3), lossVerdict(row, row.loss_a_db)),
            judged(units.fixed(row.loss_b_db, 3), lossVerdict(row, row.loss_b_db)),
            judged(units.fixed(row.loss_db, 3), row.loss_db === null ? null : row.verdict?.loss, 'mean'),
            judged(units.fixed(higher(row), 2), row.verdict?.reflectance),
            reels ? judged(units.slope(row.attenuation_db_per_km), row.verdict?.attenuation) : null,
            number(row.seen_from),
          ),
        ),
      ),
    ),
  );
}
