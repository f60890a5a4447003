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

export function drawLabels(pen: CanvasRenderingContext2D, labels: Label[], colour: string, ground: string): void {
  pen.font = '12px system-ui, sans-serif';
  pen.textBaseline = 'middle';
  pen.lineJoin = 'round';
  const taken: [number, number, number, number][] = [];
  const right = pen.canvas.width / devicePixelRatio;
  for (const { text, x, y } of labels) {
    const short = text.length > MOST_LETTERS ? `${text.slice(0, MOST_LETTERS - 1)}…` : text;
    const width = pen.measureText(short).width;
    const left = x + OFF + width > right ? x - OFF - width : x + OFF;
    const box: [number, number, number, number] = [left, y - HEIGHT / 2, left + width, y + HEIGHT / 2];
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
