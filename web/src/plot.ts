// SPDX-License-Identifier: Apache-2.0
// The plot: axes and grid by uPlot, curves drawn straight from their levels of detail. Below it there may be a second
// one on the same fibre, of residuals or of a difference.
import uPlot from 'uplot';
import { Frame, trace as traceCurve } from './curve';
import { el, perFrame } from './dom';
import { colours, Colours, mixed } from './look';
import { Lower } from './lower';
import { MARKER_NAMES, Model } from './model';
import { Signs } from './signs';
import { plotKm, Trace, traceKm } from './traces';
import { currentUnit, scale } from './units';

const NOISE = 0.4; // of the strength of a curve
const TAIL_PULSES = 4; // behind the end, until its own light is gone

// Where a trace shows no more light: a little behind its end, or nowhere if that is not known.
function noiseFromKm(trace: Trace): number {
  const table = trace.analysis?.table;
  const METRES_PER_NS = 0.102; // of fibre, there and back
  if (!table || table.events.length < 2) return Infinity;
  return table.events[table.events.length - 1].distance_km + (TAIL_PULSES * table.pulse_ns * METRES_PER_NS) / 1000;
}

const AXIS_FONT = '12px system-ui, sans-serif';

// Where a trace comes to lie on the canvas of a plot.
export function frameOf(plot: uPlot, trace: Trace, yOf?: (db: number, km: number) => number): Frame {
  const per = scale().perKm;
  const left = plot.valToPos(0, 'x', true);
  const perKm = (plot.valToPos(1, 'x', true) - left) * per;
  const zero = left + perKm * plotKm(trace, 0);
  const sign = plotKm(trace, 1) > plotKm(trace, 0) ? perKm : -perKm;
  const top = plot.valToPos(0, 'y', true);
  const perDb = plot.valToPos(1, 'y', true) - top;
  return {
    xOf: (km) => zero + sign * km,
    yOf: (db, km) => top + perDb * (yOf ? yOf(db, km) : db + trace.offsetDb),
  };
}

// The stretch of a trace that is seen, ascending.
export function seen(model: Model, trace: Trace): [number, number] {
  const ends = [traceKm(trace, model.view.fromKm), traceKm(trace, model.view.toKm)];
  return [Math.min(...ends), Math.max(...ends)];
}

export function drawCurve(plot: uPlot, path: Path2D, colour: string, width = 1.5, dash: number[] = []): void {
  const { ctx, bbox } = plot;
  ctx.save();
  ctx.beginPath();
  ctx.rect(bbox.left, bbox.top, bbox.width, bbox.height);
  ctx.clip();
  ctx.strokeStyle = colour;
  ctx.setLineDash(dash.map((length) => length * devicePixelRatio));
  ctx.lineWidth = width * devicePixelRatio;
  ctx.lineJoin = 'round';
  ctx.stroke(path);
  ctx.restore();
}

export function axes(look: Colours, label: string): uPlot.Axis[] {
  const common = {
    stroke: look.muted,
    font: AXIS_FONT,
    grid: { stroke: look.grid, width: 1 },
    ticks: { stroke: look.grid, width: 1, size: 4 },
  };
  return [
    { ...common, size: 30, space: 70 },
    { ...common, size: 52, space: 34, label, labelSize: 18, labelFont: AXIS_FONT, labelGap: 0 },
  ];
}

export class Plot {
  private plot: uPlot | null = null;
  private readonly signs: Signs;
  private readonly lower: Lower;
  readonly over = el('div', { class: 'over' });
  onDrawn: () => void = () => undefined; // what lies over the curve comes to its place
  private readonly redraw = perFrame(() => this.drawNow());

  constructor(
    private readonly host: HTMLElement,
    lowerHost: HTMLElement,
    private readonly model: Model,
  ) {
    this.signs = new Signs(model);
    this.lower = new Lower(lowerHost, model);
    new ResizeObserver(() => this.fitToHost()).observe(host);
    model.onChange((changes) => {
      if (changes.has('listed') && changes.size === 1) return;
      if (changes.has('look')) this.rebuild();
      if (changes.has('tables') || changes.has('current') || changes.has('look')) this.signs.rebuild();
      this.redraw();
    });
    this.rebuild();
  }

  // Places on the plot of a point of the screen.
  at(event: { clientX: number; clientY: number }): { km: number; db: number } | null {
    if (!this.plot) return null;
    const box = this.plot.over.getBoundingClientRect();
    return {
      km: this.plot.posToVal(event.clientX - box.left, 'x') / scale().perKm,
      db: this.plot.posToVal(event.clientY - box.top, 'y'),
    };
  }

  get surface(): HTMLElement | null {
    return this.plot?.over ?? null;
  }

