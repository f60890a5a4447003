// SPDX-License-Identifier: Apache-2.0
// The events of the table on its curve: each a button with its sign and number, over a line to its place and a bar for
// how far that place may be off.
import type uPlot from 'uplot';
import { levelAt, rangeOf } from './curve';
import { el, icon } from './dom';
import type { Colours } from './look';
import type { EventRow } from './listing';
import type { Model } from './model';
import { kindOf, SYMBOLS, WORDS } from './symbols';
import { eventKm, tableOf, Trace, traceKm } from './traces';
import { placeWithUnit, scale } from './units';

const LIFT = 34; // pixels between the curve and a sign over it
const WIDTH = 24; // of a sign; nearer ones stand higher
const HEIGHT = 30;
const STEP = 8; // pixels that a sign is moved by to be clear of others
const MOST_STEPS = 16;
const BELOW = 12; // pixels between the curve and a sign below it
const SMALL = 9; // pixels, of the dot that stands for a sign without room
const INTERVAL = 1.96; // deviations: 95 %

interface Place {
  x: number;
  top: number;
}
interface Sign {
  event: EventRow;
  button: HTMLButtonElement;
}

export class Signs {
  readonly layer = el('div', { class: 'signs', role: 'group', 'aria-label': 'Events on the curve' });
  private signs: Sign[] = [];

  constructor(private readonly model: Model) {}

  rebuild(): void {
    this.layer.replaceChildren();
    this.signs = [];
    const trace = this.model.currentTrace;
    const table = trace && tableOf(trace);
    if (!trace || !table) return;
    table.events.forEach((event, index) => {
      const kind = kindOf(table, index);
      const button = el(
        'button',
        {
          type: 'button',
          class: `sign ${kind} ${worst(event)}`,
          'data-index': index,
          tabindex: -1,
          'aria-label': `Event ${event.number}, ${WORDS[kind]}, at ${placeWithUnit(event.distance_km)}`,
          click: () => this.model.select(index),
        },
        icon(SYMBOLS[kind]),
        el('span', { text: event.number }),
      );
      this.signs.push({ event, button });
      this.layer.append(button);
    });
  }

  draw(plot: uPlot, look: Colours): void {
    const trace = this.model.currentTrace;
    if (!trace || !this.model.shows(trace)) {
      this.layer.hidden = true;
      return;
    }
    this.layer.hidden = false;
    const box = plot.over.getBoundingClientRect();
    const taken: Place[] = [];
    for (const index of this.byWeight()) {
      const { event, button } = this.signs[index];
      const x = plot.valToPos(eventKm(trace, event) * scale().perKm, 'x');
      const levels = this.levelsAt(trace, event, plot);
      const inside = x >= -1 && x <= box.width + 1 && levels !== null;
      button.hidden = !inside;
      if (!inside || !levels) continue;
      const y = plot.valToPos(levels.at, 'y');
      const chosen = index === this.model.selected;
      const top = freeTop(x, plot.valToPos(levels.top, 'y') - LIFT, y, box.height, taken, chosen);
      button.classList.toggle('chosen', chosen);
      button.classList.toggle('small', top === null);
      if (top === null) {
        button.style.transform = `translate(${x - SMALL / 2}px, ${Math.max(0, Math.min(y, box.height) - SMALL / 2)}px)`;
        continue;
      }
      taken.push({ x, top });
      button.style.transform = `translate(${x - WIDTH / 2}px, ${top}px)`;
      this.drawPlace(plot, look, event, x, top, y, chosen);
    }
  }

  // Where there is no room for all signs, these come first: the chosen one, what fails, the ends of the fibre, reflections.
  private byWeight(): number[] {
    const last = this.signs.length - 1;
    const weight = (index: number): number => {
      const { event } = this.signs[index];
      if (index === this.model.selected) return 0;
      if (worst(event) === 'fail') return 1;
      if (index === 0 || index === last) return 2;
      return worst(event) === 'warning' || worst(event) === 'marginal' ? 3 : event.reflectance_db !== null ? 4 : 5;
    };
    return this.signs.map((_, index) => index).sort((a, b) => weight(a) - weight(b) || a - b);
  }

