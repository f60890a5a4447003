// SPDX-License-Identifier: Apache-2.0
// A plain map: the routes of the fibres, coloured by their states, and the place of what is wrong.
import { perFrame } from '../dom';
import type { Fibre, Place } from './api';
import { badness, byBadness } from './words';

type Point = [number, number]; // longitude, latitude

interface Line {
  name: string;
  state: string;
  points: Point[];
}

interface View {
  x: number; // of the middle, degrees
  y: number;
  scale: number; // pixels a degree of latitude
}

const MOST_ZOOM = 4e6;

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
  private held: { x: number; y: number } | null = null;
  private moved = 0;
  private chosen = '';
  private readonly draw = perFrame(() => this.drawNow());

  constructor(
    private readonly canvas: HTMLCanvasElement,
    private readonly choose: (name: string) => void,
  ) {
    canvas.addEventListener('wheel', (event) => this.wheel(event), { passive: false });
    canvas.addEventListener('pointerdown', (event) => this.press(event));
    canvas.addEventListener('pointermove', (event) => this.drag(event));
    canvas.addEventListener('pointerup', (event) => this.release(event));
    canvas.addEventListener('keydown', (event) => this.key(event));
    canvas.addEventListener('dblclick', () => this.fit());
    new ResizeObserver(() => this.draw()).observe(canvas);
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => this.draw());
  }

  show(fibres: Fibre[], chosen: string): void {
    // What is wrong is drawn last, on top.
    this.lines = [...fibres].sort(byBadness).reverse()
      .map(({ name, state, route }) => ({ name, state, points: lineOf(route) }))
      .filter((line) => line.points.length > 1);
    this.chosen = chosen;
    if (!this.view) this.fit();
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
    const scale = 0.9 * Math.min(width / wide, height / Math.max(north - south, 1e-6));
    this.view = { x: (west + east) / 2, y, scale: Math.min(scale, MOST_ZOOM) };
    this.draw();
  }

  private at(point: Point): [number, number] {
    const { width, height } = this.canvas.getBoundingClientRect();
    const { x, y, scale } = this.view!;
    const narrow = Math.cos((y * Math.PI) / 180);
    return [width / 2 + (point[0] - x) * narrow * scale, height / 2 - (point[1] - y) * scale];
  }

  private drawNow(): void {
    const { width, height } = this.canvas.getBoundingClientRect();
    const pen = this.canvas.getContext('2d');
    if (!pen || !this.view || width === 0) return;
    this.canvas.width = width * devicePixelRatio;
    this.canvas.height = height * devicePixelRatio;
    pen.scale(devicePixelRatio, devicePixelRatio);
    const colour = (name: string): string => getComputedStyle(this.canvas).getPropertyValue(name);
    for (const line of this.lines) {
      const bad = badness(line.state) < 4;
      pen.strokeStyle = colour(line.state === 'ok' ? '--pass' : badness(line.state) < 2 ? '--fail' : '--section-line');
      pen.lineWidth = line.name === this.chosen ? 4 : bad ? 2.5 : 1.2;
      pen.setLineDash(bad ? [] : line.state === 'ok' ? [] : [4, 4]);
      this.path(pen, line.points);
    }
    pen.setLineDash([]);
    for (const { place } of this.places) {
      pen.strokeStyle = colour('--fail');
      pen.lineWidth = 7;
      this.path(pen, place.stretch);
      const [x, y] = this.at([place.longitude, place.latitude]);
      pen.lineWidth = 2;
      pen.beginPath();
      pen.arc(x, y, 9, 0, 2 * Math.PI);
      pen.stroke();
    }
    this.scaleBar(pen, height, colour('--text'));
  }

  private path(pen: CanvasRenderingContext2D, points: Point[]): void {
    pen.beginPath();
    for (const point of points) pen.lineTo(...this.at(point));
    pen.stroke();
  }

  private scaleBar(pen: CanvasRenderingContext2D, height: number, colour: string): void {
    const kmAPixel = 111.2 / this.view!.scale;
    const km = 10 ** Math.floor(Math.log10(kmAPixel * 120));
    pen.fillStyle = colour;
    pen.fillRect(12, height - 14, km / kmAPixel, 2);
    pen.font = '12px system-ui, sans-serif';
    pen.fillText(km >= 1 ? `${km} km` : `${Math.round(km * 1000)} m`, 12, height - 20);
  }

  private zoom(factor: number, x: number, y: number): void {
    if (!this.view) return;
    const { width, height } = this.canvas.getBoundingClientRect();
    const narrow = Math.cos((this.view.y * Math.PI) / 180);
    const scale = Math.min(this.view.scale * factor, MOST_ZOOM);
    const shift = 1 / this.view.scale - 1 / scale;
    this.view.x += ((x - width / 2) * shift) / narrow;
    this.view.y -= (y - height / 2) * shift;
    this.view.scale = scale;
    this.draw();
  }

  private wheel(event: WheelEvent): void {
    event.preventDefault();
    this.zoom(Math.exp(-event.deltaY / 300), event.offsetX, event.offsetY);
  }

  private press(event: PointerEvent): void {
    this.held = { x: event.clientX, y: event.clientY };
    this.moved = 0;
    this.canvas.setPointerCapture(event.pointerId);
  }

  private drag(event: PointerEvent): void {
    if (!this.held || !this.view) return;
    const [right, down] = [event.clientX - this.held.x, event.clientY - this.held.y];
    this.moved += Math.abs(right) + Math.abs(down);
    this.view.x -= right / this.view.scale / Math.cos((this.view.y * Math.PI) / 180);
    this.view.y += down / this.view.scale;
    this.held = { x: event.clientX, y: event.clientY };
    this.draw();
  }

  private release(event: PointerEvent): void {
    this.held = null;
    if (this.moved > 4 || !this.view) return;
    const near = this.nearest(event.offsetX, event.offsetY);
    if (near) this.choose(near);
  }

  private nearest(x: number, y: number): string | null {
    let best: { name: string; off: number } | null = null;
    for (const line of this.lines) {
      for (let i = 1; i < line.points.length; ++i) {
        const off = distance([x, y], this.at(line.points[i - 1]), this.at(line.points[i]));
        if (off < 12 && (!best || off <= best.off)) best = { name: line.name, off };
      }
    }
    return best?.name ?? null;
  }

  private key(event: KeyboardEvent): void {
    const step = this.view ? 40 / this.view.scale : 0;
    const { width, height } = this.canvas.getBoundingClientRect();
    const keys: Record<string, () => void> = {
      '+': () => this.zoom(1.5, width / 2, height / 2),
      '-': () => this.zoom(1 / 1.5, width / 2, height / 2),
      f: () => this.fit(),
      ArrowLeft: () => (this.view!.x -= step),
      ArrowRight: () => (this.view!.x += step),
      ArrowUp: () => (this.view!.y += step),
      ArrowDown: () => (this.view!.y -= step),
    };
    const act = keys[event.key];
    if (!act || !this.view) return;
    event.preventDefault();
    act();
    this.draw();
  }
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
