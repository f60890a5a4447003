// SPDX-License-Identifier: Apache-2.0
// Lengths in the unit that the user reads, and numbers as they are shown. What was not measured is "-".
import type { Maybe } from './listing';

export type Unit = 'km' | 'm' | 'ft' | 'kft' | 'mi';

interface Scale {
  perKm: number;
  decimals: number; // of places: centimetres, or nearly so
  slope: string; // unit that attenuations are told for
  kmPerSlope: number;
}

const METRES_PER_FOOT = 0.3048;
const METRES_PER_MILE = 1609.344;

const SCALES: Record<Unit, Scale> = {
  km: { perKm: 1, decimals: 4, slope: 'dB/km', kmPerSlope: 1 },
  m: { perKm: 1000, decimals: 1, slope: 'dB/km', kmPerSlope: 1 },
  ft: { perKm: 1000 / METRES_PER_FOOT, decimals: 1, slope: 'dB/kft', kmPerSlope: METRES_PER_FOOT },
  kft: { perKm: 1 / METRES_PER_FOOT, decimals: 4, slope: 'dB/kft', kmPerSlope: METRES_PER_FOOT },
  mi: { perKm: 1000 / METRES_PER_MILE, decimals: 4, slope: 'dB/mi', kmPerSlope: METRES_PER_MILE / 1000 },
};
export const UNITS = Object.keys(SCALES) as Unit[];

let unit: Unit = 'km';

export const isUnit = (text: string): text is Unit => text in SCALES;
export const currentUnit = (): Unit => unit;
export function setUnit(next: Unit): void {
  unit = next;
}
export const scale = (): Scale => SCALES[unit];

// A minus that no break divides, and no "-0.000".
function signed(text: string): string {
  return (/^-0\.?0*$/.test(text) ? text.slice(1) : text).replace('-', '\u2212');
}

export function fixed(value: Maybe | undefined, decimals: number): string {
  return value === null || value === undefined || !isFinite(value) ? '-' : signed(value.toFixed(decimals));
}

export function place(km: Maybe | undefined, extra = 0): string {
  return fixed(km === null || km === undefined ? null : km * scale().perKm, scale().decimals + extra);
}
export const placeWithUnit = (km: Maybe | undefined): string => `${place(km)} ${unit}`;

// A standard deviation, rounded up and never 0: one that looks less than it is would be a promise.
export function deviation(value: Maybe | undefined, decimals: number): string {
  if (value === null || value === undefined || !isFinite(value)) return '';
  const steps = 10 ** decimals;
  return '±' + (Math.max(1, Math.ceil(value * steps - 1e-9)) / steps).toFixed(decimals);
}

export function placeDeviation(metres: Maybe | undefined): string {
  if (metres === null || metres === undefined) return '';
  const inFeet = unit === 'ft' || unit === 'kft' || unit === 'mi';
  return deviation(inFeet ? metres / METRES_PER_FOOT : metres, 2) + (inFeet ? ' ft' : ' m');
}

// An attenuation per unit of length.
export function slope(dbPerKm: Maybe | undefined, decimals = 3): string {
  return fixed(dbPerKm === null || dbPerKm === undefined ? null : dbPerKm * scale().kmPerSlope, decimals);
}
export function slopeDeviation(dbPerKm: Maybe | undefined, decimals = 3): string {
  if (dbPerKm === null || dbPerKm === undefined) return '';
  return deviation(dbPerKm * scale().kmPerSlope, decimals);
}

// A reflectance that a saturated receiver shows is at least so high.
export const reflectance = (value: Maybe | undefined, atLeast: boolean | undefined): string =>
  (atLeast && value !== null && value !== undefined ? '> ' : '') + fixed(value, 2);
