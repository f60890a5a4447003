// SPDX-License-Identifier: Apache-2.0
// The list of open traces: which are seen, whose table is shown, how they are moved against each other.
import type { Analysing } from './analysing';
import { el } from './dom';
import type { Model } from './model';
import { Trace, verdictOf } from './traces';
import * as units from './units';

export class List {
  constructor(
    private readonly host: HTMLElement,
    private readonly model: Model,
    private readonly analysing: Analysing,
  ) {
    model.onChange((changes) => {
      if (['traces', 'tables', 'current', 'look'].some((one) => changes.has(one as 'traces'))) this.rebuild();
    });
  }

  private rebuild(): void {
    // What has the focus keeps it, though the list is made anew.
    const key = (document.activeElement as HTMLElement | null)?.dataset.key;
    this.host.replaceChildren(...this.model.traces.map((trace) => this.entry(trace)));
    if (key) this.host.querySelector<HTMLElement>(`[data-key="${key}"]`)?.focus();
  }

  private entry(trace: Trace): HTMLLIElement {
    const current = trace.id === this.model.current;
    const verdict = verdictOf(trace);
    const table = trace.analysis?.table;
    const about = table ? `${units.fixed(table.wavelength_nm, 0)} nm, ${units.fixed(table.pulse_ns, 0)} ns` : trace.failure ? 'no table' : 'reading';
    return el(
      'li',
      { class: current ? 'current' : '' },
      el('input', {
        type: 'checkbox',
        checked: trace.visible,
        'aria-label': `Show ${trace.name}`,
        'data-key': `see${trace.id}`,
        class: `swatch curve-${(trace.colour % 8) + 1}`,
        change: () => {
          trace.visible = !trace.visible;
          this.model.changed('traces');
        },
      }),
      el(
        'button',
        { type: 'button', class: 'name', title: trace.name, 'aria-pressed': current, 'data-key': `go${trace.id}`, click: () => this.model.makeCurrent(trace.id) },
        el('span', { class: 'text', text: trace.name }),
        el('span', { class: 'muted', text: about }),
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
