// SPDX-License-Identifier: Apache-2.0
// What hands on keys and eyes make of a page.
import assert from 'node:assert/strict';

// Where the focus is, and whether one sees it.
export const focused = (page) => page.evaluate(() => {
  const one = document.activeElement;
  const style = getComputedStyle(one);
  const box = one.getBoundingClientRect();
  return {
    what: one === document.body ? 'body' : one.id || one.getAttribute('aria-label') || one.textContent.trim().slice(0, 30),
    ring: style.outlineStyle !== 'none' && parseFloat(style.outlineWidth) >= 2,
    seen: box.width > 0 && box.bottom > 0 && box.top < innerHeight,
    inDialog: one.closest('dialog') !== null,
  };
});

export async function tabTo(page, what) {
  for (let i = 0; i < 60; ++i) {
    await page.keyboard.press('Tab');
    if ((await focused(page)).what === what) return;
  }
  assert.fail(`Tab never comes to ${what}`);
}

// Texts with less than 4.5 to 1 against what they stand on, and lines with less than 3 to 1. Runs in the page.
export function faint() {
  const canvas = document.createElement('canvas').getContext('2d', { willReadFrequently: true });
  const parts = (colours) => {
    canvas.clearRect(0, 0, 1, 1);
    for (const colour of colours) {
      canvas.fillStyle = colour;
      canvas.fillRect(0, 0, 1, 1);
    }
    return [...canvas.getImageData(0, 0, 1, 1).data].slice(0, 3);
  };
  const light = (colours) =>
    parts(colours).map((c) => c / 255).map((c) => (c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)).reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
  const contrast = (colour, ground) => {
    const [a, b] = [light([...ground, colour]), light(ground)].sort((x, y) => y - x);
    return (a + 0.05) / (b + 0.05);
  };
  // All that lies below, from the page up.
  const ground = (element) => {
    const all = [];
    for (let one = element; one; one = one.parentElement) all.unshift(getComputedStyle(one).backgroundColor);
    return ['#ffffff', ...all];
  };
  const found = [];
  for (const one of document.querySelectorAll('body *')) {
    const text = [...one.childNodes].some((node) => node.nodeType === 3 && node.textContent.trim());
    if (!one.checkVisibility() || one.tagName === 'OPTION') continue;
    const colours = [];
    if (text) colours.push(getComputedStyle(one).color);
    if (one.placeholder) colours.push(getComputedStyle(one, '::placeholder').color);
    for (const colour of colours)
      if (contrast(colour, ground(one)) < 4.5) found.push(`${one.tagName} ${one.className} ${one.id}: ${one.textContent.slice(0, 30)} ${contrast(colour, ground(one)).toFixed(2)}`);
  }
  const style = getComputedStyle(document.documentElement);
  const of = (name) => style.getPropertyValue(`--${name}`).trim();
  for (const name of ['accent', 'marker-left', 'marker-right', 'section-line', ...[1, 2, 3, 4, 5, 6, 7, 8].map((i) => `curve-${i}`)])
    for (const under of ['surface', 'page']) if (contrast(of(name), [of(under)]) < 3) found.push(`${name} on ${under}: ${contrast(of(name), [of(under)]).toFixed(2)}`);
  return found;
}
