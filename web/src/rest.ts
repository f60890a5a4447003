// SPDX-License-Identifier: Apache-2.0
// What is left of a trace: less the lines of its sections, or less its baseline. Each is a curve of its own with its own
// levels of detail; the lowest of some points of a falling trace, less a line, would lie below what any point has.
import { Curve, levelAt, makeCurve } from './curve';
import type { SectionLine } from './listing';
import { plotKm, Trace, traceKm } from './traces';

const lineAt = (line: SectionLine, km: number): number =>
  line[1] + ((line[3] - line[1]) * (km - line[0])) / (line[2] - line[0]);

// The points of sections less their lines. Between sections there are none.
export function residualsOf(curve: Curve, lines: (SectionLine | null)[]): Curve {
  const km: number[] = [];
  const db: number[] = [];
  const there = lines.filter((line): line is SectionLine => line !== null);
  let next = 0;
  for (let i = 0; i < curve.km.length && next < there.length; ++i) {
    while (next < there.length && curve.km[i] > there[next][2]) ++next;
    if (next === there.length || curve.km[i] < there[next][0]) continue;
    km.push(curve.km[i]);
    db.push(curve.db[i] - lineAt(there[next], curve.km[i]));
  }
  return makeCurve(Float64Array.from(km), Float64Array.from(db));
}

// The current trace less its baseline, at the points of the current one, as far as both have light.
export function differenceOf(current: Trace, baseline: Trace): Curve {
  const count = current.curve.km.length;
  const km = new Float64Array(count);
  const db = new Float64Array(count);
  const endKm = Math.min(endOf(current), endOf(baseline));
  let used = 0;
  for (let i = 0; i < count; ++i) {
    const there = plotKm(current, current.curve.km[i]);
    const level = there <= endKm ? levelAt(baseline.curve, traceKm(baseline, there)) : null;
    if (level === null) continue;
    km[used] = current.curve.km[i];
    db[used++] = current.curve.db[i] + current.offsetDb - level - baseline.offsetDb;
  }
  return makeCurve(km.slice(0, used), db.slice(0, used));
}

// Where the light of a trace ends, with a little room; behind it there is noise alone.
function endOf(trace: Trace): number {
  const events = trace.analysis?.table.events ?? [];
  const all = trace.curve.km[trace.curve.km.length - 1];
  return plotKm(trace, events.length > 1 ? Math.min(all, events[events.length - 1].distance_km) : all);
}
