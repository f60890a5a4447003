// SPDX-License-Identifier: Apache-2.0
// What is seen, and how it came to be, in the address: a link shows the same to whoever opens the same files. Places are
// km and levels dB, whatever unit is shown. Traces count from 1 in the order of the list. docs/page.md has all words.
import { calm } from './dom';
import type { Markers, Model } from './model';
import { currentUnit, isUnit, setUnit } from './units';

// A part of the page that keeps some words of the address. What is not among the words is as it is at the beginning.
export interface Remembering {
  remember(words: URLSearchParams): void;
  recall(words: URLSearchParams): void;
}

const round = (value: number): number => Math.round(value * 1e6) / 1e6;

function numbers(text: string | null, count: number): number[] | null {
  const values = (text ?? '').split(',').map(Number);
  return values.length === count && values.every(isFinite) && text ? values : null;
}

const list = (text: string | null): number[] => (text ?? '').split(',').map(Number).filter((value) => value > 0);

// Words that name a trace by its number.
const TRACE_WORDS = ['t', 'base', 'now', 'a', 'b'];

export class Address {
  private wanted: URLSearchParams;
  private waiting = true; // for the traces that the address names

  // `carried` are words that came with the page; an address with words of its own goes before.
  constructor(
    private readonly model: Model,
    private readonly settings: Remembering,
    private readonly pairs: Remembering[],
    carried: Record<string, string>,
  ) {
    this.wanted = new URLSearchParams(location.hash.length > 1 ? location.hash.slice(1) : carried);
    this.takeSettings();
    const write = calm(() => this.write(), 150);
    model.onChange(() => write());
    window.addEventListener('hashchange', () => {
      this.wanted = new URLSearchParams(location.hash.slice(1));
      this.waiting = true;
      this.takeSettings();
      this.apply();
      model.changed('look', 'traces');
    });
  }

  // What does not ask for traces.
  private takeSettings(): void {
    const unit = this.wanted.get('u') ?? 'km';
    if (isUnit(unit)) setUnit(unit);
    this.settings.recall(this.wanted);
  }

  private get tracesNamed(): number {
    const moved = [...this.wanted.keys()].map((key) => Number(/^o(\d+)$/.exec(key)?.[1] ?? 0));
    const all = [...TRACE_WORDS.map((word) => Number(this.wanted.get(word) ?? 0)), ...moved];
    return Math.max(1, ...list(this.wanted.get('show')), ...list(this.wanted.get('hide')), ...all.filter(isFinite));
  }

  // Shows the place of the address, once all traces that it names are there. Says whether it has shown one.
  apply(): boolean {
    const { model, wanted } = this;
    if (!this.waiting || model.traces.length < this.tracesNamed) return false;
    this.waiting = false;
    for (const part of this.pairs) part.recall(wanted);
    this.takeTraces();
    const event = Number(wanted.get('e') ?? 0);
    model.select(event > 0 ? event - 1 : -1);
    model.markers = numbers(wanted.get('m'), 4) as Markers | null;
    model.showLines = wanted.has('s');
    model.showResiduals = wanted.has('r');
    model.changed('markers', 'view', 'pairs');
    const km = numbers(wanted.get('x'), 2);
    const db = numbers(wanted.get('y'), 2);
    if (!km || !db || !(km[0] < km[1]) || !(db[0] < db[1])) return false;
    model.setView({ fromKm: km[0], toKm: km[1], fromDb: db[0], toDb: db[1] });
    return true;
  }

  private takeTraces(): void {
    const { model, wanted } = this;
    const trace = model.traces[Number(wanted.get('t') ?? 0) - 1];
    if (trace) model.makeCurrent(trace.id);
    for (const [i, one] of model.traces.entries()) [one.offsetKm, one.offsetDb] = numbers(wanted.get(`o${i + 1}`), 2) ?? [0, 0];
    for (const number of list(wanted.get('show'))) model.traces[number - 1].shown = true;
    for (const number of list(wanted.get('hide'))) model.traces[number - 1].shown = false;
    model.changed('traces');
  }

  private words(): URLSearchParams {
    const { model } = this;
    const { fromKm, toKm, fromDb, toDb } = model.view;
    const words = new URLSearchParams({ x: `${round(fromKm)},${round(toKm)}`, y: `${round(fromDb)},${round(toDb)}` });
    const index = model.traces.findIndex((trace) => trace.id === model.current);
    if (index > 0) words.set('t', String(index + 1));
    if (currentUnit() !== 'km') words.set('u', currentUnit());
    if (model.selected >= 0) words.set('e', String(model.selected + 1));
    if (model.markers) words.set('m', model.markers.map(round).join(','));
    if (model.showLines) words.set('s', '');
    if (model.showResiduals) words.set('r', '');
    const withShown = (shown: boolean) => model.traces.flatMap((trace, i) => (trace.shown === shown ? [i + 1] : [])).join(',');
    if (withShown(true)) words.set('show', withShown(true));
    if (withShown(false)) words.set('hide', withShown(false));
    for (const [i, trace] of model.traces.entries())
      if (trace.offsetKm !== 0 || trace.offsetDb !== 0) words.set(`o${i + 1}`, `${round(trace.offsetKm)},${round(trace.offsetDb)}`);
    for (const part of [this.settings, ...this.pairs]) part.remember(words);
    return words;
  }

  private write(): void {
    if (this.waiting || this.model.traces.length === 0) return;
    const text = this.words().toString().replaceAll('%2C', ',').replaceAll(/=(?=&|$)/g, '');
    try {
      history.replaceState(null, '', `#${text}`);
    } catch {
      // Some browsers allow no change of address to a page from a file, or not so many in a short time.
    }
  }
}
