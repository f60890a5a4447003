// SPDX-License-Identifier: Apache-2.0
// What a centre tells and takes, as its /openapi.json describes it.

export type Severity = 'warning' | 'minor' | 'major' | 'critical';

export interface Fibre {
  name: string;
  title: string;
  from: string;
  to: string;
  instrument: string;
  state: Severity | 'ok' | 'not measured' | 'no baseline';
  alarms: number;
  unacknowledged: number;
  last_taken_at: number;
  last_received_at: number;
  waiting: number;
  baseline: number | null;
  has_route: boolean;
  route?: unknown;
}

export interface Alarm {
  id: number;
  fibre: string;
  instrument: string;
  kind: string;
  severity: Severity;
  state: string;
  km: number | null;
  sd_km: number;
  sentence: string;
  trace: number;
  raised_at: number;
  confirmed_at: number;
  cleared_at: number;
  acknowledged_at: number;
  acknowledged_by: string;
}

export interface MeasuredEvent {
  event: number;
  km: number;
  type: string;
  loss_db: number | null;
  reflectance_db: number | null;
  fail?: boolean;
}

export interface Comparison {
  id: number;
  trace: number;
  taken_at: number;
  changed: boolean;
  late: boolean;
  end_km: number;
  sentences: string[];
  events: MeasuredEvent[];
}

export interface TraceRow {
  id: number;
  taken_at: number;
  state: 'waiting' | 'done' | 'bad';
  problem: string;
}

export interface Day {
  day: number; // since 1970
  loss_db: number | null;
  reflectance_db: number | null;
}

export interface Trend {
  event: number;
  quantity: string;
  per_month: number;
  low_per_month: number;
  high_per_month: number;
  creeps: boolean;
  days: number;
}

export interface Place {
  latitude: number;
  longitude: number;
  sd_m: number;
  near: string;
  near_m: number;
  on_route: boolean;
  stretch: [number, number][];
}

const CLOCK_OFF_MS = 5000; // less may be the way to the centre, and the whole seconds of its date

// Somebody has to sign in first, or again.
export class SignIn extends Error {}

// The clock of whoever looks may be wrong; what is "3 min ago" is so by the clock of the centre.
let aheadMs = 0;
export const now = (): number => Date.now() + aheadMs;

async function ask(path: string, init: RequestInit = {}): Promise<unknown> {
  const answer = await fetch(path, {
    ...init,
    headers: { 'X-Requested-With': 'page', ...(init.body ? { 'Content-Type': 'application/json' } : {}) },
  });
  const date = Date.parse(answer.headers.get('date') ?? '');
  if (isFinite(date)) aheadMs = Math.abs(date - Date.now()) > CLOCK_OFF_MS ? date - Date.now() : 0;
  if (answer.status === 401) throw new SignIn('sign in');
  const text = await answer.text();
  const value = text ? (JSON.parse(text) as { error?: string }) : {};
  if (!answer.ok) throw new Error(value.error ?? `the centre answered ${answer.status}`);
  return value;
}

const of = (fibre: string): string => `fibres/${encodeURIComponent(fibre)}`;

export const me = async () => (await ask('me')) as { name: string; role: string };
export const behindMap = async () => (await ask('map')) as { tiles: string | null; credit: string | null };
export const signIn = (name: string, password: string) =>
  ask('login', { method: 'POST', body: JSON.stringify({ name, password }) });
export const signOut = () => ask('logout', { method: 'POST' });

// All pages of a list.
async function pages<Row>(path: string, key: string, word: string): Promise<Row[]> {
  const all: Row[] = [];
  for (let next = ''; ; ) {
    const page = (await ask(path + (next && `&${word}=${encodeURIComponent(next)}`))) as Record<string, unknown>;
    all.push(...(page[key] as Row[]));
    if (page.next === null) return all;
    next = String(page.next);
  }
}

export const fibres = (routes: boolean) => pages<Fibre>(`fibres?routes=${routes ? 1 : 0}`, 'fibres', 'after');
export const fibre = async (name: string) => (await ask(of(name))) as Fibre;
export const alarms = () => pages<Alarm>('alarms?limit=1000', 'alarms', 'before');
export const alarmsOf = async (name: string) =>
  ((await ask(`alarms?state=all&limit=20&fibre=${encodeURIComponent(name)}`)) as { alarms: Alarm[] }).alarms;
export const acknowledge = (id: number) => ask(`alarms/${id}/acknowledge`, { method: 'POST' });
export const MOST_COMPARISONS = 300;
export const comparisons = async (name: string) =>
  ((await ask(`${of(name)}/comparisons?limit=${MOST_COMPARISONS}`)) as { comparisons: Comparison[] }).comparisons;
export const traces = async (name: string) => ((await ask(`${of(name)}/traces?limit=100`)) as { traces: TraceRow[] }).traces;
export const days = async (name: string, event: number) => ((await ask(`${of(name)}/days/${event}`)) as { days: Day[] }).days;
export const baseline = async (name: string) => (await ask(`${of(name)}/baseline`)) as { events: MeasuredEvent[] };
export const trends = async (name: string) => ((await ask(`${of(name)}/trends`)) as { trends: Trend[] }).trends;
export const place = async (name: string, km: number, sdKm: number) =>
  (await ask(`${of(name)}/place?km=${km}&sd_km=${sdKm}`)) as Place;

// The curve of a trace over that of the baseline, on the page for traces, with what has changed.
export const curvesOf = (name: string, trace: number): string =>
  `index.html?fibre=${encodeURIComponent(name)}&trace=${trace}#pane=compare&base=1&now=2&t=2`;
