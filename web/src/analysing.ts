// SPDX-License-Identifier: Apache-2.0
// Traces from files to tables: opened one after the other, shown as soon as their curve is there, analysed then. What
// is asked of the analysis has a number; a table of an older number is made anew, the shown one first.
import type { Curve } from './curve';
import { Breakdown, Engine, Refusal } from './engine';
import type { Given } from './files';
import type { Model } from './model';
import type { Trace } from './traces';

export interface Asked {
  thresholds: Record<string, number>;
  limits: string;
  limitsName: string;
  reels: { launch: boolean; receive: boolean; launchKm: number | null; receiveKm: number | null };
}

export class Analysing {
  asked: Asked = { thresholds: {}, limits: '', limitsName: '', reels: { launch: false, receive: false, launchKm: null, receiveKm: null } };
  private number = 1;
  private running = false;

  constructor(
    private readonly engine: Engine,
    private readonly model: Model,
    private readonly tell: (sentence: string, isError: boolean) => void,
  ) {}

  // Takes files in; none of them keeps the others from being read. `opened` is called behind each.
  async open(files: Given[], opened: () => void = () => undefined): Promise<void> {
    for (const [i, given] of files.entries()) {
      if (files.length > 3) this.tell(`Reading ${i + 1} of ${files.length} files`, false);
      try {
        await this.openOne(given, opened);
      } catch (error) {
        this.tell(`${given.name}: ${sentenceOf(error)}`, true);
      }
    }
    this.tell('', false);
  }

  private async openOne(given: Given, opened: () => void): Promise<void> {
    const file = await this.engine.open(given);
    for (const part of file.parts) {
      const curve = await this.engine.curve(part.id, part.points);
      if (curve.km.length < 2) {
        this.tell(`${given.name}: ${part.why || 'has no curve'}`, true);
        this.engine.close(part.id);
        continue;
      }
      sharePlaces(curve, this.model.traces);
      this.model.traces.push({
        id: part.id,
        name: part.part > 0 ? `${given.name} (${part.part})` : given.name,
        curve,
        colour: freeColour(this.model.traces),
        shown: null,
        offsetKm: 0,
        offsetDb: 0,
        mirroredAtKm: null,
        analysis: null,
        analysedBy: 0,
        failure: '',
        warnings: file.warnings,
        card: null,
      });
      this.model.changedOf(this.model.traces[this.model.traces.length - 1], 'traces');
      if (this.model.current === 0) this.model.makeCurrent(part.id);
      opened();
      await this.refresh();
      opened();
    }
  }

  close(...traces: Trace[]): void {
    const { model } = this;
    const left = model.traces.filter((one) => !traces.includes(one));
    // The one that stood behind takes the place of the one whose table was shown.
    const behind = model.traces.findIndex((one) => one.id === model.current);
    const next = model.traces.slice(behind).find((one) => left.includes(one)) ?? left[left.length - 1];
    model.traces = left;
    for (const trace of traces) this.engine.close(trace.id);
    if (!model.currentTrace) model.makeCurrent(next?.id ?? 0);
    model.changed('traces', 'tables');
  }

  // Analyses anew what was analysed with other settings.
  again(): void {
    ++this.number;
    this.model.changed('settings');
    void this.refresh();
  }

  private next(): Trace | undefined {
    const waiting = this.model.traces.filter((trace) => trace.analysedBy !== this.number);
    return waiting.find((trace) => trace.id === this.model.current) ?? waiting[0];
  }

  async refresh(): Promise<void> {
    if (this.running) return;
    this.running = true;
    try {
      for (let trace = this.next(); trace; trace = this.next()) await this.analyse(trace);
    } finally {
      this.running = false;
    }
  }

  private async analyse(trace: Trace): Promise<void> {
    const number = this.number;
    trace.analysedBy = number;
    try {
      const analysis = await this.engine.analyse(trace.id, this.asked);
      if (number !== this.number) return;
      trace.analysis = analysis;
      trace.failure = '';
    } catch (error) {
      trace.analysis = null;
      trace.failure = `${trace.name}: ${sentenceOf(error)}`;
    }
    trace.card ??= await this.cardOf(trace);
    this.model.changedOf(trace, 'tables', 'traces');
  }

  private async cardOf(trace: Trace): Promise<Record<string, unknown>> {
    try {
      return await this.engine.object<Record<string, unknown>>({ do: 'sheet', trace: trace.id });
    } catch (error) {
      return { error: sentenceOf(error) };
    }
  }
}

// The traces of a cable are taken at the same places, which take twice the room of their levels.
function sharePlaces(curve: Curve, traces: Trace[]): void {
  const last = traces[traces.length - 1]?.curve.km;
  if (last?.length === curve.km.length && last.every((km, i) => km === curve.km[i])) curve.km = last;
}

export function sentenceOf(error: unknown): string {
  if (error instanceof Refusal || error instanceof Breakdown) return error.message;
  return error instanceof Error ? error.message : String(error);
}

function freeColour(traces: Trace[]): number {
  const taken = new Set(traces.map((trace) => trace.colour));
  for (let colour = 0; ; ++colour) if (!taken.has(colour)) return colour;
}
