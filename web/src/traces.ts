// SPDX-License-Identifier: Apache-2.0
// The traces that are open, and where each comes to lie on the plot.
import type { Curve } from './curve';
import type { Analysis } from './engine';
import type { EventRow, EventTable, LinkTable } from './listing';

export interface Trace {
  id: number;
  name: string; // of the file, with the number of the trace where it holds several
  curve: Curve;
  colour: number; // of the palette
  shown: boolean | null; // as the user has said; else the first few are, and the one whose table is shown
  offsetKm: number; // that the user has moved it by
  offsetDb: number;
  mirroredAtKm: number | null; // length of the fibre, where the trace is seen from the other end
  analysis: Analysis | null;
  analysedBy: number; // which settings it was analysed with
  failure: string; // why there is no table
  warnings: string[];
  card: Record<string, unknown> | null;
}

// The table to be shown: what it is worth and where the link begins are in it, if that was asked for.
export function tableOf(trace: Trace): EventTable | LinkTable | null {
  return trace.analysis ? (trace.analysis.judged ?? trace.analysis.table) : null;
}

// The place from which distances count on a link between reels; a table without reels counts from the trace's own.
export function zeroKm(trace: Trace): number {
  const judged = trace.analysis?.judged;
  if (!judged?.span || judged.events.length === 0) return 0;
  const own = trace.analysis?.table.events[0];
  return own ? own.distance_km - judged.events[0].distance_km : 0;
}

// From places on the trace to places on the plot, and back.
export function plotKm(trace: Trace, km: number): number {
  const counted = km - zeroKm(trace);
  return (trace.mirroredAtKm === null ? counted : trace.mirroredAtKm - counted) + trace.offsetKm;
}
export function traceKm(trace: Trace, km: number): number {
  const shown = km - trace.offsetKm;
  return (trace.mirroredAtKm === null ? shown : trace.mirroredAtKm - shown) + zeroKm(trace);
}

export function eventKm(trace: Trace, event: EventRow): number {
  return plotKm(trace, event.distance_km + zeroKm(trace));
}

// The verdict of a whole trace; unknown without limits.
export function verdictOf(trace: Trace): string {
  return trace.analysis?.judged?.verdict ?? '';
}
