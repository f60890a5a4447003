// SPDX-License-Identifier: Apache-2.0
// The page's side of the engine: every question is a promise. Should the engine ever break down on a file, a fresh one
// takes its place, and the file is told to be at fault.
import type { Curve } from './curve';
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

export class Engine {
  private worker: Worker | null = null;
  private started: Promise<unknown> = Promise.resolve();
  private waiting = new Map<number, Waiting>();
  private next = 1;
  // Told when a fresh engine has taken the place of one that broke down, which has nothing open.
  onBreakdown: () => void = () => undefined;

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
    this.start();
    this.onBreakdown();
  }

  private send(order: Bare<Order>, transfer: Transferable[] = []): Promise<unknown> {
    const number = this.next++;
    return new Promise((resolve, reject) => {
      this.waiting.set(number, { resolve, reject });
      this.worker?.postMessage({ ...order, number }, transfer);
    });
  }

  private async ask(request: object): Promise<string[]> {
    await this.started;
    return linesOf((await this.send({ what: 'ask', request })) as string);
  }

  async open(name: string, bytes: ArrayBuffer): Promise<OpenedFile> {
    await this.started;
    return objectOf<OpenedFile>((await this.send({ what: 'open', name, bytes }, [bytes])) as string);
  }

  async curve(trace: number, points: number): Promise<Curve> {
    return (await this.send({ what: 'curve', trace, points })) as Curve;
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

  async object<T>(request: object): Promise<T> {
    return objectOf<T>((await this.ask(request))[0]);
  }

  // The listing, and what stands behind it.
  async pair<T, E>(request: object): Promise<[T, E]> {
    const lines = await this.ask(request);
    return [objectOf<T>(lines[0]), objectOf<E>(lines[1])];
  }

  // One answer to each of the requests; one that makes no sense is told as such and takes none of the others away.
  async answers<T>(request: object): Promise<Answer<T>[]> {
    const lines = await this.ask(request);
    if (lines.length === 1) objectOf<object>(lines[0]);
    return lines.map((line) => JSON.parse(line) as Answer<T>);
  }
}
