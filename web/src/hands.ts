// SPDX-License-Identifier: Apache-2.0
// Mouse, fingers and keys on the plot. The wheel zooms distance at the pointer, with Shift levels; a rectangle is drawn
// with the left button; the middle one, or space, moves; a double click fits. One finger moves, two zoom.
import { el } from './dom';
import type { Model } from './model';
import type { Plot } from './plot';
import { bounded, bringIntoView, closeUp, fitted, pan, step, whole, zoomDb, zoomKm } from './views';
import { eventKm, tableOf } from './traces';

const WHEEL = 0.0016; // of a factor's logarithm, for each unit that the wheel turns
const LEAST_DRAG = 5; // pixels; less is a click
const KEY_ZOOM = 0.6;

export interface Actions {
  toggleMarkers(): void;
  clear(): void;
  showKeys(): void;
}

interface Point {
  x: number;
  y: number;
}

export class Hands {
  private space = false;
  private drag: { how: 'pan' | 'rectangle'; from: Point; last: Point } | null = null;
  private fingers = new Map<number, Point>();
  private readonly rectangle = el('div', { class: 'rectangle', hidden: true });

  constructor(
    private readonly model: Model,
    private readonly plot: Plot,
    private readonly host: HTMLElement,
    private readonly actions: Actions,
  ) {
    host.addEventListener('wheel', (event) => this.wheel(event), { passive: false });
    host.addEventListener('pointerdown', (event) => this.down(event));
    host.addEventListener('pointermove', (event) => this.move(event));
    host.addEventListener('pointerup', (event) => this.up(event));
    host.addEventListener('pointercancel', (event) => this.cancel(event));
    host.addEventListener('dblclick', () => model.setView(fitted(model)));
    host.addEventListener('mousedown', (event) => event.button === 1 && event.preventDefault());
    document.addEventListener('keydown', (event) => this.key(event));
    document.addEventListener('keyup', (event) => {
      if (event.key === ' ') this.hold(false);
    });
  }

  private hold(space: boolean): void {
    this.space = space;
    this.host.classList.toggle('panning', space);
  }

  private wheel(event: WheelEvent): void {
    const at = this.plot.at(event);
    if (!at || this.model.traces.length === 0) return;
    event.preventDefault();
    // With Shift, some systems turn the wheel sideways.
    const turned = event.deltaY || event.deltaX;
    const factor = Math.exp(WHEEL * turned * (event.deltaMode === 1 ? 30 : 1));
    if (event.shiftKey) zoomDb(this.model, factor, at.db);
    else zoomKm(this.model, factor, at.km);
  }

  private inPlot(event: PointerEvent): boolean {
    const target = event.target as Element;
    return this.plot.surface?.contains(target) === true && !target.closest('button');
  }

  private down(event: PointerEvent): void {
    if (!this.inPlot(event) || event.button > 1) return;
    this.host.setPointerCapture(event.pointerId);
    const point = { x: event.clientX, y: event.clientY };
    if (event.pointerType === 'touch') this.fingers.set(event.pointerId, point);
    const pans = event.button === 1 || this.space || event.pointerType === 'touch';
    if (event.button === 1) event.preventDefault();
    this.drag = { how: pans ? 'pan' : 'rectangle', from: point, last: point };
  }

  private move(event: PointerEvent): void {
    const point = { x: event.clientX, y: event.clientY };
    if (this.fingers.has(event.pointerId) && this.fingers.size === 2) {
      this.pinch(event.pointerId, point);
      return;
    }
    if (this.fingers.has(event.pointerId)) this.fingers.set(event.pointerId, point);
    if (!this.drag) return;
    if (this.drag.how === 'pan') this.pan(this.drag.last, point);
    this.drag.last = point;
    if (this.drag.how === 'rectangle') this.showRectangle();
  }

  // The fibre under both fingers stays there, spread and moved.
  private pinch(id: number, point: Point): void {
    const before = [...this.fingers.values()];
    this.fingers.set(id, point);
    const after = [...this.fingers.values()];
    const spread = (two: Point[]) => Math.max(Math.hypot(two[0].x - two[1].x, two[0].y - two[1].y), 20);
    const middle = (two: Point[]) => ({ x: (two[0].x + two[1].x) / 2, y: (two[0].y + two[1].y) / 2 });
    this.pan(middle(before), middle(after));
    const at = this.plot.at({ clientX: middle(after).x, clientY: middle(after).y });
    if (at) zoomKm(this.model, spread(before) / spread(after), at.km);
  }

  private pan(from: Point, to: Point): void {
    const per = this.plot.perPixel;
    pan(this.model, (from.x - to.x) * per.km, (to.y - from.y) * per.db);
  }

