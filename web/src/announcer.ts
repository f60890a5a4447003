// SPDX-License-Identifier: Apache-2.0
// Says what has happened to those who do not see it: a table that is there, an event that was chosen, markers.
import { calm } from './dom';
import type { LinkTable } from './listing';
import type { Change, Model } from './model';
import { kindOf, WORDS } from './symbols';
import { tableOf, Trace } from './traces';
import { fixed, placeWithUnit } from './units';
import { worst } from './signs';

const PAUSE = 250; // milliseconds, so that of many changes the last is said

export class Announcer {
  private changes = new Set<Change>();
  private lastTable: unknown = null;
  private hadMarkers = false;
  private readonly sayAll = calm(() => this.say(), PAUSE);

  constructor(
    private readonly host: HTMLElement,
    private readonly model: Model,
  ) {
    model.onChange((changes) => {
      for (const change of changes) this.changes.add(change);
      this.sayAll();
    });
  }

  private say(): void {
    const changes = this.changes;
    this.changes = new Set();
    const trace = this.model.currentTrace;
    const sentences: string[] = [];
    if (trace && trace.analysis !== this.lastTable) {
      this.lastTable = trace.analysis;
      sentences.push(ofTable(trace));
    }
    if (trace && changes.has('selection') && this.model.selected >= 0) sentences.push(ofEvent(trace, this.model.selected));
    if (changes.has('markers') && this.hadMarkers !== (this.model.markers !== null)) {
      this.hadMarkers = !this.hadMarkers;
      sentences.push(this.hadMarkers ? 'Markers are set; numbers stand in the pane Measure.' : 'Markers are cleared.');
    }
    const text = sentences.filter((one) => one !== '').join(' ');
    if (text) this.host.textContent = text;
  }
}

function ofTable(trace: Trace): string {
  const table = tableOf(trace);
  if (!table) return trace.failure;
  const link = table as LinkTable;
  const verdict = link.verdict ? `, ${link.verdict}` : '';
  return `${trace.name}: ${table.events.length} events, length ${placeWithUnit(table.length_km)}, loss ${fixed(table.total_loss_db, 3)} dB${verdict}.`;
}

function ofEvent(trace: Trace, index: number): string {
  const table = tableOf(trace);
  const event = table?.events[index];
  if (!table || !event) return '';
  const parts = [`Event ${event.number}`, WORDS[kindOf(table, index)], `at ${placeWithUnit(event.distance_km)}`];
  if (event.loss_db !== null) parts.push(`loss ${fixed(event.loss_db, 3)} dB`);
  if (event.reflectance_db !== null) parts.push(`reflectance ${fixed(event.reflectance_db, 2)} dB`);
  if (worst(event)) parts.push(worst(event));
  return `${parts.join(', ')}.`;
}
