// SPDX-License-Identifier: Apache-2.0
// The page's side of the engine: every question is a promise. The engine has the traces on its desk that were asked about
// last; another is read once more from its file when somebody asks, so that a whole cable does not lie in memory twice.
// Should the engine ever break down on a file, a fresh one takes its place, with an empty desk.
import type { Curve } from './curve';
import type { Given } from './files';
import type { Answer, EventTable, Extras, LinkTable, OpenedFile } from './listing';
import type { Order, Reply } from './worker';

type Bare<T> = T extends { number: number } ? Omit<T, 'number'> : never;
interface Waiting {
  resolve(value: unknown): void;
  reject(error: Error): void;
}

// A failure that the engine tells in a sentence.
export class Refusal extends Error {}
// The engine is no more: what it had open is lost to it.
export class Breakdown extends Error {}

function linesOf(text: string): string[] {
  return text.split('\n').filter((line) => line !== '');
}

function objectOf<T>(line: string): T {
  const value = JSON.parse(line) as T & { error?: string };
  if (typeof value.error === 'string') throw new Refusal(value.error);
  return value;
}

export interface Analysis {
  raw: string; // the listing, byte for byte as the program prints it
  table: EventTable;
  extras: Extras;
  judged: LinkTable | null; // none without limits and reels
}

const MOST_POINTS = 4_000_000; // on the desk, each of which takes some 20 bytes there
const LEAST_TRACES = 6; // on the desk, whatever their size: as many as are asked about at a time
const MOST_TRACES = 24;

// Where a trace comes from, and its number on the desk; 0 while it is not there.
interface Source {
  given: Given;
  part: number; // of a file with several traces, from 1; 0 for the one of a usual file
  points: number;
  number: number;
}

export interface Part {
  id: number;
  part: number;
  points: number;
  why: string; // it has no curve
}

export class Engine {
  private worker: Worker | null = null;
  private started: Promise<unknown> = Promise.resolve();
  private waiting = new Map<number, Waiting>();
  private next = 1;
  private nextTrace = 1;
  private readonly sources = new Map<number, Source>(); // by trace; the one asked about last is the last
  private clearing: Promise<unknown> = Promise.resolve(); // what puts traces on the desk goes in turn

  constructor(
    private readonly makeWorker: () => Worker,
    private readonly wasm: Promise<ArrayBuffer>,
  ) {
    this.start();
  }

  get ready(): Promise<unknown> {
    return this.started;
  }

  // Nobody has to wait for it.
  warm(): void {
    this.send({ what: 'warm' }).catch(() => undefined);
  }

  private start(): void {
    const worker = this.makeWorker();
    this.worker = worker;
    worker.onmessage = (event: MessageEvent<Reply>) => this.take(event.data);
    worker.onerror = (event) => {
      event.preventDefault();
      this.breakDown();
    };
    this.started = this.wasm.then((wasm) => this.send({ what: 'start', wasm: wasm.slice(0) }));
    this.started.catch(() => undefined);
  }

  private take(reply: Reply): void {
    const waiting = this.waiting.get(reply.number);
    this.waiting.delete(reply.number);
    if (reply.failure === undefined) waiting?.resolve(reply.value);
    else {
      waiting?.reject(new Breakdown('the engine has broken down on it'));
      this.breakDown();
    }
  }

  private breakDown(): void {
    this.worker?.terminate();
    const left = [...this.waiting.values()];
    this.waiting.clear();
    for (const waiting of left) waiting.reject(new Breakdown('the engine has broken down'));
    for (const source of this.sources.values()) source.number = 0;
    this.start();
  }

  private send(order: Bare<Order>, transfer: Transferable[] = []): Promise<unknown> {
    const number = this.next++;
    return new Promise((resolve, reject) => {
      this.waiting.set(number, { resolve, reject });
      this.worker?.postMessage({ ...order, number }, transfer);
    });
  }

  // Takes in the bytes of a file; a file of several traces has several parts.
  private async put(given: Given): Promise<OpenedFile> {
    const bytes = await given.read();
    await this.started;
    return objectOf<OpenedFile>((await this.send({ what: 'open', name: given.name, bytes }, [bytes])) as string);
  }

