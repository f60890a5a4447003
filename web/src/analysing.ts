// SPDX-License-Identifier: Apache-2.0
// Traces from files to tables: opened one after the other, shown as soon as their curve is there, analysed then. What
// is asked of the analysis has a number; a table of an older number is made anew, the shown one first.
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
  private reopening: Promise<void> = Promise.resolve();
  private kept = new Map<number, Given>(); // by trace, for an engine that has to begin anew

  constructor(
    private readonly engine: Engine,
    private readonly model: Model,
    private readonly tell: (sentence: string, isError: boolean) => void,
  ) {
    engine.onBreakdown = () => {
      this.reopening = this.reopening.then(() => this.reopen());
    };
  }

  // Takes files in; none of them keeps the others from being read.
  async open(files: Given[]): Promise<void> {
    for (const [i, given] of files.entries()) {
      if (files.length > 3) this.tell(`Reading ${i + 1} of ${files.length} files`, false);
      try {
        await this.openOne(given);
      } catch (error) {
        this.tell(`${given.name}: ${sentenceOf(error)}`, true);
      }
    }
    this.tell('', false);
  }

  private async openOne(given: Given): Promise<void> {
    await this.reopening;
    const file = await this.engine.open(given.name, await given.read());
    for (const part of file.traces) {
      const curve = await this.engine.curve(part.id, part.points);
      if (curve.km.length < 2) {
        this.tell(`${given.name}: ${part.why || 'has no curve'}`, true);
        continue;
      }
      this.model.traces.push({
        id: part.id,
        name: part.part > 0 ? `${given.name} (${part.part})` : given.name,
        file: given.name,
        part: part.part,
        curve,
        colour: freeColour(this.model.traces),
        visible: true,
        offsetKm: 0,
        offsetDb: 0,
        mirroredAtKm: null,
        analysis: null,
        analysedBy: 0,
        failure: '',
        warnings: file.warnings,
        card: null,
      });
      this.kept.set(part.id, given);
      this.model.changed('traces');
      if (this.model.current === 0) this.model.makeCurrent(part.id);
      await this.refresh();
    }
  }

  // After a breakdown the engine has nothing open. The traces that were get their new numbers; one that breaks the
  // engine once more is not tried again.
  private async reopen(): Promise<void> {
    const current = this.model.currentTrace;
    const before = this.kept;
    this.kept = new Map();
    for (const trace of this.model.traces) {
      const given = before.get(trace.id);
      if (!given) continue;
      try {
        const opened = await this.engine.open(trace.file, await given.read());
        const same = opened.traces.find((one) => one.part === trace.part);
        if (!same) continue;
        trace.id = same.id;
        this.kept.set(same.id, given);
      } catch {
        this.tell(`${trace.name}: can't be read any more`, true);
      }
    }
    if (current) this.model.current = current.id;
    this.model.changed('traces');
  }

  close(trace: Trace): void {
    this.model.traces = this.model.traces.filter((one) => one !== trace);
    void this.engine.object({ do: 'close', trace: trace.id }).catch(() => undefined);
    this.kept.delete(trace.id);
    if (this.model.current === trace.id) this.model.makeCurrent(this.model.traces[0]?.id ?? 0);
    this.model.changed('traces', 'tables');
  }

  // Analyses anew what was analysed with other settings.
  again(): void {
    ++this.number;
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
    await this.reopening;
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
    this.model.changed('tables', 'traces');
  }

  private async cardOf(trace: Trace): Promise<Record<string, unknown>> {
    try {
      const sheet = await this.engine.object<Record<string, unknown>>({ do: 'sheet', trace: trace.id });
      return sheet;
    } catch (error) {
      return { error: sentenceOf(error) };
    }
  }
}

export function sentenceOf(error: unknown): string {
  if (error instanceof Refusal || error instanceof Breakdown) return error.message;
  return error instanceof Error ? error.message : String(error);
}

function freeColour(traces: Trace[]): number {
  for (let colour = 0; ; ++colour) if (!traces.some((trace) => trace.colour === colour)) return colour;
}
