// SPDX-License-Identifier: Apache-2.0
// What the centre tells as it happens. A browser takes a stream up again by itself when the way to the centre breaks,
// but not when the centre refuses it: after a new start nobody is signed in, and a store that is away answers 503.
import type { Alarm } from './api';

export type News =
  | { kind: 'alarm'; alarm: Alarm }
  | { kind: 'comparison'; fibre: string; takenAt: number; receivedAt: number }
  | { kind: 'fibre'; fibre: string; gone: boolean };

interface Hearing {
  news(one: News): void;
  again(): void; // something may have been missed
  live(isLive: boolean): void;
}

const GRACE_MS = 3000; // a stream ends now and then, and is taken up again within two seconds
const PAUSE_MS = 3000;

export class Feed {
  private stream: EventSource | null = null;
  private timer = 0;

  constructor(private readonly hearing: Hearing) {}

  start(): void {
    this.stop();
    const stream = (this.stream = new EventSource('news'));
    let opened = false;
    stream.onopen = () => {
      clearTimeout(this.timer);
      this.timer = 0;
      this.hearing.live(true);
      // The centre tells what was missed only to whom it has told something.
      if (opened) this.hearing.again();
      opened = true;
    };
    stream.onerror = () => this.broken(stream);
    stream.addEventListener('missed', () => this.hearing.again());
    for (const kind of ['comparison', 'alarm', 'fibre'])
      stream.addEventListener(kind, (event) => this.take(kind, (event as MessageEvent<string>).data));
  }

  stop(): void {
    clearTimeout(this.timer);
    this.timer = 0;
    this.stream?.close();
    this.stream = null;
  }

  private broken(stream: EventSource): void {
    if (stream.readyState === EventSource.CLOSED) {
      this.stop();
      this.hearing.live(false);
      this.timer = window.setTimeout(() => {
        this.hearing.again(); // says so where somebody has to sign in again
        this.start();
      }, PAUSE_MS);
    } else if (this.timer === 0) {
      this.timer = window.setTimeout(() => this.hearing.live(false), GRACE_MS);
    }
  }

  private take(kind: string, text: string): void {
    const data = JSON.parse(text) as { fibre: string; gone?: boolean; taken_at: number; received_at: number };
    if (kind === 'alarm') this.hearing.news({ kind, alarm: data as unknown as Alarm });
    else if (kind === 'comparison')
      this.hearing.news({ kind, fibre: data.fibre, takenAt: data.taken_at, receivedAt: data.received_at });
    else this.hearing.news({ kind: 'fibre', fibre: data.fibre, gone: data.gone === true });
  }
}
