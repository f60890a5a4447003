// SPDX-License-Identifier: Apache-2.0
// A plain map: the routes of the fibres, coloured by their states, and the place of what is wrong.
import { perFrame } from '../dom';
import type { Fibre, Place } from './api';
import { drawLabels } from './labels';
import { HIGHEST, Tiles } from './tiles';
import { badness, byBadness } from './words';

type Point = [number, number]; // longitude, latitude

interface Line {
  name: string;
  state: string;
  points: Point[];
  ends: [string, string];
}

interface View {
  x: number; // of the middle, degrees
  y: number;
  scale: number; // pixels a degree of latitude
}

const MOST_ZOOM = 4e6;
const LEAST_ZOOM = 1; // 360 pixels for the whole earth
const STEP = 1.5;
const SCALE_BAR = 80; // pixels, below the routes with its number, and the same above
const WIDE_OF_A_PRESS = 4; // pixels that a hand moves while it presses

// The line of a route, whichever way GeoJSON holds it.
export function lineOf(route: unknown): Point[] {
  const object = route as { type?: string; coordinates?: Point[]; geometry?: unknown; features?: unknown[] } | null;
  if (!object) return [];
  if (object.type === 'LineString') return object.coordinates ?? [];
  if (object.type === 'Feature') return lineOf(object.geometry);
  for (const feature of object.features ?? []) {
    const line = lineOf(feature);
    if (line.length > 1) return line;
  }
  return [];
}

export class RouteMap {
  private lines: Line[] = [];
  private places: { place: Place; state: string }[] = [];
  private view: View | null = null;
  private readonly held = new Map<number, { x: number; y: number }>(); // fingers, or the mouse
  private tiles: Tiles | null = null;
  private moved = 0;
  private chosen = '';
  private untouched = true; // no hand has moved it: it shows all routes, whichever come
  private readonly draw = perFrame(() => this.drawNow());

