// SPDX-License-Identifier: Apache-2.0
// What an analysis takes for an event, what numbers are held against, and the reels around a link. Whatever is typed
// counts at once: the analysis runs again.
import type { Remembering } from './address';
import type { Analysing, Asked } from './analysing';
import { calm, el } from './dom';
import type { Model } from './model';

const TYPING = 200; // milliseconds without a key

interface Field {
  key: string;
  name: string;
  unit: string;
  least: number;
  most: number;
  step: number;
}

const THRESHOLDS: Field[] = [
  { key: 'loss', name: 'Loss', unit: 'dB', least: 0, most: 10, step: 0.01 },
  { key: 'reflectance', name: 'Reflectance', unit: 'dB', least: -90, most: 0, step: 1 },
  { key: 'end', name: 'End', unit: 'dB', least: 0, most: 60, step: 0.5 },
  { key: 'slope', name: 'Slope', unit: 'dB/km', least: 0, most: 10, step: 0.05 },
];

// With what instruments come with: `usual`.
const LIMITS: (Field & { usual: number })[] = [
  { key: 'splice_db', name: 'Splice', unit: 'dB', least: 0, most: 5, step: 0.05, usual: 0.5 },
  { key: 'connector_db', name: 'Connector', unit: 'dB', least: 0, most: 5, step: 0.05, usual: 1 },
  { key: 'reflectance_db', name: 'Reflectance', unit: 'dB', least: -80, most: 0, step: 1, usual: -40 },
  { key: 'section_db_per_km', name: 'Section', unit: 'dB/km', least: 0, most: 5, step: 0.01, usual: 0.4 },
  { key: 'span_loss_db', name: 'Link loss', unit: 'dB', least: 0, most: 100, step: 0.5, usual: 45 },
  { key: 'return_loss_db', name: 'Return loss', unit: 'dB', least: 0, most: 80, step: 1, usual: 15 },
];

const THRESHOLD_KEYS: Record<string, 'lt_db' | 'rt_db' | 'et_db' | 'ct_db_per_km'> = {
  loss: 'lt_db',
  reflectance: 'rt_db',
  end: 'et_db',
  slope: 'ct_db_per_km',
};
// In the address thresholds are called as options of the program are, and limits as in its documents.
const WORDS: Record<string, string> = { loss: 'lt', reflectance: 'rt', end: 'et', slope: 'ct' };
const REEL_FOUND = 'auto';

function input(field: Field, label: string, take: () => void): HTMLInputElement {
  return el('input', {
    type: 'number',
    min: field.least,
    max: field.most,
    step: field.step,
    'aria-label': `${label} ${field.name}, ${field.unit}`,
    input: take,
  });
}

// A number that is in the field and within its bounds; what is not is marked and does not count.
function valueOf(field: HTMLInputElement): number | null {
  const value = field.value.trim() === '' ? NaN : Number(field.value);
  const wrong = field.validity.badInput || field.validity.rangeOverflow || field.validity.rangeUnderflow;
  field.setAttribute('aria-invalid', String(wrong));
  return isFinite(value) && !wrong ? value : null;
}

export class Settings implements Remembering {
  private readonly thresholds = new Map<string, HTMLInputElement>();
  private readonly fails = new Map<string, HTMLInputElement>();
  private readonly warnings = new Map<string, HTMLInputElement>();
  private readonly launch = el('input', { type: 'checkbox', change: () => this.take() });
  private readonly receive = el('input', { type: 'checkbox', change: () => this.take() });
  private readonly launchKm = this.reelInput('Length of the launch reel, km');
  private readonly receiveKm = this.reelInput('Length of the receive reel, km');
  private readonly wait = calm(() => this.take(), TYPING);
  private document: { name: string; text: string } | null = null;
  private readonly documentName = el('p', { class: 'muted' });

  constructor(
    private readonly host: HTMLElement,
    private readonly model: Model,
    private readonly analysing: Analysing,
  ) {
    this.build();
    model.onChange((changes) => {
      if (changes.has('tables') || changes.has('current')) this.showHeld();
    });
  }

  private reelInput(label: string): HTMLInputElement {
    return el('input', { type: 'number', min: 0, step: 0.001, placeholder: 'found', 'aria-label': label, input: () => this.wait() });
  }

