// SPDX-License-Identifier: Apache-2.0
// Tables that change under the eyes of whoever works with them. A row that stays keeps its elements: what has the focus
// keeps it, a press that has begun ends on the same button, and a marked text stays marked.

export type Act = (row: string, what: string) => void;

// Presses on the buttons of a table's rows, which name what they do in `data-act`.
export function onRows(body: HTMLElement, act: Act): void {
  body.addEventListener('click', (event) => {
    const button = (event.target as Element).closest<HTMLElement>('[data-act]');
    const row = button?.closest<HTMLElement>('[data-key]');
    if (button && row) act(row.dataset.key!, button.dataset.act!);
  });
}

function takeOver(old: HTMLTableRowElement, fresh: HTMLTableRowElement): void {
  for (const { name, value } of fresh.attributes) if (old.getAttribute(name) !== value) old.setAttribute(name, value);
  [...fresh.cells].forEach((cell, i) => {
    if (!old.cells[i].isEqualNode(cell)) old.cells[i].replaceWith(cell);
  });
}

// Brings the rows of a table to those that are given. Each has its key in `data-key`.
export function fillRows(body: HTMLElement, fresh: HTMLTableRowElement[]): void {
  const focused = body.contains(document.activeElement) ? (document.activeElement as HTMLElement) : null;
  const held = focused?.closest<HTMLElement>('[data-key]')?.dataset.key;
  const old = new Map([...body.children].map((row) => [(row as HTMLElement).dataset.key!, row as HTMLTableRowElement]));
  const rows = fresh.map((row) => {
    const known = old.get(row.dataset.key!);
    if (!known) return row;
    takeOver(known, row);
    old.delete(row.dataset.key!);
    return known;
  });
  for (const gone of old.values()) gone.remove();
  rows.forEach((row, i) => {
    if (body.children[i] !== row) body.insertBefore(row, body.children[i] ?? null);
  });
  if (!focused || document.activeElement === focused) return;
  // The button is gone or was moved: its row has the focus, or what is left of the list.
  const row = rows.find((one) => one.dataset.key === held);
  const button = row?.querySelector<HTMLElement>(`[data-act="${focused.dataset.act}"]`) ??
    (row ?? body).querySelector<HTMLElement>('[data-act]');
  button?.focus({ preventScroll: true });
}
