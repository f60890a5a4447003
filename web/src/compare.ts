// SPDX-License-Identifier: Apache-2.0
// A trace against its baseline: the sentences of `reflyze compare`, and what became of each event.
import { sentenceOf } from './analysing';
import { PairChoice } from './choice';
import { el } from './dom';
import type { Engine } from './engine';
import type { Comparison, ComparisonExtras, Maybe } from './listing';
import type { Model } from './model';
import { heading, number } from './table';
import * as units from './units';

export class ComparePane {
  readonly choice: PairChoice;
  private readonly answer = el('div', { 'aria-live': 'polite' });

  constructor(
    host: HTMLElement,
    private readonly model: Model,
    private readonly engine: Engine,
    private readonly chosen: () => void,
  ) {
    host.append(el('p', { class: 'muted', text: 'A trace of today against one of the same fibre when it was good.' }));
    this.choice = new PairChoice(host, model, ['Baseline', 'Current'], ['base', 'now'], (pair) => void this.run(pair));
    host.append(this.answer);
    model.onChange((changes) => {
      if (changes.has('look') && model.compared?.comparison) this.show();
    });
  }

  private async run(chosen: [number, number] | null): Promise<void> {
    const { model } = this;
    model.compared = null;
    if (chosen) {
      this.chosen();
      const pair = { baseline: chosen[0], current: chosen[1] };
      const compared = { pair, comparison: null, extras: null, failure: '' };
      this.answer.replaceChildren(el('p', { text: 'Comparing' }));
      model.compared = compared;
      for (const trace of model.traces) trace.shown = null;
      model.makeCurrent(pair.current);
      model.changed('traces');
      try {
        const [comparison, extras] = await this.engine.pair<Comparison, ComparisonExtras>({ do: 'compare', baseline: pair.baseline, trace: pair.current });
        if (model.compared === compared) model.compared = { pair, comparison, extras, failure: '' };
      } catch (error) {
        compared.failure = sentenceOf(error);
      }
    }
    this.show();
    model.changed('pairs', 'view');
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
