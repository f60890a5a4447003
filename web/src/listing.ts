// SPDX-License-Identifier: Apache-2.0
// The listings of the engine, as the program prints them. A number that was not measured is null.

export type Maybe = number | null;
export type Verdict = 'pass' | 'warning' | 'marginal' | 'fail' | null;

export interface EventVerdict {
  loss: Verdict;
  reflectance: Verdict;
  attenuation: Verdict;
  group?: number;
  group_loss_db?: Maybe;
  group_limit_db?: Maybe;
}
export interface LinkVerdicts {
  length: Verdict;
  span_loss: Verdict;
  return_loss: Verdict;
  link_attenuation: Verdict;
  sentences: string[];
}

export interface EventRow {
  number: number;
  ept: number;
  distance_km: number;
  distance_sd_m?: Maybe;
  type: string;
  code: string;
  loss_db: Maybe;
  loss_sd_db?: Maybe;
  reflectance_db: Maybe;
  reflectance_sd_db?: Maybe;
  reflectance_at_least: boolean;
  attenuation_db_per_km: Maybe;
  attenuation_sd_db_per_km?: Maybe;
  cumulated_db: Maybe;
  probability?: Maybe;
  comment: string;
  verdict?: EventVerdict;
}

export interface EventTable {
  file: string;
  points: number;
  wavelength_nm: number;
  pulse_ns: number;
  spacing_m: number;
  thresholds: { lt_db: Maybe; rt_db: Maybe; et_db: Maybe; ct_db_per_km: Maybe };
  noise_floor_db: number;
  length_km: Maybe;
  total_loss_db: Maybe;
  total_loss_sd_db?: Maybe;
  orl_db: Maybe;
  fibre: boolean;
  warnings: string[];
  events: EventRow[];
}

export interface Span {
  first_event: Maybe;
  last_event: Maybe;
  length_km: number;
  loss_db: Maybe;
  loss_sd_db: Maybe;
  orl_db: Maybe;
}

// A table with what it is worth against limits, between the reels of fibre at both ends.
export interface LinkTable extends EventTable {
  span?: Span;
  verdict?: Verdict;
  verdicts?: LinkVerdicts;
}

// A section as it was fitted: from km, dB to km, dB.
export type SectionLine = [number, number, number, number];
export interface Extras {
  lines: (SectionLine | null)[];
}

export interface OpenedFile {
  traces: { id: number; part: number; points: number; why: string }[];
  warnings: string[];
}

export interface PlaceMeasure {
  kind: string;
  level_db?: Maybe;
  level_sd_db?: Maybe;
  loss_db?: Maybe;
  loss_sd_db?: Maybe;
  attenuation_db_per_km?: Maybe;
  attenuation_sd_db_per_km?: Maybe;
  orl_db?: Maybe;
  orl_sd_db?: Maybe;
  orl_at_most?: boolean;
  reflectance_db?: Maybe;
  reflectance_sd_db?: Maybe;
  reflectance_at_least?: boolean;
  warnings: string[];
}
export type Answer<T> = T & { error?: string };

export interface Change {
  deviation_db: Maybe;
  compared: boolean;
  exceeded: boolean;
  measured_db: Maybe;
  measured_sd_db: Maybe;
  contradicted: boolean;
}
export interface ComparedRow extends EventRow {
  monitored: boolean;
  new: boolean;
  fail: boolean;
  fiber_break: boolean;
  lt: Change;
  rt: Change;
  ct: Change;
}
export interface Comparison {
  file: string;
  baseline: string;
  result: number;
  fail: boolean;
  level: string;
  sentences: string[];
  events: ComparedRow[];
}
export interface ComparisonExtras {
  warnings: string[];
  made_baseline: boolean;
  changed: boolean;
}

export interface MergedRow {
  number: number;
  distance_km: number;
  code: string;
  loss_a_db: Maybe;
  loss_a_sd_db: Maybe;
  loss_b_db: Maybe;
  loss_b_sd_db: Maybe;
  loss_db: Maybe;
  loss_sd_db: Maybe;
  reflectance_a_db: Maybe;
  reflectance_b_db: Maybe;
  seen_from: string;
  attenuation_db_per_km?: Maybe; // of the section in front, between reels
  verdict?: EventVerdict;
}
// Between reels with the totals of the link, with limits with what each number is worth.
export interface MergedTable {
  a: string;
  b: string;
  pulse_ns: number;
  length_km: number;
  events: MergedRow[];
  span_a?: Span;
  span_b?: Span;
  ends_apart_m?: Maybe;
  loss_db?: Maybe;
  loss_sd_db?: Maybe;
  orl_db?: Maybe;
  verdict?: Verdict;
  verdicts?: LinkVerdicts;
}
