// SPDX-License-Identifier: Apache-2.0
// The plot below: what the trace is off its fitted sections, or off its baseline, along the same fibre.
import uPlot from 'uplot';
import { Curve, levelAt, makeCurve, pointAt, trace as traceCurve } from './curve';
import type { SectionLine } from './listing';
import { colours } from './look';
import type { Model } from './model';
import { axes, drawCurve, frameOf, seen } from './plot';
import { plotKm, Trace, traceKm } from './traces';
import { scale } from './units';

const MOST_SAMPLES = 3000; // that the height of the picture is chosen by
const SHARE = 0.98; // of them that shall be seen
const LEAST_DB = 0.02;

const lineAt = (line: SectionLine, km: number): number =>
  line[1] + ((line[3] - line[1]) * (km - line[0])) / (line[2] - line[0]);

// The height within which most values lie.
function reach(values: number[]): number {
  const sizes = values.filter(isFinite).map(Math.abs).sort((a, b) => a - b);
  const most = sizes[Math.floor(sizes.length * SHARE)] ?? LEAST_DB;
  return Math.max(most * 1.4, LEAST_DB);
}

// The current trace less its baseline, at the points of the current one, as far as both have light.
function differenceOf(current: Trace, baseline: Trace): Curve {
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

export class Lower {
  private plot: uPlot | null = null;
  private height = 1;
  private difference: { key: string; curve: Curve } | null = null;

  constructor(
    private readonly host: HTMLElement,
    private readonly model: Model,
  ) {}

  private get pair(): [Trace, Trace] | null {
    const compared = this.model.compared;
    const current = compared && this.model.traceOf(compared.pair.current);
    const baseline = compared && this.model.traceOf(compared.pair.baseline);
    return current && baseline ? [current, baseline] : null;
  }

  private get wanted(): boolean {
    return this.model.showResiduals || this.pair !== null;
  }

  rebuild(): void {
    this.plot?.destroy();
    this.plot = null;
    this.host.hidden = !this.wanted;
    if (!this.wanted) return;
    const label = this.pair ? 'difference dB' : 'residual dB';
    this.plot = new uPlot(
      {
        ...this.size(),
        legend: { show: false },
        padding: [6, 44, 0, 0],
        cursor: { drag: { x: false, y: false, setScale: false }, points: { show: false } },
        scales: {
          x: { time: false, range: () => this.rangeKm() },
          y: { range: () => [-this.height, this.height] },
        },
        axes: axes(colours(), label),
        series: [{}, { show: true, stroke: 'transparent', paths: () => null, points: { show: false } }],
        hooks: { draw: [(plot) => this.drawValues(plot)] },
      },
      [this.rangeKm(), [0, 0]],
      this.host,
    );
  }

  private rangeKm(): [number, number] {
    return [this.model.view.fromKm * scale().perKm, this.model.view.toKm * scale().perKm];
  }

  private size(): { width: number; height: number } {
    return { width: Math.max(this.host.clientWidth, 60), height: Math.max(this.host.clientHeight, 60) };
  }

  fitToHost(): void {
    this.plot?.setSize(this.size());
  }

  draw(): void {
    if (this.wanted !== (this.plot !== null)) this.rebuild();
    if (!this.plot) return;
    this.height = this.pair ? this.reachOfDifference() : this.reachOfResiduals();
    this.plot.setData([this.rangeKm(), [0, 0]]);
  }

  private reachOfDifference(): number {
    const pair = this.pair;
    if (!pair) return LEAST_DB;
    const [current, baseline] = pair;
    const key = [current, baseline].map((one) => `${one.id} ${one.offsetKm} ${one.offsetDb} ${one.analysedBy}`).join();
    if (this.difference?.key !== key) this.difference = { key, curve: differenceOf(current, baseline) };
    const { curve } = this.difference;
    const [fromKm, toKm] = seen(this.model, current);
    return reach(samples(curve, fromKm, toKm, (i) => curve.db[i]));
  }

  private reachOfResiduals(): number {
    const trace = this.model.currentTrace;
    const lines = trace?.analysis?.extras.lines ?? [];
    if (!trace) return LEAST_DB;
    const [fromKm, toKm] = seen(this.model, trace);
    const { curve } = trace;
    const values = lines.flatMap((line) =>
      line
        ? samples(curve, Math.max(line[0], fromKm), Math.min(line[2], toKm), (i) => curve.db[i] - lineAt(line, curve.km[i]))
        : [],
    );
    return reach(values);
  }

  private drawValues(plot: uPlot): void {
    const zero = new Path2D();
    const y = plot.valToPos(0, 'y', true);
    zero.moveTo(plot.bbox.left, y);
    zero.lineTo(plot.bbox.left + plot.bbox.width, y);
    drawCurve(plot, zero, colours().muted, 1);
    if (this.pair) this.drawDifference(plot, this.pair[0]);
    else this.drawResiduals(plot);
  }

  private drawDifference(plot: uPlot, current: Trace): void {
    if (!this.difference) return;
    const path = new Path2D();
    const [fromKm, toKm] = seen(this.model, current);
    traceCurve(this.difference.curve, fromKm, toKm, frameOf(plot, current, (db) => db), path);
    drawCurve(plot, path, colours().accent, 1.1);
  }

  private drawResiduals(plot: uPlot): void {
    const trace = this.model.currentTrace;
    if (!trace?.analysis) return;
    const [fromKm, toKm] = seen(this.model, trace);
    for (const line of trace.analysis.extras.lines) {
      if (!line || line[0] > toKm || line[2] < fromKm) continue;
      const path = new Path2D();
      const frame = frameOf(plot, trace, (db, km) => db - lineAt(line, km));
      traceCurve(trace.curve, Math.max(line[0], fromKm), Math.min(line[2], toKm), frame, path);
      drawCurve(plot, path, colours().curves[trace.colour % 8], 1);
    }
  }
}

// Values at some points between two places, enough to tell how high a picture of all has to be.
function samples(curve: Curve, fromKm: number, toKm: number, valueAt: (point: number) => number): number[] {
  if (!(fromKm < toKm)) return [];
  const from = pointAt(curve, fromKm);
  const to = pointAt(curve, toKm);
  const stride = Math.max(1, Math.floor((to - from) / MOST_SAMPLES));
  const values: number[] = [];
  for (let i = from; i < to; i += stride) values.push(valueAt(i));
  return values;
}
