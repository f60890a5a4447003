// SPDX-License-Identifier: Apache-2.0
// The page as a folder on a web server.
import { start } from './app';

start({
  makeWorker: () => new Worker('worker.js'),
  wasm: fetch('engine.wasm').then((answer) => answer.arrayBuffer()),
});