  constructor(
    private readonly canvas: HTMLCanvasElement,
    private readonly choose: (name: string) => void,
  ) {
    canvas.addEventListener('wheel', (event) => this.wheel(event), { passive: false });
    canvas.addEventListener('pointerdown', (event) => this.press(event));
    canvas.addEventListener('pointermove', (event) => this.drag(event));
    canvas.addEventListener('pointerup', (event) => this.release(event));
    canvas.addEventListener('pointercancel', (event) => this.held.delete(event.pointerId));
    canvas.addEventListener('keydown', (event) => this.key(event));
    canvas.addEventListener('dblclick', () => this.fit());
    new ResizeObserver(() => (this.untouched ? this.fit() : this.draw())).observe(canvas);
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => this.draw());
  }

  show(fibres: Fibre[], chosen: string): void {
    // What is wrong is drawn last, on top.
    this.lines = [...fibres].sort(byBadness).reverse()
      .map(({ name, state, route, from, to }): Line => ({ name, state, points: lineOf(route), ends: [from, to] }))
      .filter((line) => line.points.length > 1);
    this.chosen = chosen;
    if (this.untouched) this.fit();
    this.draw();
  }

  // Pictures behind the routes.
  putBehind(address: string): void {
    this.tiles = new Tiles(address, this.draw);
    this.draw();
  }

  showPlaces(places: { place: Place; state: string }[]): void {
    this.places = places;
    this.draw();
  }

  hasRoutes(): boolean {
    return this.lines.length > 0;
  }

  fit(): void {
    const points = this.lines.flatMap((line) => line.points);
    const { width, height } = this.canvas.getBoundingClientRect();
    if (points.length === 0 || width === 0) return;
    const [west, east] = range(points.map((point) => point[0]));
    const [south, north] = range(points.map((point) => point[1]));
    const y = (south + north) / 2;
    const wide = Math.max((east - west) * Math.cos((y * Math.PI) / 180), 1e-6);
    const scale = Math.min((0.9 * width) / wide, Math.max(height - SCALE_BAR, 1) / Math.max(north - south, 1e-6));
    this.untouched = true;
    this.view = { x: (west + east) / 2, y, scale: Math.min(scale, MOST_ZOOM) };
    this.draw();
  }

  // From the earth to the canvas, as both are now.
  private placing(): (point: Point) => [number, number] {
    const { width, height } = this.canvas.getBoundingClientRect();
    const { x, y, scale } = this.view!;
    const narrow = Math.cos((y * Math.PI) / 180);
    return (point) => [width / 2 + (point[0] - x) * narrow * scale, height / 2 - (point[1] - y) * scale];
  }

  private drawNow(): void {
    const { width, height } = this.canvas.getBoundingClientRect();
    const pen = this.canvas.getContext('2d');
    if (!pen || !this.view || width === 0) return;
    this.canvas.width = width * devicePixelRatio;
    this.canvas.height = height * devicePixelRatio;
    pen.scale(devicePixelRatio, devicePixelRatio);
    const style = getComputedStyle(this.canvas);
    const colour = (name: string): string => style.getPropertyValue(name).trim();
    this.drawTiles(pen, width, height, Number(colour('--tiles')));
    // Of one state in one stroke: a network has thousands of them.
    for (const [state, lines] of this.byState()) {
      const bad = badness(state) < badness('no baseline');
      pen.strokeStyle = colour(colourOf(state));
      pen.lineWidth = bad ? 2.5 : 1.2;
      pen.setLineDash(bad || state === 'ok' ? [] : [4, 4]);
      this.path(pen, lines.map((line) => line.points));
    }
    pen.setLineDash([]);
    const chosen = this.lines.find((line) => line.name === this.chosen);
    if (chosen) {
      pen.strokeStyle = colour(colourOf(chosen.state));
      pen.lineWidth = 4;
      this.path(pen, [chosen.points]);
    }
    for (const { place, state } of this.places) this.drawPlace(pen, place, colour(colourOf(state)));
    drawLabels(pen, this.ends(), colour('--text'), colour('--surface'));
    this.scaleBar(pen, height, colour('--text'));
  }

  private drawTiles(pen: CanvasRenderingContext2D, width: number, height: number, strength: number): void {
    const { x, y, scale } = this.view!;
    const across = Math.cos((y * Math.PI) / 180) * scale; // pixels a degree of longitude
    const [wide, high] = [width / 2 / across, height / 2 / scale];
    const window = { west: x - wide, east: x + wide, south: y - high, north: y + high };
    this.tiles?.draw(pen, window, this.placing(), across, strength);
  }

  // Where an alarm is: the stretch of the route that holds it, and a ring that is seen from afar.
  private drawPlace(pen: CanvasRenderingContext2D, place: Place, colour: string): void {
    pen.strokeStyle = colour;
    pen.lineWidth = 7;
    this.path(pen, [place.stretch]);
    pen.lineWidth = 2;
    pen.beginPath();
    pen.arc(...this.placing()([place.longitude, place.latitude]), 9, 0, 2 * Math.PI);
    pen.stroke();
  }

  // Both ends of all routes by their names, each name once at a place; those of the worst first.
  private ends(): { text: string; x: number; y: number }[] {
    const place = this.placing();
    const found = new Map<string, { text: string; x: number; y: number }>();
    for (const { ends, points } of [...this.lines].reverse()) {
      for (const [text, point] of [[ends[0], points[0]], [ends[1], points[points.length - 1]]] as [string, Point][]) {
        const key = `${text} ${point[0].toFixed(3)} ${point[1].toFixed(3)}`;
        if (text === '' || found.has(key)) continue;
        const [x, y] = place(point);
        found.set(key, { text, x, y });
      }
    }
    return [...found.values()];
  }

  private byState(): Map<string, Line[]> {
    const groups = new Map<string, Line[]>();
    for (const line of this.lines) {
      const group = groups.get(line.state);
      if (group) group.push(line);
      else groups.set(line.state, [line]);
    }
    return groups;
  }

  private path(pen: CanvasRenderingContext2D, lines: Point[][]): void {
    const place = this.placing();
    pen.beginPath();
    for (const points of lines) points.forEach((point, i) => (i === 0 ? pen.moveTo(...place(point)) : pen.lineTo(...place(point))));
    pen.stroke();
  }

  private scaleBar(pen: CanvasRenderingContext2D, height: number, colour: string): void {
    const kmAPixel = 111.2 / this.view!.scale;
    const tens = 10 ** Math.floor(Math.log10(kmAPixel * 150));
    const km = tens * ([5, 2].find((times) => times * tens <= kmAPixel * 150) ?? 1);
    pen.fillStyle = colour;
    pen.fillRect(12, height - 14, km / kmAPixel, 2);
    pen.font = '12px system-ui, sans-serif';
    pen.fillText(km >= 1 ? `${km} km` : `${Math.round(km * 1000)} m`, 12, height - 20);
  }

  // By degrees of latitude, to the east and to the north. At a pole a degree of longitude is nothing.
  private move(east: number, north: number): void {
    const view = this.view!;
    view.x = Math.max(-360, Math.min(view.x + east / Math.cos((view.y * Math.PI) / 180), 360));
    view.y = Math.max(-HIGHEST, Math.min(view.y + north, HIGHEST));
  }

  // Larger or smaller; what is in the middle stays there.
  step(factor: number): void {
    const { width, height } = this.canvas.getBoundingClientRect();
    this.zoom(factor, width / 2, height / 2);
  }

  private zoom(factor: number, x: number, y: number): void {
    if (!this.view) return;
    const { width, height } = this.canvas.getBoundingClientRect();
    this.untouched = false;
    const scale = Math.max(LEAST_ZOOM, Math.min(this.view.scale * factor, MOST_ZOOM));
    const shift = 1 / this.view.scale - 1 / scale;
    this.move((x - width / 2) * shift, (height / 2 - y) * shift);
    this.view.scale = scale;
    this.draw();
  }

  private wheel(event: WheelEvent): void {
    event.preventDefault();
    this.zoom(Math.exp(-event.deltaY / 300), event.offsetX, event.offsetY);
  }

  private press(event: PointerEvent): void {
    if (this.held.size === 0) this.moved = 0;
    this.held.set(event.pointerId, { x: event.offsetX, y: event.offsetY });
    this.canvas.setPointerCapture(event.pointerId);
  }

  // One moves the map; two move and zoom it.
  private drag(event: PointerEvent): void {
    const before = this.held.get(event.pointerId);
    if (!before || !this.view) return;
    const now = { x: event.offsetX, y: event.offsetY };
    this.held.set(event.pointerId, now);
    this.untouched = false;
    const other = [...this.held].find(([id]) => id !== event.pointerId)?.[1];
    const share = other ? 0.5 : 1;
    const [right, down] = [now.x - before.x, now.y - before.y];
    this.moved += Math.abs(right) + Math.abs(down) + (other ? WIDE_OF_A_PRESS : 0);
    this.move((-share * right) / this.view.scale, (share * down) / this.view.scale);
    if (other) {
      const apart = (one: { x: number; y: number }): number => Math.max(1, Math.hypot(one.x - other.x, one.y - other.y));
      this.zoom(apart(now) / apart(before), (now.x + other.x) / 2, (now.y + other.y) / 2);
    }
    this.draw();
  }

  private release(event: PointerEvent): void {
    this.held.delete(event.pointerId);
    if (this.held.size > 0 || this.moved > WIDE_OF_A_PRESS || !this.view) return;
    const near = this.nearest(event.offsetX, event.offsetY);
    if (near) this.choose(near);
  }

  private nearest(x: number, y: number): string | null {
    const place = this.placing();
    let best: { name: string; off: number } | null = null;
    for (const line of this.lines) {
      for (let i = 1; i < line.points.length; ++i) {
        const off = distance([x, y], place(line.points[i - 1]), place(line.points[i]));
        if (off < 12 && (!best || off <= best.off)) best = { name: line.name, off };
      }
    }
    return best?.name ?? null;
  }

  private key(event: KeyboardEvent): void {
    const step = this.view ? 40 / this.view.scale : 0;
    const keys: Record<string, () => void> = {
      '+': () => this.step(STEP),
      '-': () => this.step(1 / STEP),
      f: () => this.fit(),
      ArrowLeft: () => this.move(-step, 0),
      ArrowRight: () => this.move(step, 0),
      ArrowUp: () => this.move(0, step),
      ArrowDown: () => this.move(0, -step),
    };
    const act = keys[event.key];
    if (!act || !this.view || event.ctrlKey || event.metaKey || event.altKey) return;
    event.preventDefault();
    this.untouched = false;
    act();
    this.draw();
  }
}

function colourOf(state: string): string {
  if (state === 'ok') return '--pass';
  return badness(state) <= badness('major') ? '--bad' : '--section-line';
}

function range(values: number[]): [number, number] {
  // Not by spreading: a network has more points than a call takes arguments.
  return values.reduce(([low, high], value) => [Math.min(low, value), Math.max(high, value)], [Infinity, -Infinity]);
}

function distance(at: Point, from: Point, to: Point): number {
  const [x, y] = [to[0] - from[0], to[1] - from[1]];
  const length = x * x + y * y;
  const share = length > 0 ? Math.max(0, Math.min(1, ((at[0] - from[0]) * x + (at[1] - from[1]) * y) / length)) : 0;
  return Math.hypot(at[0] - from[0] - share * x, at[1] - from[1] - share * y);
}
