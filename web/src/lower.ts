// SPDX-License-Identifier: Apache-2.0
// The plot below: what the trace is off its fitted sections, or off its baseline, along the same fibre.
import uPlot from 'uplot';
import { Curve, pointAt, trace as traceCurve } from './curve';
import { colours } from './look';
import type { Model } from './model';
import { axes, drawCurve, frameOf, seen } from './plot';
import { differenceOf, residualsOf } from './rest';
import type { Trace } from './traces';
import { scale } from './units';

const MOST_SAMPLES = 3000; // that the height of the picture is chosen by
const SHARE = 0.98; // of them that shall be seen
const LEAST_DB = 0.02;

// The height within which most values lie.
function reach(values: number[]): number {
  const sizes = values.filter(isFinite).map(Math.abs).sort((a, b) => a - b);
  const most = sizes[Math.floor(sizes.length * SHARE)] ?? LEAST_DB;
  return Math.max(most * 1.4, LEAST_DB);
}

export class Lower {
  private plot: uPlot | null = null;
  private height = 1;
  private label = '';
  private kept: { key: string; curve: Curve } | null = null;

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

  private get labelNow(): string {
    return this.pair ? 'difference dB' : 'residual dB';
  }

  rebuild(): void {
    this.plot?.destroy();
    this.plot = null;
    this.host.hidden = !this.wanted;
    if (!this.wanted) return;
    this.label = this.labelNow;
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
        axes: axes(colours(), this.label),
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
    if (this.wanted !== (this.plot !== null) || (this.plot && this.label !== this.labelNow)) this.rebuild();
    if (!this.plot) return;
    const rest = this.rest();
    const trace = this.pair?.[0] ?? this.model.currentTrace;
    this.height = rest && trace ? reach(samples(rest, ...seen(this.model, trace))) : LEAST_DB;
    this.plot.setData([this.rangeKm(), [0, 0]]);
  }

  // Made once for a trace with its settings, or for a pair.
  private rest(): Curve | null {
    const traces = this.pair ?? [this.model.currentTrace];
    const [trace, baseline] = traces;
    if (!trace) return null;
    const key = traces.map((one) => one && `${one.id} ${one.offsetKm} ${one.offsetDb} ${one.analysedBy} ${one.analysis !== null}`).join();
    if (this.kept?.key !== key)
      this.kept = { key, curve: baseline ? differenceOf(trace, baseline) : residualsOf(trace.curve, trace.analysis?.extras.lines ?? []) };
    return this.kept.curve;
  }

  private drawValues(plot: uPlot): void {
    const zero = new Path2D();
    const y = plot.valToPos(0, 'y', true);
    zero.moveTo(plot.bbox.left, y);
    zero.lineTo(plot.bbox.left + plot.bbox.width, y);
    drawCurve(plot, zero, colours().muted, 1);
    const rest = this.rest();
    const trace = this.pair?.[0] ?? this.model.currentTrace;
    if (!rest || !trace) return;
    const [fromKm, toKm] = seen(this.model, trace);
    const stretches = this.pair ? [[fromKm, toKm]] : (trace.analysis?.extras.lines ?? []).flatMap((line) => (line ? [[line[0], line[2]]] : []));
    const path = new Path2D();
    for (const [from, to] of stretches) {
      if (from > toKm || to < fromKm) continue;
      // A stretch begins a line of its own.
      const part = new Path2D();
      traceCurve(rest, Math.max(from, fromKm), Math.min(to, toKm), frameOf(plot, trace, (db) => db), part);
      path.addPath(part);
    }
    drawCurve(plot, path, this.pair ? colours().accent : colours().curves[trace.colour % 8], 1);
  }
}

// Values at some points between two places, enough to tell how high a picture of all has to be.
function samples(curve: Curve, fromKm: number, toKm: number): number[] {
  if (!(fromKm < toKm)) return [];
  const from = pointAt(curve, fromKm);
  const to = pointAt(curve, toKm);
  const stride = Math.max(1, Math.floor((to - from) / MOST_SAMPLES));
  const values: number[] = [];
  for (let i = from; i < to; i += stride) values.push(curve.db[i]);
  return values;
}
