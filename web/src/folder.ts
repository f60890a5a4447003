// SPDX-License-Identifier: Apache-2.0
// The page as a folder on a web server.
import { start } from './app';
import type { Given } from './files';

// A trace of a centre's fibre, over its baseline.
function ofCentre(fibre: string, trace: string): Given[] {
  const at = `fibres/${encodeURIComponent(fibre)}`;
  return [
    { name: `${fibre}, baseline`, path: `${at}/baseline/file` },
    { name: `${fibre}, trace ${trace}`, path: `${at}/traces/${encodeURIComponent(trace)}` },
  ].map(given);
}

function given({ name, path }: { name: string; path: string }): Given {
  return {
    name,
    read: async () => {
      const answer = await fetch(path);
      if (!answer.ok) throw new Error('is no longer there');
      return answer.arrayBuffer();
    },
  };
}

// Traces that `reflyze view` offers, under a name that only this address knows.
async function offered(): Promise<Given[]> {
  const asked = new URLSearchParams(location.search);
  const [fibre, trace, key] = ['fibre', 'trace', 'traces'].map((name) => asked.get(name));
  if (fibre && trace) return ofCentre(fibre, trace);
  if (!key || !/^[0-9a-f]+$/.test(key)) return [];
  const list = (await (await fetch(`traces/${key}/list.json`)).json()) as { name: string; path: string }[];
  return list.map(given);
}

start({
  makeWorker: () => new Worker('worker.js'),
  wasm: fetch('engine.wasm').then((answer) => answer.arrayBuffer()),
  offered,
  settings: {},
});
