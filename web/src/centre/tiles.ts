// SPDX-License-Identifier: Apache-2.0
// Pictures behind the routes, of a tile server: squares of the earth in Web Mercator, laid where the map has them.

export type Placing = (point: [number, number]) => [number, number]; // longitude and latitude, to pixels

// What the map shows, degrees.
export interface Window {
  west: number;
  east: number;
  south: number;
  north: number;
}

const SIDE = 256; // pixels of a tile
const MOST_ZOOM = 19;
const MOST_AT_ONCE = 80; // tiles of one drawing
const KEPT = 400;
const AGAIN_MS = 30000; // after a tile that did not come
const STRIPS = 8; // of a tile, each placed by itself: the map is even in latitude, tiles are not
export const HIGHEST = 85.05; // degrees of latitude that tiles have

const radians = (degrees: number): number => (degrees * Math.PI) / 180;

// Where a place is in a square of so many tiles a side.
export const column = (longitude: number, tiles: number): number => ((longitude + 180) / 360) * tiles;
export const row = (latitude: number, tiles: number): number => ((1 - Math.asinh(Math.tan(radians(latitude))) / Math.PI) / 2) * tiles;
const longitudeOf = (x: number, tiles: number): number => (x / tiles) * 360 - 180;
const latitudeOf = (y: number, tiles: number): number => (Math.atan(Math.sinh(Math.PI * (1 - (2 * y) / tiles))) * 180) / Math.PI;

export class Tiles {
  private readonly kept = new Map<string, { image: HTMLImageElement; failed: number }>(); // the latest last

  constructor(
    private readonly address: string,
    private readonly redraw: () => void,
  ) {}

  // Draws what is there, and asks for the rest.
  draw(pen: CanvasRenderingContext2D, window: Window, place: Placing, pixelsADegree: number, strength: number): void {
    const south = Math.max(window.south, -HIGHEST);
    const north = Math.min(window.north, HIGHEST);
    let zoom = Math.max(0, Math.min(MOST_ZOOM, Math.round(Math.log2((360 * pixelsADegree) / SIDE))));
    const span = (): [number, number, number, number] => {
      const tiles = 2 ** zoom;
      const last = (at: number): number => Math.min(Math.floor(at), tiles - 1);
      return [Math.floor(column(window.west, tiles)), Math.floor(column(window.east, tiles)), last(row(north, tiles)), last(row(south, tiles))];
    };
    let [left, right, top, bottom] = span();
    while (zoom > 0 && (right - left + 1) * (bottom - top + 1) > MOST_AT_ONCE) {
      zoom -= 1;
      [left, right, top, bottom] = span();
    }
    if (!(right - left < MOST_AT_ONCE)) return; // nothing can be seen there
    pen.globalAlpha = strength; // the routes are what matters
    for (let x = left; x <= right; ++x) for (let y = top; y <= bottom; ++y) this.drawOne(pen, zoom, x, y, place);
    pen.globalAlpha = 1;
  }

  // A tile that is not there yet is shown as its part of a larger one.
  private drawOne(pen: CanvasRenderingContext2D, zoom: number, x: number, y: number, place: Placing): void {
    const tiles = 2 ** zoom;
    const around = ((x % tiles) + tiles) % tiles; // the earth is round
    let image = this.image(zoom, around, y, true);
    let share = 1;
    for (let up = 1; !image && up <= Math.min(zoom, 5); ++up) {
      share = 2 ** up;
      image = this.image(zoom - up, Math.floor(around / share), Math.floor(y / share), false);
    }
    if (!image) return;
    const side = image.naturalWidth / share;
    const [fromX, fromY] = [(around % share) * side, (y % share) * side];
    for (let strip = 0; strip < STRIPS; ++strip) {
      const [left, top] = place([longitudeOf(x, tiles), latitudeOf(y + strip / STRIPS, tiles)]);
      const [right, bottom] = place([longitudeOf(x + 1, tiles), latitudeOf(y + (strip + 1) / STRIPS, tiles)]);
      const [l, t] = [Math.round(left), Math.round(top)]; // whole pixels: no seams
      pen.drawImage(image, fromX, fromY + (strip * side) / STRIPS, side, side / STRIPS, l, t, Math.round(right) - l, Math.round(bottom) - t);
    }
  }

  private image(zoom: number, x: number, y: number, wanted: boolean): HTMLImageElement | null {
    const key = `${zoom}/${x}/${y}`;
    let one = this.kept.get(key);
    if (wanted && (!one || (one.failed > 0 && Date.now() - one.failed > AGAIN_MS))) one = this.ask(zoom, x, y);
    if (!one) return null;
    this.kept.delete(key);
    this.kept.set(key, one);
    if (this.kept.size > KEPT) this.kept.delete(this.kept.keys().next().value!);
    return one.image.complete && one.image.naturalWidth > 0 ? one.image : null;
  }

  private ask(zoom: number, x: number, y: number): { image: HTMLImageElement; failed: number } {
    const one = { image: new Image(), failed: 0 };
    one.image.onload = this.redraw;
    one.image.onerror = () => (one.failed = Date.now());
    one.image.referrerPolicy = 'origin'; // servers want to know who asks, not which fibre
    one.image.src = this.address.replace('{z}', String(zoom)).replace('{x}', String(x)).replace('{y}', String(y));
    return one;
  }
}