  private inTurn<T>(work: () => Promise<T>): Promise<T> {
    const done = this.clearing.then(work);
    this.clearing = done.catch(() => undefined);
    return done;
  }

  // A file with its traces, which from now on can be asked about.
  open(given: Given): Promise<{ parts: Part[]; warnings: string[] }> {
    return this.inTurn(async () => {
      const file = await this.put(given);
      const parts = file.traces.map(({ id: number, part, points, why }) => {
        const id = this.nextTrace++;
        this.sources.set(id, { given, part, points, number });
        return { id, part, points, why };
      });
      this.makeRoom(parts.map((one) => one.id));
      return { parts, warnings: file.warnings };
    });
  }

  private drop(number: number): void {
    this.send({ what: 'ask', request: { do: 'close', trace: number } }).catch(() => undefined);
  }

  // Takes those off the desk that nobody has asked about for longest.
  private makeRoom(kept: number[]): void {
    const there = [...this.sources].filter(([, source]) => source.number > 0);
    let count = there.length;
    let points = there.reduce((sum, [, source]) => sum + source.points, 0);
    for (const [id, source] of there) {
      if (count <= LEAST_TRACES || (points <= MOST_POINTS && count <= MOST_TRACES)) return;
      if (kept.includes(id)) continue;
      this.drop(source.number);
      source.number = 0;
      count -= 1;
      points -= source.points;
    }
  }

  // The number of a trace on the desk, where it is put if need be.
  private onDesk(id: number): Promise<number> {
    return this.inTurn(async () => {
      const source = this.sources.get(id);
      if (!source) throw new Refusal('this trace is no longer open');
      this.sources.delete(id);
      this.sources.set(id, source);
      if (source.number > 0) return source.number;
      const { traces } = await this.put(source.given);
      for (const one of traces) {
        if (one.part === source.part) source.number = one.id;
        else this.drop(one.id);
      }
      if (source.number === 0) throw new Refusal('the file is not what it was');
      this.makeRoom([id]);
      return source.number;
    });
  }

  close(trace: number): void {
    const source = this.sources.get(trace);
    this.sources.delete(trace);
    if (source && source.number > 0) this.drop(source.number);
  }

  // Requests name traces as the page does.
  private async ask(request: Record<string, unknown>): Promise<string[]> {
    await this.started;
    const told = { ...request };
    for (const key of ['trace', 'baseline', 'a', 'b']) if (typeof told[key] === 'number') told[key] = await this.onDesk(told[key]);
    return linesOf((await this.send({ what: 'ask', request: told })) as string);
  }

  async curve(trace: number, points: number): Promise<Curve> {
    const number = await this.onDesk(trace);
    return (await this.send({ what: 'curve', trace: number, points })) as Curve;
  }

  async analyse(trace: number, options: object): Promise<Analysis> {
    const lines = await this.ask({ do: 'analyse', trace, ...options });
    const table = objectOf<EventTable>(lines[0]);
    return {
      raw: lines[0] + '\n',
      table,
      extras: objectOf<Extras>(lines[1]),
      judged: lines.length > 2 ? objectOf<LinkTable>(lines[2]) : null,
    };
  }

  async object<T>(request: Record<string, unknown>): Promise<T> {
    return objectOf<T>((await this.ask(request))[0]);
  }

  // The listing, and what stands behind it.
  async pair<T, E>(request: Record<string, unknown>): Promise<[T, E]> {
    const lines = await this.ask(request);
    return [objectOf<T>(lines[0]), objectOf<E>(lines[1])];
  }

  // One answer to each of the requests; one that makes no sense is told as such and takes none of the others away.
  async answers<T>(request: Record<string, unknown>): Promise<Answer<T>[]> {
    const lines = await this.ask(request);
    if (lines.length === 1) objectOf<object>(lines[0]);
    return lines.map((line) => JSON.parse(line) as Answer<T>);
  }
}