  // Pixels of the screen, from the left of the drawing.
  xOf(km: number): number {
    return this.plot ? this.plot.valToPos(km * scale().perKm, 'x') : 0;
  }

  // How much fibre and how many dB a pixel of the screen stands for.
  get perPixel(): { km: number; db: number } {
    const box = this.plot?.over.getBoundingClientRect();
    const { fromKm, toKm, fromDb, toDb } = this.model.view;
    if (!box || box.width === 0) return { km: 0, db: 0 };
    return { km: (toKm - fromKm) / box.width, db: (toDb - fromDb) / box.height };
  }

  // Draws at once, at the size that the page now has, such as for paper.
  settle(): void {
    this.fitToHost();
    this.drawNow();
  }

  private rebuild(): void {
    this.plot?.destroy();
    this.host.dataset.unit = currentUnit();
    const look = colours();
    this.plot = new uPlot(
      {
        ...this.size(),
        legend: { show: false },
        padding: [8, 44, 0, 0],
        cursor: { drag: { x: false, y: false, setScale: false }, points: { show: false } },
        scales: {
          x: { time: false, range: () => this.rangeKm() },
          y: { range: () => [this.model.view.fromDb, this.model.view.toDb] },
        },
        axes: axes(look, 'dB'),
        series: [{}, { show: true, stroke: 'transparent', paths: () => null, points: { show: false } }],
        hooks: { draw: [(plot) => this.draw(plot)] },
      },
      this.data(),
      this.host,
    );
    this.plot.over.append(this.over, this.signs.layer);
    this.lower.rebuild();
  }

  private size(): { width: number; height: number } {
    return { width: Math.max(this.host.clientWidth, 60), height: Math.max(this.host.clientHeight, 60) };
  }

  private fitToHost(): void {
    this.plot?.setSize(this.size());
    this.lower.fitToHost();
  }

  private rangeKm(): [number, number] {
    const per = scale().perKm;
    return [this.model.view.fromKm * per, this.model.view.toKm * per];
  }

  // uPlot asks its data for nothing but an extent.
  private data(): uPlot.AlignedData {
    return [this.rangeKm(), [this.model.view.fromDb, this.model.view.toDb]];
  }

  private drawNow(): void {
    this.plot?.setData(this.data());
    this.lower.draw();
  }

  private draw(plot: uPlot): void {
    const look = colours();
    const last = this.model.currentTrace;
    const ordered = this.model.traces.filter((one) => one !== last && this.model.shows(one));
    if (last && this.model.shows(last)) ordered.push(last);
    for (const one of ordered) this.drawTrace(plot, one, look, one === last ? 1.6 : 1.1);
    if (this.model.showLines) this.drawLines(plot, look);
    this.signs.draw(plot, look);
    this.drawMarkers(plot, look);
    this.onDrawn();
  }

  // Behind the end there is noise alone, which is drawn paler than the fibre.
  private drawTrace(plot: uPlot, trace: Trace, look: Colours, width: number): void {
    const [fromKm, toKm] = seen(this.model, trace);
    const frame = frameOf(plot, trace);
    const endKm = noiseFromKm(trace);
    const colour = look.curves[trace.colour % look.curves.length];
    if (endKm < toKm) {
      const noise = new Path2D();
      traceCurve(trace.curve, Math.max(endKm, fromKm), toKm, frame, noise);
      drawCurve(plot, noise, mixed(colour, look.surface, NOISE), 1);
    }
    const path = new Path2D();
    traceCurve(trace.curve, fromKm, Math.min(toKm, endKm), frame, path);
    drawCurve(plot, path, colour, width);
  }

  // The sections of the fibre as they were fitted.
  private drawLines(plot: uPlot, look: Colours): void {
    const trace = this.model.currentTrace;
    if (!trace?.analysis || !this.model.shows(trace)) return;
    const frame = frameOf(plot, trace);
    const path = new Path2D();
    for (const line of trace.analysis.extras.lines) {
      if (!line) continue;
      path.moveTo(frame.xOf(line[0]), frame.yOf(line[1], line[0]));
      path.lineTo(frame.xOf(line[2]), frame.yOf(line[3], line[2]));
    }
    drawCurve(plot, path, look.lines, 1.6, [7, 5]);
  }

  private drawMarkers(plot: uPlot, look: Colours): void {
    this.model.markers?.forEach((km, i) => {
      const x = plot.valToPos(km * scale().perKm, 'x', true);
      const path = new Path2D();
      path.moveTo(x, plot.bbox.top);
      path.lineTo(x, plot.bbox.top + plot.bbox.height);
      drawCurve(plot, path, MARKER_NAMES[i].toLowerCase() === 'a' ? look.left : look.right, i % 3 === 0 ? 1 : 1.6);
    });
  }
}
