// SPDX-License-Identifier: Apache-2.0
// The page as a folder on a web server.
import { start } from './app';
import type { Given } from './files';

// Traces that `reflyze view` offers, under a name that only this address knows.
async function offered(): Promise<Given[]> {
  const key = new URLSearchParams(location.search).get('traces');
  if (!key || !/^[0-9a-f]+$/.test(key)) return [];
  const list = (await (await fetch(`traces/${key}/list.json`)).json()) as { name: string; path: string }[];
  return list.map(({ name, path }) => ({
    name,
    read: async () => {
      const answer = await fetch(path);
      if (!answer.ok) throw new Error('is no longer there');
      return answer.arrayBuffer();
    },
  }));
}

start({
  makeWorker: () => new Worker('worker.js'),
  wasm: fetch('engine.wasm').then((answer) => answer.arrayBuffer()),
  offered,
  settings: {},
});
