// SPDX-License-Identifier: Apache-2.0
// Numbers between the markers, all by the library, as `reflyze measure` gives them.
import { sentenceOf } from './analysing';
import { el, perFrame } from './dom';
import type { Engine } from './engine';
import type { Answer, PlaceMeasure } from './listing';
import { MARKER_NAMES, Markers, Model } from './model';
import { Trace, traceKm } from './traces';
import * as units from './units';

type Figures = Answer<PlaceMeasure>[];

const figure = (value: string, sd: string, unit: string): string => (value === '-' ? value : `${value} ${sd} ${unit}`.replace('  ', ' '));

export class MeasurePane {
  private busy = false;
  private stale = false;
  private readonly places = el('dl', { class: 'places' });
  private readonly figures = el('dl', { class: 'figures' });
  private readonly notes = el('ul', { class: 'remarks' });
  private readonly hint = el('p', { class: 'muted', text: 'Press m, or the button Markers, to set the markers a, A, B and b.' });

  constructor(
    host: HTMLElement,
    private readonly model: Model,
    private readonly engine: Engine,
  ) {
    host.append(this.hint, this.places, this.figures, this.notes);
    const update = perFrame(() => void this.update());
    model.onChange((changes) => {
      if (['markers', 'current', 'tables', 'look', 'traces'].some((one) => changes.has(one as 'markers'))) update();
    });
  }

  // The latest places count; those on the way are passed over while an answer is awaited.
  private async update(): Promise<void> {
    const trace = this.model.currentTrace;
    const { markers } = this.model;
    this.hint.hidden = markers !== null;
    if (!trace || !markers) {
      for (const host of [this.places, this.figures, this.notes]) host.replaceChildren();
      return;
    }
    this.showPlaces(markers);
    if (this.busy) {
      this.stale = true;
      return;
    }
    this.busy = true;
    try {
      const places = markers.map((km) => traceKm(trace, km)).sort((a, b) => a - b);
      const answers = await this.engine.answers<PlaceMeasure>({ do: 'measure', trace: trace.id, requests: requestsFor(places) });
      this.showFigures(trace, answers);
    } catch (error) {
      this.figures.replaceChildren();
      this.notes.replaceChildren(el('li', { text: sentenceOf(error) }));
    }
    this.busy = false;
    if (!this.stale) return;
    this.stale = false;
    await this.update();
  }

  private showPlaces(markers: Markers): void {
    const lines = MARKER_NAMES.map((name, i): [string, string] => [name, units.placeWithUnit(markers[i])]);
    lines.push(['A to B', units.placeWithUnit(markers[2] - markers[1])]);
    this.places.replaceChildren(...lines.flatMap(([name, text], i) => [el('dt', { text: name, class: i === 4 ? '' : i < 2 ? 'left' : 'right' }), el('dd', { text })]));
  }

  private showFigures(trace: Trace, [two, line, orl, event, peak]: Figures): void {
    const { slope: slopeUnit } = units.scale();
    const loss = (one: Figures[0]) => figure(units.fixed(one.loss_db, 3), units.deviation(one.loss_sd_db, 3), 'dB');
    const slope = (one: Figures[0]) => figure(units.slope(one.attenuation_db_per_km, 4), units.slopeDeviation(one.attenuation_sd_db_per_km, 4), slopeUnit);
    const bounded = (mark: string, value: string) => (mark && value !== '-' ? `${mark} ${value}` : value);
    const rows: [string, string, string][] = [
      ['two-point', 'Two points, A to B', loss(two)],
      ['two-point-slope', '', slope(two)],
      ['lsa', 'Least squares, A to B', loss(line)],
      ['lsa-slope', '', slope(line)],
      ['event', 'Four points, a A B b', loss(event)],
      ['orl', 'Return loss, A to B', bounded(orl.orl_at_most ? '<' : '', figure(units.fixed(orl.orl_db, 2), units.deviation(orl.orl_sd_db, 2), 'dB'))],
      ['level', 'Level at A', figure(units.fixed(peak.level_db, 3), units.deviation(peak.level_sd_db, 3), 'dB')],
      ['reflectance', 'Reflectance at A', bounded(peak.reflectance_at_least ? '>' : '', figure(units.fixed(peak.reflectance_db, 2), units.deviation(peak.reflectance_sd_db, 2), 'dB'))],
    ];
    this.figures.replaceChildren(...rows.flatMap(([key, name, text]) => [el('dt', { text: name }), el('dd', { text, 'data-figure': key })]));
    const own = new Set(trace.analysis?.table.warnings ?? []);
    const notes = new Set([two, line, orl, event, peak].flatMap((one) => (one.error ? [one.error] : one.warnings)));
    this.notes.replaceChildren(...[...notes].filter((text) => !own.has(text)).map((text) => el('li', { text })));
  }
}

function requestsFor([a, A, B, b]: number[]): object[] {
  return [
    { kind: 'two-point', places: [A, B] },
    { kind: 'least-squares', places: [A, B] },
    { kind: 'return-loss', places: [A, B] },
    { kind: 'event', places: [a, A, B, b] },
    { kind: 'at', places: [A] },
  ];
}
