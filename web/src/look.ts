// SPDX-License-Identifier: Apache-2.0
// Colours of the drawing, which the style sheet has for light, dark and paper.

export interface Colours {
  text: string;
  muted: string;
  grid: string;
  accent: string;
  surface: string;
  left: string; // markers: left red, right blue
  right: string;
  lines: string;
  curves: string[];
}

let known: Colours | null = null;

export function colours(): Colours {
  if (known) return known;
  const style = getComputedStyle(document.documentElement);
  const of = (name: string) => style.getPropertyValue(`--${name}`).trim();
  known = {
    text: of('text'),
    muted: of('muted'),
    grid: of('grid'),
    accent: of('accent'),
    surface: of('surface'),
    left: of('marker-left'),
    right: of('marker-right'),
    lines: of('section-line'),
    curves: Array.from({ length: 8 }, (_, i) => of(`curve-${i + 1}`)),
  };
  return known;
}

// A share of one colour in another, both as #rrggbb. Lines that are half transparent would show where they cross.
export function mixed(colour: string, ground: string, share: number): string {
  const parts = (text: string) => [1, 3, 5].map((at) => parseInt(text.slice(at, at + 2), 16));
  const under = parts(ground);
  return `rgb(${parts(colour).map((part, i) => Math.round(part * share + under[i] * (1 - share))).join(' ')})`;
}

// To be called when the style has changed.
export function forgetColours(): void {
  known = null;
}

export type Theme = 'auto' | 'light' | 'dark';

export function applyTheme(theme: Theme): void {
  if (theme === 'auto') delete document.documentElement.dataset.theme;
  else document.documentElement.dataset.theme = theme;
  forgetColours();
}
