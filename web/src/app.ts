// SPDX-License-Identifier: Apache-2.0
// The page: puts its parts together.
import { Address } from './address';
import { Analysing } from './analysing';
import { Announcer } from './announcer';
import { cardPane } from './card';
import { ComparePane } from './compare';
import { levelAt } from './curve';
import { DirectionsPane } from './directions';
import { byId, el } from './dom';
import { Engine } from './engine';
import { chosen, dropped, Given } from './files';
import { Hands } from './hands';
import { List } from './list';
import { applyTheme, Theme } from './look';
import { firstMarkers, MarkerHandles } from './markers';
import { MeasurePane } from './measure';
import { Model, View } from './model';
import { Plot } from './plot';
import { Settings } from './settings';
import { Table } from './table';
import { Tabs } from './tabs';
import { eventKm, tableOf, traceKm } from './traces';
import { currentUnit, fixed, isUnit, placeWithUnit, setUnit, UNITS } from './units';
import { bringIntoView, fitted, whole } from './views';

export interface Surroundings {
  makeWorker(): Worker;
  wasm: Promise<ArrayBuffer>;
  offered(): Promise<Given[]>; // traces that come with the page
  settings: Record<string, string>; // for these traces, in the words of the address
}

const KEYS: [string, string][] = [
  ['Wheel', 'zoom distance at the pointer'],
  ['Shift + wheel', 'zoom dB'],
  ['Drag', 'zoom to a rectangle; along one axis, that axis alone'],
  ['Middle button, or space and drag', 'move'],
  ['Double click, f', 'fit the fibre'],
  ['1', 'the whole trace as it was taken'],
  ['+ and −', 'zoom in and out at the chosen event'],
  ['Arrows', 'step from event to event'],
  ['e', 'the chosen event large, with its levels'],
  ['Shift + left, right', 'move along the fibre'],
  ['Shift + up, down', 'zoom dB'],
  ['m', 'markers a, A, B, b; arrows move the one with the focus'],
  ['s', 'sections as they were fitted'],
  ['r', 'residuals below the curve'],
  ['Esc', 'clear markers and choice'],
  ['?', 'this list'],
];

class Page {
  private readonly model = new Model();
  private readonly address: Address;
  private readonly engine: Engine;
  private readonly analysing: Analysing;
  private readonly plot: Plot;
  private readonly hands: Hands;
  private readonly tabs: Tabs;
  private placed: View | null = null; // the view that nobody has chosen

  constructor(around: Surroundings) {
    this.engine = new Engine(around.makeWorker, around.wasm);
    this.analysing = new Analysing(this.engine, this.model, (sentence, isError) => this.tell(sentence, isError));
    this.plot = new Plot(byId('plot'), byId('lower'), this.model);
    const tabs = new Tabs(byId('tabs'), byId('panes'));
    cardPane(tabs.add('card', 'Card'), this.model);
    new MeasurePane(tabs.add('measure', 'Measure'), this.model, this.engine);
    const settings = new Settings(tabs.add('settings', 'Settings'), this.model, this.analysing);
    const compare = new ComparePane(tabs.add('compare', 'Compare'), this.model, this.engine, () => directions.choice.clear());
    const directions: DirectionsPane = new DirectionsPane(tabs.add('directions', 'Directions'), this.model, this.engine, this.analysing, () => compare.choice.clear());
    this.address = new Address(this.model, settings, [tabs, compare.choice, directions.choice], around.settings);
    new MarkerHandles(this.model, this.plot);
    this.tabs = tabs;
    tabs.onShow = () => this.model.changed('panes');
    new List(byId('list'), byId('of-list'), this.model, this.analysing);
    new Announcer(byId('said'), this.model);
    new Table(byId('events'), byId('totals'), this.model);
    this.hands = new Hands(this.model, this.plot, byId('plot'), {
      toggleMarkers: () => this.toggleMarkers(),
      clear: () => this.clear(),
      showKeys: () => this.showKeys(),
    });
    this.model.onChange((changes) => {
      if (changes.has('selection') && this.model.selected >= 0) this.showChosen();
      this.showState();
    });
    this.buttons();
    this.takeFiles();
    this.readout();
    void this.begin(around);
  }