  // Level of the curve at an event, and the highest that the sign has to stay clear of.
  private levelsAt(trace: Trace, event: EventRow, plot: uPlot): { at: number; top: number } | null {
    const km = traceKm(trace, eventKm(trace, event));
    const at = levelAt(trace.curve, km);
    if (at === null) return null;
    const perPixel = (this.model.view.toKm - this.model.view.fromKm) / Math.max(plot.over.clientWidth, 1);
    const range = rangeOf(trace.curve, km - perPixel * 4, km + perPixel * 10);
    return { at: at + trace.offsetDb, top: (range ? range.high : at) + trace.offsetDb };
  }

  private drawPlace(
    plot: uPlot,
    look: Colours,
    event: EventRow,
    x: number,
    top: number,
    y: number,
    chosen: boolean,
  ): void {
    const { ctx, bbox } = plot;
    const ratio = devicePixelRatio;
    const left = bbox.left / ratio;
    const upper = bbox.top / ratio;
    const half = (((event.distance_sd_m ?? 0) * INTERVAL) / 1000 / (this.model.view.toKm - this.model.view.fromKm)) * plot.over.clientWidth;
    ctx.save();
    ctx.scale(ratio, ratio);
    ctx.translate(left, upper);
    ctx.beginPath();
    ctx.rect(0, 0, bbox.width / ratio, bbox.height / ratio);
    ctx.clip();
    ctx.strokeStyle = chosen ? look.accent : look.muted;
    ctx.lineWidth = chosen ? 1.5 : 1;
    ctx.beginPath();
    ctx.moveTo(x, chosen ? 0 : top > y ? y : top + HEIGHT);
    ctx.lineTo(x, chosen ? bbox.height / ratio : top > y ? top : Math.max(top + HEIGHT, y));
    ctx.stroke();
    if (event.distance_sd_m !== null && event.distance_sd_m !== undefined) {
      ctx.lineWidth = 2;
      ctx.strokeStyle = chosen ? look.accent : look.text;
      const reach = Math.max(half, 1);
      ctx.beginPath();
      ctx.moveTo(x - reach, y);
      ctx.lineTo(x + reach, y);
      for (const end of half > 2 ? [x - reach, x + reach] : []) {
        ctx.moveTo(end, y - 4);
        ctx.lineTo(end, y + 4);
      }
      ctx.stroke();
    }
    ctx.restore();
  }
}

// A place for a sign that covers no other: over the curve, at most some signs higher, else below it; none where there is
// no room.
function freeTop(x: number, lowest: number, y: number, height: number, taken: Place[], chosen: boolean): number | null {
  const most = height - HEIGHT;
  const first = Math.max(0, Math.min(lowest, most));
  const covers = (top: number) => taken.some((other) => Math.abs(other.x - x) < WIDTH && Math.abs(other.top - top) < HEIGHT);
  if (chosen || !covers(first)) return first;
  for (let step = 1; step < MOST_STEPS && first - step * STEP >= 0; ++step) if (!covers(first - step * STEP)) return first - step * STEP;
  for (let step = 0; step < MOST_STEPS && y + BELOW + step * STEP <= most; ++step) if (!covers(y + BELOW + step * STEP)) return y + BELOW + step * STEP;
  return null;
}

// The worst verdict of an event's numbers, for its colour.
export function worst(event: EventRow): string {
  const verdicts = event.verdict ? [event.verdict.loss, event.verdict.reflectance, event.verdict.attenuation] : [];
  return ['fail', 'marginal', 'warning', 'pass'].find((one) => verdicts.some((verdict) => verdict === one)) ?? '';
}