  private showRectangle(): void {
    const surface = this.plot.surface;
    if (!this.drag || !surface) return;
    if (!this.rectangle.isConnected) surface.append(this.rectangle);
    const box = surface.getBoundingClientRect();
    const { from, last } = this.drag;
    const clampX = (x: number) => Math.min(Math.max(x, box.left), box.right) - box.left;
    const clampY = (y: number) => Math.min(Math.max(y, box.top), box.bottom) - box.top;
    const [left, right] = [clampX(from.x), clampX(last.x)].sort((a, b) => a - b);
    const [top, bottom] = [clampY(from.y), clampY(last.y)].sort((a, b) => a - b);
    this.rectangle.hidden = right - left < LEAST_DRAG && bottom - top < LEAST_DRAG;
    Object.assign(this.rectangle.style, {
      left: `${left}px`,
      top: `${top}px`,
      width: `${right - left}px`,
      height: `${bottom - top}px`,
    });
  }

  private up(event: PointerEvent): void {
    const drag = this.drag;
    this.cancel(event);
    if (drag?.how !== 'rectangle') return;
    const one = this.plot.at({ clientX: drag.from.x, clientY: drag.from.y });
    const other = this.plot.at({ clientX: drag.last.x, clientY: drag.last.y });
    const wide = Math.abs(drag.last.x - drag.from.x);
    const high = Math.abs(drag.last.y - drag.from.y);
    if (!one || !other || (wide < LEAST_DRAG && high < LEAST_DRAG)) return;
    // A stroke along one axis zooms that axis alone.
    const view = { ...this.model.view };
    if (wide >= LEAST_DRAG) [view.fromKm, view.toKm] = [Math.min(one.km, other.km), Math.max(one.km, other.km)];
    if (high >= LEAST_DRAG) [view.fromDb, view.toDb] = [Math.min(one.db, other.db), Math.max(one.db, other.db)];
    this.model.setView(bounded(this.model, view));
  }

  private cancel(event: PointerEvent): void {
    this.fingers.delete(event.pointerId);
    this.drag = null;
    this.rectangle.hidden = true;
  }

  private middle(): { km: number; db: number } {
    const { fromKm, toKm, fromDb, toDb } = this.model.view;
    return { km: (fromKm + toKm) / 2, db: (fromDb + toDb) / 2 };
  }

  // The chosen event is what a key zooms at, if it is seen.
  private focus(): number {
    const trace = this.model.currentTrace;
    const event = trace && tableOf(trace)?.events[this.model.selected];
    const km = trace && event ? eventKm(trace, event) : this.middle().km;
    return km > this.model.view.fromKm && km < this.model.view.toKm ? km : this.middle().km;
  }

  zoom(factor: number): void {
    zoomKm(this.model, factor, this.focus());
  }

  go(by: number): void {
    step(this.model, by);
    const trace = this.model.currentTrace;
    const event = trace && tableOf(trace)?.events[this.model.selected];
    if (trace && event) bringIntoView(this.model, eventKm(trace, event));
  }

  // The chosen event large.
  close(): void {
    const trace = this.model.currentTrace;
    const table = trace && tableOf(trace);
    const event = table?.events[this.model.selected];
    if (trace && table && event) this.model.setView(closeUp(this.model, eventKm(trace, event), table.pulse_ns));
  }

  private key(event: KeyboardEvent): void {
    const target = event.target as Element;
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (target.closest('input, select, textarea, dialog[open], [role=slider], [role=tablist]')) {
      if (event.key === 'Escape' && !target.closest('dialog')) this.actions.clear();
      return;
    }
    if (event.key === ' ' && target.closest('button, summary, a')) return;
    const work = this.workOf(event);
    if (!work) return;
    event.preventDefault();
    work();
  }

  private workOf(event: KeyboardEvent): (() => void) | null {
    const { model } = this;
    const width = model.view.toKm - model.view.fromKm;
    const sideways = event.key === 'ArrowRight' ? 1 : event.key === 'ArrowLeft' ? -1 : 0;
    const upwards = event.key === 'ArrowUp' ? 1 : event.key === 'ArrowDown' ? -1 : 0;
    if (event.shiftKey && sideways) return () => pan(model, (sideways * width) / 5, 0);
    if (event.shiftKey && upwards) return () => zoomDb(model, upwards > 0 ? KEY_ZOOM : 1 / KEY_ZOOM, this.middle().db);
    if (sideways || upwards) return () => this.go(sideways || -upwards);
    const keys: Record<string, () => void> = {
      f: () => model.setView(fitted(model)),
      '1': () => model.setView(whole(model)),
      '+': () => this.zoom(KEY_ZOOM),
      '=': () => this.zoom(KEY_ZOOM),
      '-': () => this.zoom(1 / KEY_ZOOM),
      e: () => this.close(),
      m: () => this.actions.toggleMarkers(),
      s: () => {
        model.showLines = !model.showLines;
        model.changed('view');
      },
      r: () => {
        model.showResiduals = !model.showResiduals;
        model.changed('view', 'pairs');
      },
      Escape: () => this.actions.clear(),
      '?': () => this.actions.showKeys(),
      ' ': () => this.hold(true),
    };
    return keys[event.key] ?? keys[event.key.toLowerCase()] ?? null;
  }
}