  private async begin(around: Surroundings): Promise<void> {
    try {
      await around.wasm;
      await this.engine.ready;
    } catch {
      this.tell('The engine could not be started: open this page from a web server, or take reflyze.html.', true);
      return;
    }
    document.documentElement.dataset.ready = 'yes';
    try {
      const offered = await around.offered();
      if (offered.length === 0) this.engine.warm();
      await this.open(offered);
    } catch {
      this.tell('The traces that were to be shown are not there.', true);
    }
  }

  private async open(files: Given[]): Promise<void> {
    if (files.length === 0) return;
    await this.analysing.open(files, () => this.fitUntouched());
    if (this.address.apply()) this.placed = null;
    else this.fitUntouched();
  }

  // What is opened is seen whole, until somebody looks at a place of their own.
  private fitUntouched(): void {
    const { model } = this;
    if (this.placed && model.view !== this.placed) return;
    if (!this.placed && model.traces.length > 1) return;
    const view = fitted(model);
    if (this.placed && JSON.stringify(view) === JSON.stringify(this.placed)) return;
    this.placed = view;
    model.setView(view);
  }

  private tell(sentence: string, isError: boolean): void {
    if (!isError) {
      byId('state').textContent = sentence;
      return;
    }
    const notice = el('p', {}, el('span', { text: sentence }), el('button', { type: 'button', class: 'quiet', text: '×', 'aria-label': 'Dismiss', click: () => notice.remove() }));
    byId('notice-list').append(notice);
  }

  private showState(): void {
    const { model } = this;
    const trace = model.currentTrace;
    byId('desk').classList.toggle('empty', model.traces.length === 0);
    byId('desk').classList.toggle('single', model.traces.length === 1);
    const table = trace && tableOf(trace);
    byId('title').replaceChildren(
      el('h2', { text: trace?.name ?? '' }),
      table ? el('span', { class: 'muted', text: `${fixed(table.wavelength_nm, 0)} nm · ${fixed(table.pulse_ns, 0)} ns · ${table.points} points · noise ${fixed(table.noise_floor_db, 1)} dB` }) : '',
    );
    document.title = trace ? `${trace.name} – reflyze` : 'reflyze';
    byId('lines').setAttribute('aria-pressed', String(model.showLines));
    byId('residuals').setAttribute('aria-pressed', String(model.showResiduals));
    byId('markers').setAttribute('aria-pressed', String(model.markers !== null));
  }

  private showChosen(): void {
    const trace = this.model.currentTrace;
    const event = trace && tableOf(trace)?.events[this.model.selected];
    if (trace && event) bringIntoView(this.model, eventKm(trace, event));
  }

  private clear(): void {
    this.model.markers = null;
    this.model.select(-1);
    this.model.changed('markers', 'selection');
  }

  // The list has one button: Tab stays there, and the focus goes back to where it was.
  private showKeys(): void {
    const before = document.activeElement as HTMLElement | null;
    const keys = byId<HTMLDialogElement>('keys');
    keys.onkeydown = (event) => {
      if (event.key === 'Tab') event.preventDefault();
      if (event.key === 'Escape') keys.close();
    };
    keys.onclose = () => before?.focus();
    keys.showModal();
  }

  private toggleMarkers(): void {
    this.model.markers = this.model.markers ? null : firstMarkers(this.model);
    if (this.model.markers) this.tabs.show('measure');
    this.model.changed('markers');
  }

