// SPDX-License-Identifier: Apache-2.0
// Which stretch of fibre and which levels are seen, and how hands change that.
import { rangeOf } from './curve';
import type { Model, View } from './model';
import { plotKm, tableOf, Trace, traceKm } from './traces';

const MARGIN = 0.06; // of what is fitted, on each side
const LEAST_POINTS = 8; // that are seen at the highest zoom
const LEAST_DB = 0.02;
const PULSES = 12; // in front of an event that is looked at closely

// A stretch of a trace as it lies on the plot.
function stretch(trace: Trace, fromKm: number, toKm: number): [number, number] {
  const ends = [plotKm(trace, fromKm), plotKm(trace, toKm)];
  return [Math.min(...ends), Math.max(...ends)];
}

function wholeOf(trace: Trace): [number, number] {
  return stretch(trace, trace.curve.km[0], trace.curve.km[trace.curve.km.length - 1]);
}

// From the launch to the end of the fibre; the whole trace where no fibre is known.
function fibreOf(trace: Trace): [number, number] {
  const events = trace.analysis?.table.events ?? [];
  if (events.length < 2) return wholeOf(trace);
  return stretch(trace, events[0].distance_km, events[events.length - 1].distance_km);
}

function shown(model: Model): Trace[] {
  const visible = model.traces.filter((trace) => model.shows(trace));
  return visible.length > 0 ? visible : model.traces;
}

// Levels of what is seen between two places, with some room above for the signs of events.
function levels(traces: Trace[], fromKm: number, toKm: number): [number, number] {
  let low = Infinity;
  let high = -Infinity;
  for (const trace of traces) {
    const [from, to] = [traceKm(trace, fromKm), traceKm(trace, toKm)].sort((a, b) => a - b);
    const range = rangeOf(trace.curve, from, to);
    if (!range) continue;
    // Noise behind the end reaches down to any depth; its own floor is depth enough.
    const table = trace.analysis?.table;
    const floor = table ? table.noise_floor_db - 6 : -Infinity;
    low = Math.min(low, Math.max(range.low, floor) + trace.offsetDb);
    high = Math.max(high, range.high + trace.offsetDb);
  }
  if (!(low < high)) return [-40, 0];
  return [low - MARGIN * (high - low), high + 3 * MARGIN * (high - low)];
}

function around(model: Model, from: number, to: number): View {
  const margin = MARGIN * Math.max(to - from, 1e-4);
  const [fromKm, toKm] = [from - margin, to + margin];
  const [fromDb, toDb] = levels(shown(model), fromKm, toKm);
  return { fromKm, toKm, fromDb, toDb };
}

// The fibre from launch to end, with all its levels.
export function fitted(model: Model): View {
  if (model.traces.length === 0) return model.view;
  const stretches = shown(model).map(fibreOf);
  return around(model, Math.min(...stretches.map((one) => one[0])), Math.max(...stretches.map((one) => one[1])));
}

// All that the instrument has taken, one to one.
export function whole(model: Model): View {
  if (model.traces.length === 0) return model.view;
  const stretches = shown(model).map(wholeOf);
  return around(model, Math.min(...stretches.map((one) => one[0])), Math.max(...stretches.map((one) => one[1])));
}

// Keeps a view within a screen of the traces, and off depths where there are no more points.
export function bounded(model: Model, view: View): View {
  const all = whole(model);
  const points = Math.min(...shown(model).map((one) => (one.curve.km[1] ?? 1) - (one.curve.km[0] ?? 0)), 1);
  const widthKm = Math.min(Math.max(view.toKm - view.fromKm, LEAST_POINTS * points), all.toKm - all.fromKm);
  const heightDb = Math.min(Math.max(view.toDb - view.fromDb, LEAST_DB), 200);
  const middleKm = (view.fromKm + view.toKm) / 2;
  const middleDb = (view.fromDb + view.toDb) / 2;
  const fromKm = Math.min(Math.max(middleKm - widthKm / 2, all.fromKm), all.toKm - widthKm);
  return {
    fromKm,
    toKm: fromKm + widthKm,
    fromDb: middleDb - heightDb / 2,
    toDb: middleDb + heightDb / 2,
  };
}

// A factor below 1 shows less of the fibre, larger. What is at the place stays where it is.
export function zoomKm(model: Model, factor: number, atKm: number): void {
  const { view } = model;
  model.setView(
    bounded(model, {
      ...view,
      fromKm: atKm - (atKm - view.fromKm) * factor,
      toKm: atKm + (view.toKm - atKm) * factor,
    }),
  );
}

export function zoomDb(model: Model, factor: number, atDb: number): void {
  const { view } = model;
  model.setView(
    bounded(model, {
      ...view,
      fromDb: atDb - (atDb - view.fromDb) * factor,
      toDb: atDb + (view.toDb - atDb) * factor,
    }),
  );
}

export function pan(model: Model, byKm: number, byDb: number): void {
  const { fromKm, toKm, fromDb, toDb } = model.view;
  model.setView(
    bounded(model, { fromKm: fromKm + byKm, toKm: toKm + byKm, fromDb: fromDb + byDb, toDb: toDb + byDb }),
  );
}

// An event by itself: some pulses around it, with the levels that are there.
export function closeUp(model: Model, km: number, pulseNs: number): View {
  const METRES_PER_NS = 0.102; // of fibre that a pulse covers, there and back
  const reach = Math.max((PULSES * pulseNs * METRES_PER_NS) / 1000, 1e-3);
  const [from, to] = [km - reach, km + 2 * reach];
  const [fromDb, toDb] = levels(shown(model), from, to);
  return bounded(model, { fromKm: from, toKm: to, fromDb, toDb });
}

// Moves the view so that an event is in it.
export function bringIntoView(model: Model, km: number): void {
  const { fromKm, toKm } = model.view;
  const width = toKm - fromKm;
  if (km > fromKm + width * 0.03 && km < toKm - width * 0.03) return;
  pan(model, km - (fromKm + toKm) / 2, 0);
}

// Goes to the next event of the table, or to the one before.
export function step(model: Model, by: number): void {
  const trace = model.currentTrace;
  const table = trace && tableOf(trace);
  if (!trace || !table || table.events.length === 0) return;
  const last = table.events.length - 1;
  const next = model.selected < 0 ? (by > 0 ? 0 : last) : model.selected + by;
  model.select(Math.max(0, Math.min(last, next)));
}
