// SPDX-License-Identifier: Apache-2.0
// The curve of a trace, with levels of detail. A screen has some two thousand columns and a trace up to a million
// points. What a column has to show of its points is the lowest and the highest, or a narrow reflection would vanish.
// Both are found once, for groups of 4, 16, 64, ... points; drawing then takes a time that depends on the screen alone.

const GROUP = 4;

export interface Detail {
  group: number; // points that share a lowest and a highest
  low: Float32Array;
  high: Float32Array;
}

export interface Curve {
  km: Float64Array; // of each point, from the user's zero, ascending
  db: Float32Array; // level of each point, 5 log10 of power
  details: Detail[]; // from fine to coarse
  least: number; // of all levels
  most: number;
}

// The lowest and the highest of groups of neighbours. What is no number (a point without light) counts as none.
function coarser(low: Float32Array, high: Float32Array, group: number): Detail {
  const count = Math.ceil(low.length / GROUP);
  const detail: Detail = { group, low: new Float32Array(count), high: new Float32Array(count) };
  for (let i = 0; i < count; ++i) {
    let least = Infinity;
    let most = -Infinity;
    const end = Math.min((i + 1) * GROUP, low.length);
    for (let j = i * GROUP; j < end; ++j) {
      if (low[j] < least) least = low[j];
      if (high[j] > most) most = high[j];
    }
    detail.low[i] = least;
    detail.high[i] = most;
  }
  return detail;
}

export function makeCurve(km: Float64Array, levels: Float64Array): Curve {
  const db: Float32Array = Float32Array.from(levels);
  const details: Detail[] = [];
  let low: Float32Array = db;
  let high: Float32Array = db;
  for (let group = GROUP; db.length / group > 256; group *= GROUP) {
    const detail = coarser(low, high, group);
    details.push(detail);
    low = detail.low;
    high = detail.high;
  }
  let least = Infinity;
  let most = -Infinity;
  for (let i = 0; i < low.length; ++i) {
    if (low[i] < least) least = low[i];
    if (high[i] > most) most = high[i];
  }
  return { km, db, details, least: isFinite(least) ? least : -40, most: isFinite(most) ? most : 0 };
}

// The first point that does not lie before a place.
export function pointAt(curve: Curve, km: number): number {
  let from = 0;
  let to = curve.km.length;
  while (from < to) {
    const middle = (from + to) >> 1;
    if (curve.km[middle] < km) from = middle + 1;
    else to = middle;
  }
  return from;
}

// The point nearest to a place.
export function nearestPoint(curve: Curve, km: number): number {
  const behind = Math.min(pointAt(curve, km), curve.km.length - 1);
  if (behind === 0) return 0;
  return km - curve.km[behind - 1] < curve.km[behind] - km ? behind - 1 : behind;
}

// The level at a place, along the line between the two points around it; none beside the trace.
export function levelAt(curve: Curve, km: number): number | null {
  const count = curve.km.length;
  if (count < 2 || km < curve.km[0] || km > curve.km[count - 1]) return null;
  const behind = Math.max(1, Math.min(pointAt(curve, km), count - 1));
  const share = (km - curve.km[behind - 1]) / (curve.km[behind] - curve.km[behind - 1]);
  const level = curve.db[behind - 1] * (1 - share) + curve.db[behind] * share;
  return isFinite(level) ? level : null;
}

// The lowest and highest level between two places.
export function rangeOf(curve: Curve, fromKm: number, toKm: number): { low: number; high: number } | null {
  const from = pointAt(curve, fromKm);
  const to = Math.min(pointAt(curve, toKm) + 1, curve.db.length);
  const detail = curve.details.filter((one) => (to - from) / one.group > 512).pop();
  const low = detail ? detail.low : curve.db;
  const high = detail ? detail.high : curve.db;
  const group = detail ? detail.group : 1;
  const range = { low: Infinity, high: -Infinity };
  for (let i = Math.floor(from / group); i * group < to; ++i) {
    if (low[i] < range.low) range.low = low[i];
    if (high[i] > range.high) range.high = high[i];
  }
  return isFinite(range.low) && isFinite(range.high) ? range : null;
}

// Where points of a trace come to lie on a picture.
export interface Frame {
  xOf(km: number): number;
  yOf(db: number, km: number): number;
}

// Adds the curve between two places to a path: all points where the columns suffice, else lowest and highest.
export function trace(curve: Curve, fromKm: number, toKm: number, frame: Frame, path: Path2D): void {
  const count = curve.db.length;
  const from = Math.max(0, pointAt(curve, fromKm) - 1);
  const to = Math.min(count, pointAt(curve, toKm) + 2);
  const columns = Math.abs(frame.xOf(toKm) - frame.xOf(fromKm));
  const detail = curve.details.filter((one) => (to - from) / one.group >= columns).pop();
  if (!detail) {
    for (let i = from; i < to; ++i) path.lineTo(frame.xOf(curve.km[i]), frame.yOf(curve.db[i], curve.km[i]));
    return;
  }
  for (let i = Math.floor(from / detail.group); i * detail.group < to; ++i) {
    const km = curve.km[i * detail.group];
    const x = frame.xOf(km);
    path.lineTo(x, frame.yOf(detail.high[i], km));
    path.lineTo(x, frame.yOf(detail.low[i], km));
  }
}