  private buttons(): void {
    const { model, hands } = this;
    const on = (id: string, work: () => void) => byId(id).addEventListener('click', work);
    on('fit', () => model.setView(fitted(model)));
    on('whole', () => model.setView(whole(model)));
    on('larger', () => hands.zoom(0.6));
    on('smaller', () => hands.zoom(1 / 0.6));
    on('previous', () => hands.go(-1));
    on('next', () => hands.go(1));
    on('close', () => hands.close());
    on('lines', () => {
      model.showLines = !model.showLines;
      model.changed('view');
    });
    on('residuals', () => {
      model.showResiduals = !model.showResiduals;
      model.changed('view', 'pairs');
    });
    on('markers', () => this.toggleMarkers());
    on('help', () => this.showKeys());
    on('print', () => window.print());
    on('dismiss', () => byId('notice-list').replaceChildren());
    on('close-all', () => this.analysing.close(...model.traces));
    on('save', () => this.save());
    byId('key-table').querySelector('tbody')?.append(...KEYS.map(([key, meaning]) => el('tr', {}, el('th', { scope: 'row', text: key }), el('td', { text: meaning }))));
    this.choices();
  }

  // The listing of the analysis, byte for byte as the program prints it.
  private save(): void {
    const trace = this.model.currentTrace;
    if (!trace?.analysis) return;
    const url = URL.createObjectURL(new Blob([trace.analysis.raw], { type: 'application/json' }));
    el('a', { href: url, download: `${trace.name.replace(/.*\//, '')}.json` }).click();
    setTimeout(() => URL.revokeObjectURL(url), 1000);
  }

  private choices(): void {
    const { model } = this;
    const unit = byId<HTMLSelectElement>('unit');
    unit.append(...UNITS.map((one) => el('option', { value: one, text: one })));
    unit.value = currentUnit();
    unit.addEventListener('change', () => {
      if (isUnit(unit.value)) setUnit(unit.value);
      model.changed('look');
    });
    model.onChange((changes) => {
      if (changes.has('look')) unit.value = currentUnit();
    });
    const theme = byId<HTMLSelectElement>('theme');
    const follow = () => {
      applyTheme(theme.value as Theme);
      model.changed('look');
    };
    theme.addEventListener('change', follow);
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', follow);
    // On paper the colours are those of daylight, and the picture is as wide as the paper.
    matchMedia('print').addEventListener('change', () => {
      applyTheme(matchMedia('print').matches ? 'light' : (theme.value as Theme));
      model.changed('look');
      this.plot.settle();
    });
  }

  private takeFiles(): void {
    const files = byId<HTMLInputElement>('files');
    const folder = byId<HTMLInputElement>('folder');
    byId('open-files').addEventListener('click', () => files.click());
    byId('open-folder').addEventListener('click', () => folder.click());
    files.addEventListener('change', () => void this.open(chosen(files, false)));
    folder.addEventListener('change', () => void this.open(chosen(folder, true)));
    document.addEventListener('dragover', (event) => {
      event.preventDefault();
      document.body.classList.add('dragging');
    });
    document.addEventListener('dragleave', (event) => {
      if (!event.relatedTarget) document.body.classList.remove('dragging');
    });
    document.addEventListener('drop', (event) => {
      event.preventDefault();
      document.body.classList.remove('dragging');
      if (event.dataTransfer) void dropped(event.dataTransfer).then((given) => this.take(given));
    });
  }

  private take(given: Given[]): Promise<void> {
    if (given.length === 0) this.tell('There is no trace in what was dropped.', true);
    return this.open(given);
  }

  // Place and level under the pointer.
  private readout(): void {
    const output = byId('readout');
    byId('plot').addEventListener('pointermove', (event) => {
      const at = this.plot.at(event);
      const trace = this.model.currentTrace;
      if (!at || !trace) return;
      const level = levelAt(trace.curve, traceKm(trace, at.km));
      output.textContent = `${placeWithUnit(at.km)}   ${level === null ? '' : `${fixed(level, 3)} dB`}`;
    });
  }
}

export function start(around: Surroundings): void {
  new Page(around);
}
