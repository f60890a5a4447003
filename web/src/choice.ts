// SPDX-License-Identifier: Apache-2.0
// Two of the open traces that are held against each other: chosen by name, kept in the address by number.
import type { Remembering } from './address';
import { el } from './dom';
import type { Model } from './model';

class Choice {
  readonly select: HTMLSelectElement;
  private offered = '';

  constructor(
    private readonly label: string,
    private readonly model: Model,
    changed: () => void,
  ) {
    this.select = el('select', { change: changed });
  }

  get id(): number {
    return Number(this.select.value);
  }
  set id(id: number) {
    this.refresh();
    this.select.value = String(this.model.traceOf(id) ? id : 0);
  }

  refresh(): void {
    const offered = this.model.traces.map((trace) => trace.id).join();
    if (offered === this.offered) return;
    this.offered = offered;
    const kept = this.id;
    this.select.replaceChildren(el('option', { value: 0, text: 'none' }), ...this.model.traces.map((trace) => el('option', { value: trace.id, text: trace.name })));
    this.id = kept;
  }

  get row(): HTMLElement {
    return el('label', { class: 'choice' }, el('span', { text: this.label }), this.select);
  }
}

// `words` are those of the address. `changed` is told of a pair, or of none, and whether it came from the address.
export class PairChoice implements Remembering {
  private readonly choices: [Choice, Choice];
  private last = '';

  constructor(
    host: HTMLElement,
    private readonly model: Model,
    labels: [string, string],
    private readonly words: [string, string],
    private readonly changed: (pair: [number, number] | null, recalled: boolean) => void,
  ) {
    this.choices = [new Choice(labels[0], model, () => this.tell(false)), new Choice(labels[1], model, () => this.tell(false))];
    host.append(...this.choices.map((one) => one.row));
    model.onChange((changes) => {
      if (!changes.has('traces') && !changes.has('listed')) return;
      for (const one of this.choices) one.refresh();
      this.tell(false);
    });
    for (const one of this.choices) one.refresh();
  }

  get pair(): [number, number] | null {
    const [one, other] = this.choices.map((choice) => choice.id);
    return one > 0 && other > 0 && one !== other ? [one, other] : null;
  }

  clear(): void {
    for (const one of this.choices) one.id = 0;
    this.tell(false);
  }

  private tell(recalled: boolean): void {
    const now = String(this.pair);
    if (now === this.last || (this.last === '' && !this.pair)) return;
    this.last = now;
    this.changed(this.pair, recalled);
  }

  remember(words: URLSearchParams): void {
    this.pair?.forEach((id, i) => words.set(this.words[i], String(this.model.traces.findIndex((one) => one.id === id) + 1)));
  }

  recall(words: URLSearchParams): void {
    this.choices.forEach((choice, i) => (choice.id = this.model.traces[Number(words.get(this.words[i]) ?? 0) - 1]?.id ?? 0));
    this.tell(true);
  }
}
