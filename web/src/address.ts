// SPDX-License-Identifier: Apache-2.0
// The view in the address, so that a link shows the same place: #x=FROM,TO&y=FROM,TO&u=UNIT&t=TRACE&e=EVENT&m=a,A,B,b.
// Places are km and levels dB, whatever unit is shown. Traces count from 1 in the order of the list.
import { calm } from './dom';
import type { Markers, Model } from './model';
import { currentUnit, isUnit, setUnit } from './units';

const round = (value: number): number => Math.round(value * 1e6) / 1e6;

function numbers(text: string | null, count: number): number[] | null {
  const values = (text ?? '').split(',').map(Number);
  return values.length === count && values.every(isFinite) && text ? values : null;
}

export class Address {
  private wanted: URLSearchParams;
  private quiet = true; // until the traces of the address are there

  constructor(private readonly model: Model) {
    this.wanted = new URLSearchParams(location.hash.slice(1));
    const unit = this.wanted.get('u');
    if (unit && isUnit(unit)) setUnit(unit);
    const write = calm(() => this.write(), 150);
    model.onChange(() => write());
    window.addEventListener('hashchange', () => {
      this.wanted = new URLSearchParams(location.hash.slice(1));
      const next = this.wanted.get('u');
      if (next && isUnit(next)) setUnit(next);
      this.apply();
      model.changed('look');
    });
  }

  // Shows the place of the address, if it has one. Says whether it had.
  apply(): boolean {
    const { model } = this;
    this.quiet = false;
    const number = Number(this.wanted.get('t') ?? 0);
    const trace = model.traces[number - 1];
    if (trace) model.makeCurrent(trace.id);
    const event = Number(this.wanted.get('e') ?? 0);
    if (event > 0) model.select(event - 1);
    const markers = numbers(this.wanted.get('m'), 4);
    if (markers) model.markers = markers as Markers;
    model.showLines = this.wanted.has('s');
    model.showResiduals = this.wanted.has('r');
    model.changed('markers', 'view', 'pairs');
    const km = numbers(this.wanted.get('x'), 2);
    const db = numbers(this.wanted.get('y'), 2);
    if (!km || !db || !(km[0] < km[1]) || !(db[0] < db[1])) return false;
    model.setView({ fromKm: km[0], toKm: km[1], fromDb: db[0], toDb: db[1] });
    return true;
  }

  private write(): void {
    const { model } = this;
    if (this.quiet || model.traces.length === 0) return;
    const { fromKm, toKm, fromDb, toDb } = model.view;
    const parts = [`x=${round(fromKm)},${round(toKm)}`, `y=${round(fromDb)},${round(toDb)}`];
    const index = model.traces.findIndex((trace) => trace.id === model.current);
    if (index > 0) parts.push(`t=${index + 1}`);
    if (currentUnit() !== 'km') parts.push(`u=${currentUnit()}`);
    if (model.selected >= 0) parts.push(`e=${model.selected + 1}`);
    if (model.markers) parts.push(`m=${model.markers.map(round).join(',')}`);
    if (model.showLines) parts.push('s');
    if (model.showResiduals) parts.push('r');
    try {
      history.replaceState(null, '', `#${parts.join('&')}`);
    } catch {
      // Some browsers allow no change of address to a page from a file, or not so many in a short time.
    }
  }
}
