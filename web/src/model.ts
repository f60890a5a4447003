// SPDX-License-Identifier: Apache-2.0
// What the page shows: one state that all panes read, and a bell for those who want to know of changes.
import type { Comparison, ComparisonExtras, MergedTable } from './listing';
import type { Trace } from './traces';

export interface View {
  fromKm: number;
  toKm: number;
  fromDb: number;
  toDb: number;
}

// Markers a, A, B, b, km on the plot, in this order along the fibre.
export type Markers = [number, number, number, number];
export const MARKER_NAMES = ['a', 'A', 'B', 'b'] as const;

export interface Pairing {
  baseline: number; // of a trace, 0 for none
  current: number;
}

export interface Compared {
  pair: Pairing;
  comparison: Comparison | null;
  extras: ComparisonExtras | null;
  failure: string;
}
export interface Merged {
  a: number;
  b: number;
  table: MergedTable | null;
  warnings: string[];
  failure: string;
}

const MOST_SHOWN = 8; // curves that can still be told apart by colour

// 'listed': a trace has come, or its table, that is neither current nor drawn.
export type Change = 'listed' | 'traces' | 'tables' | 'current' | 'selection' | 'view' | 'markers' | 'look' | 'pairs' | 'settings' | 'panes';

export class Model {
  traces: Trace[] = [];
  current = 0; // number of the trace whose table is shown
  selected = -1; // index of an event in its table
  view: View = { fromKm: 0, toKm: 1, fromDb: -40, toDb: 0 };
  markers: Markers | null = null;
  showLines = false;
  showResiduals = false;
  compared: Compared | null = null;
  merged: Merged | null = null;

  private listeners: ((changes: Set<Change>) => void)[] = [];
  private pending = new Set<Change>();

  onChange(listener: (changes: Set<Change>) => void): void {
    this.listeners.push(listener);
  }

  // Tells of all changes of one turn together.
  changed(...changes: Change[]): void {
    if (this.pending.size === 0) {
      queueMicrotask(() => {
        const told = new Set(this.pending);
        this.pending.clear();
        for (const listener of this.listeners) listener(told);
      });
    }
    for (const change of changes) this.pending.add(change);
  }

  traceOf(id: number): Trace | null {
    return this.traces.find((trace) => trace.id === id) ?? null;
  }
  get currentTrace(): Trace | null {
    return this.traceOf(this.current);
  }

  // Whether the curve of a trace is drawn. A pair is seen alone; of a whole cable, one fibre at a time.
  shows(trace: Trace): boolean {
    if (trace.shown !== null) return trace.shown;
    if (trace.id === this.current) return true;
    const pair = this.compared ? [this.compared.pair.baseline, this.compared.pair.current] : this.merged ? [this.merged.a, this.merged.b] : null;
    return pair ? pair.includes(trace.id) : this.traces.length <= MOST_SHOWN;
  }

  // Tells of a change of one trace.
  changedOf(trace: Trace, ...changes: Change[]): void {
    this.changed('listed', ...(this.shows(trace) ? changes : []));
  }

  makeCurrent(id: number): void {
    if (this.current === id) return;
    this.current = id;
    this.selected = -1;
    this.changed('current', 'selection');
  }

  select(index: number): void {
    if (this.selected === index) return;
    this.selected = index;
    this.changed('selection');
  }

  setView(view: View): void {
    this.view = view;
    this.changed('view');
  }
}
