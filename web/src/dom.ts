// SPDX-License-Identifier: Apache-2.0
// Elements of the page. Texts of files reach it as texts alone, so that a name with markup in it stays a name.

type Child = Node | string | null;
type Value = string | number | boolean | ((event: never) => void) | undefined;

export function el<K extends keyof HTMLElementTagNameMap>(
  tag: K,
  values: Record<string, Value> = {},
  ...children: Child[]
): HTMLElementTagNameMap[K] {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(values)) {
    if (value === undefined || value === false) continue;
    if (typeof value === 'function') element.addEventListener(name, value as EventListener);
    else if (name === 'text') element.textContent = String(value);
    else element.setAttribute(name, value === true ? '' : String(value));
  }
  element.append(...children.filter((child): child is Node | string => child !== null));
  return element;
}

export function byId<T extends HTMLElement = HTMLElement>(id: string): T {
  const element = document.getElementById(id);
  if (!element) throw new Error(`the page has no ${id}`);
  return element as T;
}

const SVG = 'http://www.w3.org/2000/svg';

// A small picture of lines, 24 units wide and high.
export function icon(path: string, name = ''): SVGSVGElement {
  const svg = document.createElementNS(SVG, 'svg');
  svg.setAttribute('viewBox', '0 0 24 24');
  svg.setAttribute('class', `icon ${name}`);
  svg.setAttribute('aria-hidden', 'true');
  const line = document.createElementNS(SVG, 'path');
  line.setAttribute('d', path);
  svg.append(line);
  return svg;
}

// Runs the last of many calls, a while after it.
export function calm(work: () => void, milliseconds: number): () => void {
  let timer = 0;
  return () => {
    clearTimeout(timer);
    timer = window.setTimeout(work, milliseconds);
  };
}

// Runs once for many calls, a while after the first of them. Unlike calm() it comes to run where calls never end.
export function paced(work: () => void, milliseconds: number): () => void {
  let timer = 0;
  return () => {
    timer ||= window.setTimeout(() => {
      timer = 0;
      work();
    }, milliseconds);
  };
}

// Runs the last of many calls before the next picture.
export function perFrame(work: () => void): () => void {
  let asked = false;
  return () => {
    if (asked) return;
    asked = true;
    requestAnimationFrame(() => {
      asked = false;
      work();
    });
  };
}