  private build(): void {
    const row = (field: Field, ...inputs: HTMLElement[]) =>
      el('tr', {}, el('th', { scope: 'row', text: field.name }), ...inputs.map((one) => el('td', {}, one)), el('td', { class: 'muted', text: field.unit }));
    const thresholds = THRESHOLDS.map((field) => {
      const one = input(field, 'Threshold', () => this.wait());
      this.thresholds.set(field.key, one);
      return row(field, one);
    });
    const limits = LIMITS.map((field) => {
      const fail = input(field, 'Limit', () => this.wait());
      const warning = input(field, 'Limit of warning', () => this.wait());
      this.fails.set(field.key, fail);
      this.warnings.set(field.key, warning);
      return row(field, fail, warning);
    });
    const file = el('input', { type: 'file', accept: '.ini,.json', hidden: true, change: () => void this.openDocument(file) });
    this.host.append(
      el('h3', { text: 'What counts as an event' }),
      el('table', { class: 'fields', 'aria-label': 'Thresholds' }, el('tbody', {}, ...thresholds)),
      el('h3', { text: 'Limits' }),
      el('table', { class: 'fields', 'aria-label': 'Limits' }, el('thead', {}, el('tr', {}, el('td'), el('th', { scope: 'col', text: 'fail' }), el('th', { scope: 'col', text: 'warning' }), el('td'))), el('tbody', {}, ...limits)),
      el(
        'div',
        { class: 'group' },
        el('button', { type: 'button', text: 'Usual', title: 'What instruments come with', click: () => this.usual() }),
        el('button', { type: 'button', text: 'None', click: () => this.none() }),
        el('button', { type: 'button', text: 'Open limits', click: () => file.click() }),
        file,
      ),
      this.documentName,
      el('h3', { text: 'Reels around the link' }),
      el('div', { class: 'reel' }, el('label', {}, this.launch, ' Launch'), this.launchKm, el('span', { class: 'muted', text: 'km' })),
      el('div', { class: 'reel' }, el('label', {}, this.receive, ' Receive'), this.receiveKm, el('span', { class: 'muted', text: 'km' })),
    );
  }

  // Thresholds that are not given are those of the trace, and stand in the empty fields.
  private showHeld(): void {
    const held = this.model.currentTrace?.analysis?.table.thresholds;
    for (const [key, field] of this.thresholds) field.placeholder = String(held?.[THRESHOLD_KEYS[key]] ?? '');
  }

  private usual(): void {
    this.document = null;
    for (const limit of LIMITS) {
      const field = this.fails.get(limit.key);
      if (field) field.value = String(limit.usual);
    }
    this.take();
  }

  private none(): void {
    this.document = null;
    for (const field of [...this.fails.values(), ...this.warnings.values()]) field.value = '';
    this.take();
  }

  private async openDocument(file: HTMLInputElement): Promise<void> {
    const chosen = file.files?.[0];
    file.value = '';
    if (!chosen) return;
    this.none();
    this.document = { name: chosen.name, text: await chosen.text() };
    this.take();
  }

  // The limits of the fields as a document, which is what the library reads.
  private limitsText(): string {
    const lines: string[] = [];
    for (const { key } of LIMITS) {
      const fail = this.fails.get(key);
      const warning = this.warnings.get(key);
      const most = fail ? valueOf(fail) : null;
      const early = warning ? valueOf(warning) : null;
      if (most !== null) lines.push(`${key} = ${most}`);
      if (early !== null) lines.push(`${key}.warning = ${early}`);
    }
    return lines.length === 0 ? '' : `[limits]\nname = this page\n[one way]\n${lines.join('\n')}\n`;
  }

  // What fields have in the address.
  private words(): [string, HTMLInputElement][] {
    return [
      ...[...this.thresholds].map(([key, field]): [string, HTMLInputElement] => [WORDS[key], field]),
      ...this.fails,
      ...[...this.warnings].map(([key, field]): [string, HTMLInputElement] => [`${key}.warning`, field]),
    ];
  }

  remember(words: URLSearchParams): void {
    for (const [word, field] of this.words()) if (valueOf(field) !== null) words.set(word, field.value);
    if (this.document) {
      words.set('limits', this.document.text);
      words.set('document', this.document.name);
    }
    for (const [word, there, km] of this.reels()) if (there.checked) words.set(word, km.value || REEL_FOUND);
  }

  recall(words: URLSearchParams): void {
    for (const [word, field] of this.words()) field.value = words.get(word) ?? '';
    const text = words.get('limits');
    this.document = text ? { name: words.get('document') ?? 'limits', text } : null;
    for (const [word, there, km] of this.reels()) {
      const value = words.get(word);
      there.checked = value !== null;
      km.value = value === null || value === REEL_FOUND ? '' : value;
    }
    this.take();
  }

  private reels(): [string, HTMLInputElement, HTMLInputElement][] {
    return [
      ['launch', this.launch, this.launchKm],
      ['receive', this.receive, this.receiveKm],
    ];
  }

  private take(): void {
    const thresholds: Record<string, number> = {};
    for (const [key, field] of this.thresholds) {
      const value = valueOf(field);
      if (value !== null) thresholds[key] = value;
    }
    const own = this.limitsText();
    if (own) this.document = null;
    this.documentName.textContent = this.document ? `Limits of ${this.document.name}` : '';
    const asked: Asked = {
      thresholds,
      limits: own || (this.document?.text ?? ''),
      limitsName: this.document?.name ?? 'limits',
      reels: {
        launch: this.launch.checked,
        receive: this.receive.checked,
        launchKm: valueOf(this.launchKm),
        receiveKm: valueOf(this.receiveKm),
      },
    };
    if (JSON.stringify(asked) === JSON.stringify(this.analysing.asked)) return;
    this.analysing.asked = asked;
    this.analysing.again();
  }
}
