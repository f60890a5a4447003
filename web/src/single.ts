// SPDX-License-Identifier: Apache-2.0
// The page as one file: what a folder has beside it stands in its own text, and nothing is fetched.
import { start } from './app';
import { enclosed } from './files';

declare const WORKER_TEXT: string;
declare const ENGINE_BASE64: string;

const worker = URL.createObjectURL(new Blob([WORKER_TEXT], { type: 'text/javascript' }));
start({
  makeWorker: () => new Worker(worker),
  wasm: Promise.resolve(Uint8Array.from(atob(ENGINE_BASE64), (letter) => letter.charCodeAt(0)).buffer),
  settings: JSON.parse(document.getElementById('reflyze-settings')?.textContent || '{}') as Record<string, string>,
  offered: async () => enclosed(document.getElementById('reflyze-traces')?.textContent || '[]'),
});
