// SPDX-License-Identifier: Apache-2.0
// Panes of which one is seen: arrow keys go from tab to tab, as screen readers expect.
import type { Remembering } from './address';
import { el } from './dom';

export class Tabs implements Remembering {
  private tabs: HTMLButtonElement[] = [];
  private panes: HTMLElement[] = [];
  onShow: () => void = () => undefined;

  constructor(
    private readonly list: HTMLElement,
    private readonly host: HTMLElement,
  ) {
    list.addEventListener('keydown', (event) => {
      const by = event.key === 'ArrowRight' ? 1 : event.key === 'ArrowLeft' ? -1 : 0;
      if (by === 0) return;
      event.preventDefault();
      const at = this.tabs.indexOf(document.activeElement as HTMLButtonElement);
      const next = this.tabs[(at + by + this.tabs.length) % this.tabs.length];
      next.focus();
      next.click();
    });
  }

  add(key: string, name: string): HTMLElement {
    const tab = el('button', { type: 'button', role: 'tab', id: `tab-${key}`, 'aria-controls': `pane-${key}`, text: name, click: () => this.show(key) });
    const pane = el('section', { role: 'tabpanel', id: `pane-${key}`, 'aria-labelledby': `tab-${key}`, class: 'pane' });
    this.tabs.push(tab);
    this.panes.push(pane);
    this.list.append(tab);
    this.host.append(pane);
    if (this.tabs.length === 1) this.show(key);
    else this.mark();
    return pane;
  }

  private shown = '';

  show(key: string): void {
    this.shown = key;
    this.mark();
    this.onShow();
  }

  private get first(): string {
    return this.tabs[0].id.replace('tab-', '');
  }

  remember(words: URLSearchParams): void {
    if (this.shown !== this.first) words.set('pane', this.shown);
  }

  recall(words: URLSearchParams): void {
    const key = words.get('pane') ?? this.first;
    if (this.tabs.some((tab) => tab.id === `tab-${key}`)) this.show(key);
  }

  private mark(): void {
    for (const [i, tab] of this.tabs.entries()) {
      const chosen = tab.id === `tab-${this.shown}`;
      tab.setAttribute('aria-selected', String(chosen));
      tab.tabIndex = chosen ? 0 : -1;
      this.panes[i].hidden = !chosen;
    }
  }
}
