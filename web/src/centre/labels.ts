// SPDX-License-Identifier: Apache-2.0
// Names on the map, as many as find room.

export interface Label {
  text: string;
  x: number;
  y: number;
}

const MOST_LETTERS = 28;
const HEIGHT = 16;
const OFF = 7; // from the place to its name
const MOST = 60; // more would be no help
const GAP = 10; // around a name, so that routes are still seen

export function drawLabels(pen: CanvasRenderingContext2D, labels: Label[], colour: string, ground: string): void {
  pen.font = '12px system-ui, sans-serif';
  pen.textBaseline = 'middle';
  pen.lineJoin = 'round';
  const taken: [number, number, number, number][] = [];
  const right = pen.canvas.width / devicePixelRatio;
  const bottom = pen.canvas.height / devicePixelRatio;
  for (const { text, x, y } of labels) {
    if (taken.length >= MOST) break;
    if (x < 0 || y < 0 || x > right || y > bottom) continue;
    // To measure a text takes long; where its first letter finds no room, the rest does not matter.
    if (taken.some((other) => x + OFF < other[2] && other[0] < x + OFF && y < other[3] && other[1] < y)) continue;
    const short = text.length > MOST_LETTERS ? `${text.slice(0, MOST_LETTERS - 1)}…` : text;
    const width = pen.measureText(short).width;
    const left = x + OFF + width > right ? x - OFF - width : x + OFF;
    const box: [number, number, number, number] = [left - GAP, y - HEIGHT / 2 - GAP, left + width + GAP, y + HEIGHT / 2 + GAP];
    if (taken.some((other) => box[0] < other[2] && other[0] < box[2] && box[1] < other[3] && other[1] < box[3])) continue;
    taken.push(box);
    pen.strokeStyle = ground;
    pen.lineWidth = 4;
    pen.strokeText(short, left, y);
    pen.fillStyle = colour;
    pen.fillText(short, left, y);
  }
  pen.textBaseline = 'alphabetic';
}
