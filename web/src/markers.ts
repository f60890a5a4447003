// SPDX-License-Identifier: Apache-2.0
// The markers a, A, B, b on the plot. A and B bound a stretch; with a and b they bound the fibre in front of an event
// and behind it. Each handle is dragged, or moved by arrow keys: a point of the trace, with Shift ten.
import { el } from './dom';
import { nearestPoint } from './curve';
import { MARKER_NAMES, Markers, Model } from './model';
import type { Plot } from './plot';
import { eventKm, plotKm, tableOf, Trace, traceKm } from './traces';
import { placeWithUnit } from './units';

const MEANING = ['begin of the line in front', 'A', 'B', 'end of the line behind'];

export class MarkerHandles {
  private readonly handles: HTMLElement[];

  constructor(
    private readonly model: Model,
    private readonly plot: Plot,
  ) {
    this.handles = MARKER_NAMES.map((name, i) => this.handle(name, i));
    plot.over.append(...this.handles);
    plot.onDrawn = () => this.place();
  }

  private handle(name: string, index: number): HTMLElement {
    const handle = el('div', {
      class: `marker ${name.toLowerCase() === 'a' ? 'left' : 'right'}`,
      role: 'slider',
      tabindex: 0,
      hidden: true,
      'aria-label': `Marker ${name}, ${MEANING[index]}`,
      text: name,
    });
    handle.addEventListener('keydown', (event) => this.key(event, index));
    handle.addEventListener('pointerdown', (event) => {
      event.stopPropagation();
      event.preventDefault();
      handle.focus();
      handle.setPointerCapture(event.pointerId);
    });
    handle.addEventListener('pointermove', (event) => {
      if (!handle.hasPointerCapture(event.pointerId)) return;
      event.stopPropagation();
      const at = this.plot.at(event);
      if (at) this.move(index, at.km);
    });
    return handle;
  }

  private key(event: KeyboardEvent, index: number): void {
    const by = event.key === 'ArrowRight' || event.key === 'ArrowUp' ? 1 : event.key === 'ArrowLeft' || event.key === 'ArrowDown' ? -1 : 0;
    const { markers, currentTrace: trace } = this.model;
    if (by === 0 || !markers || !trace) return;
    event.preventDefault();
    event.stopPropagation();
    const { km } = trace.curve;
    const sign = trace.mirroredAtKm === null ? 1 : -1;
    const point = nearestPoint(trace.curve, traceKm(trace, markers[index])) + sign * by * (event.shiftKey ? 10 : 1);
    this.move(index, plotKm(trace, km[Math.max(0, Math.min(km.length - 1, point))]));
  }

  // Markers stay in their order: one that is moved pushes those before it along.
  private move(index: number, km: number): void {
    const { markers, currentTrace: trace } = this.model;
    if (!markers || !trace) return;
    const moved = [...markers] as Markers;
    moved[index] = snapped(trace, km);
    for (let i = index + 1; i < 4; ++i) moved[i] = Math.max(moved[i], moved[i - 1]);
    for (let i = index - 1; i >= 0; --i) moved[i] = Math.min(moved[i], moved[i + 1]);
    this.model.markers = moved;
    this.model.changed('markers');
  }

  private place(): void {
    const { markers, view } = this.model;
    this.handles.forEach((handle, i) => {
      const km = markers?.[i] ?? null;
      handle.hidden = km === null || km < view.fromKm || km > view.toKm;
      if (km === null || handle.hidden) return;
      handle.style.left = `${this.plot.xOf(km)}px`;
      handle.setAttribute('aria-valuemin', String(view.fromKm));
      handle.setAttribute('aria-valuemax', String(view.toKm));
      handle.setAttribute('aria-valuenow', String(km));
      handle.setAttribute('aria-valuetext', placeWithUnit(km));
    });
  }
}

function snapped(trace: Trace, km: number): number {
  return plotKm(trace, trace.curve.km[nearestPoint(trace.curve, traceKm(trace, km))]);
}

// Around the chosen event, or a quarter and three quarters of what is seen.
export function firstMarkers(model: Model): Markers | null {
  const trace = model.currentTrace;
  if (!trace) return null;
  const { fromKm, toKm } = model.view;
  const places = aroundEvent(model, trace) ?? [0.2, 0.4, 0.6, 0.8].map((share) => fromKm + share * (toKm - fromKm));
  const margin = 0.02 * (toKm - fromKm);
  const inside = places.map((km) => Math.min(Math.max(km, fromKm + margin), toKm - margin));
  return inside.map((km) => snapped(trace, km)).sort((a, b) => a - b) as Markers;
}

// The lines in front and behind reach half way to the neighbours; the event itself is a pulse long.
function aroundEvent(model: Model, trace: Trace): number[] | null {
  const table = tableOf(trace);
  const event = table?.events[model.selected];
  if (!table || !event) return null;
  const METRES_PER_NS = 0.102; // of fibre that a pulse covers, there and back
  const pulseKm = (table.pulse_ns * METRES_PER_NS) / 1000;
  const before = table.events[model.selected - 1]?.distance_km ?? event.distance_km - 10 * pulseKm;
  const behind = table.events[model.selected + 1]?.distance_km ?? event.distance_km + 10 * pulseKm;
  const shift = eventKm(trace, event) - event.distance_km;
  const a = event.distance_km - Math.max((event.distance_km - before) / 2, pulseKm);
  const b = event.distance_km + Math.max((behind - event.distance_km) * 0.8, 3 * pulseKm);
  return [a, event.distance_km, event.distance_km + Math.min(2 * pulseKm, (behind - event.distance_km) / 2), b].map((km) => km + shift);
}
