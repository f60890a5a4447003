// SPDX-License-Identifier: Apache-2.0
// The list of open traces: which are seen, whose table is shown, how they are moved against each other.
import type { Analysing } from './analysing';
import { el, perFrame } from './dom';
import type { Model } from './model';
import { Trace, verdictOf } from './traces';
import * as units from './units';

export class List {
  private entries = new Map<number, { state: string; item: HTMLElement }>();

  constructor(
    private readonly host: HTMLElement,
    private readonly summary: HTMLElement,
    private readonly model: Model,
    private readonly analysing: Analysing,
  ) {
    const rebuild = perFrame(() => this.rebuild());
    model.onChange((changes) => {
      if (['listed', 'traces', 'tables', 'current', 'look', 'pairs'].some((one) => changes.has(one as 'traces'))) rebuild();
    });
  }

  // What is the same as before stays: of a whole cable, one entry changes at a time.
  private rebuild(): void {
    const { traces } = this.model;
    // What has the focus keeps it, though its entry is made anew.
    const key = (document.activeElement as HTMLElement | null)?.dataset.key;
    const before = this.entries;
    this.entries = new Map();
    for (const trace of traces) {
      const state = this.stateOf(trace);
      const known = before.get(trace.id);
      this.entries.set(trace.id, known?.state === state ? known : { state, item: this.entry(trace) });
    }
    const items = [...this.entries.values()].map((one) => one.item);
    while (this.host.children.length > items.length) this.host.lastElementChild?.remove();
    items.forEach((item, i) => {
      const there = this.host.children[i];
      if (!there) this.host.append(item);
      else if (there !== item) there.replaceWith(item);
    });
    if (key && document.activeElement === document.body) (this.host.querySelector<HTMLElement>(`[data-key="${key}"]`) ?? this.host.querySelector<HTMLElement>('.current .name'))?.focus();
    this.summary.textContent = summaryOf(traces);
  }

  private stateOf(trace: Trace): string {
    const current = trace.id === this.model.current;
    return JSON.stringify([this.about(trace), this.model.shows(trace), verdictOf(trace), current, current && [this.model.traces.length > 1, trace.offsetKm, trace.offsetDb, units.currentUnit()]]);
  }

  private about(trace: Trace): string {
    const table = trace.analysis?.table;
    return table ? `${units.fixed(table.wavelength_nm, 0)} nm, ${units.fixed(table.pulse_ns, 0)} ns` : trace.failure ? 'no table' : 'reading';
  }

  private entry(trace: Trace): HTMLLIElement {
    const current = trace.id === this.model.current;
    const verdict = verdictOf(trace);
    const shown = this.model.shows(trace);
    return el(
      'li',
      { class: current ? 'current' : '' },
      el('input', {
        type: 'checkbox',
        checked: shown,
        'aria-label': `Show ${trace.name}`,
        'data-key': `see${trace.id}`,
        class: `swatch curve-${(trace.colour % 8) + 1}`,
        change: () => {
          trace.shown = !shown;
          this.model.changed('traces');
        },
      }),
      el(
        'button',
        { type: 'button', class: 'name', title: trace.name, 'aria-pressed': current, 'data-key': `go${trace.id}`, click: () => this.model.makeCurrent(trace.id) },
        el('span', { class: 'text', text: trace.name }),
        el('span', { class: 'muted', text: this.about(trace) }),
      ),
      verdict ? el('span', { class: `badge ${verdict}`, text: verdict }) : null,
      el('button', { type: 'button', class: 'quiet', text: '×', 'aria-label': `Close ${trace.name}`, 'data-key': `close${trace.id}`, click: () => this.analysing.close(trace) }),
      current && this.model.traces.length > 1 ? this.offsets(trace) : null,
    );
  }

  // Laid over each other, traces are told apart by moving them.
  private offsets(trace: Trace): HTMLElement {
    const field = (label: string, value: number, step: number, take: (value: number) => void) =>
      el(
        'label',
        { text: `${label} ` },
        el('input', {
          type: 'number',
          step,
          value,
          'data-key': `${label}${trace.id}`,
          change: (event: Event) => {
            take(Number((event.target as HTMLInputElement).value) || 0);
            this.model.changed('traces', 'look');
          },
        }),
      );
    const per = units.scale().perKm;
    return el(
      'div',
      { class: 'offsets' },
      field(`Move ${units.currentUnit()}`, Number((trace.offsetKm * per).toFixed(4)), 0.001, (value) => (trace.offsetKm = value / per)),
      field('dB', trace.offsetDb, 0.5, (value) => (trace.offsetDb = value)),
    );
  }
}

// How many there are, and what they are worth.
function summaryOf(traces: Trace[]): string {
  const count = (verdict: string) => traces.filter((trace) => verdictOf(trace) === verdict).length;
  const verdicts = ['fail', 'marginal', 'warning', 'pass'].map((one) => [count(one), one] as const).filter(([many]) => many > 0);
  return [`${traces.length} traces`, ...verdicts.map(([many, one]) => `${many} ${one}`)].join(', ');
}
