// SPDX-License-Identifier: Apache-2.0
// What the page costs: speed.mjs TABLE TRACE... prints, for each trace, milliseconds from the drop to the curve and to the
// table, of a picture while the wheel turns, and of an analysis in WebAssembly and by the program, and adds them to the
// table as a line. Let nothing else run.
import { spawnSync } from 'node:child_process';
import { appendFileSync, readFileSync } from 'node:fs';
import { basename } from 'node:path';
import { compressedSize, drop, open, program, root } from './browser.mjs';

const ROUNDS = 9;
const median = (values) => [...values].sort((a, b) => a - b)[values.length >> 1];

// Runs in the page.
async function dropped([name, base64]) {
  const transfer = new DataTransfer();
  transfer.items.add(new File([Uint8Array.from(atob(base64), (letter) => letter.charCodeAt(0))], name));
  const start = performance.now();
  document.dispatchEvent(new DragEvent('drop', { dataTransfer: transfer, bubbles: true, cancelable: true }));
  const until = async (selector) => {
    while (!document.querySelector(selector)) await new Promise(requestAnimationFrame);
    return performance.now() - start;
  };
  return { curve: await until('#list li'), table: await until('table.events') };
}

// Runs in the page: the time between pictures while the wheel turns.
async function frames() {
  const box = document.querySelector('.u-over').getBoundingClientRect();
  const times = [];
  let last = performance.now();
  for (let i = 0; i < 80; ++i) {
    const at = { clientX: box.left + box.width * 0.4, clientY: box.top + 100, bubbles: true, cancelable: true };
    document.querySelector('#plot').dispatchEvent(new WheelEvent('wheel', { deltaY: i < 40 ? -40 : 40, ...at }));
    await new Promise(requestAnimationFrame);
    times.push(performance.now() - last);
    last = performance.now();
  }
  return times;
}

// Runs in the page: analyses in a worker of its own.
async function analyses([base64, rounds]) {
  const worker = new Worker('worker.js');
  const ask = (order, transfer = []) => new Promise((resolve) => {
    worker.onmessage = (event) => resolve(event.data.value);
    worker.postMessage({ number: 1, ...order }, transfer);
  });
  await ask({ what: 'start', wasm: await (await fetch('engine.wasm')).arrayBuffer() });
  const bytes = Uint8Array.from(atob(base64), (letter) => letter.charCodeAt(0)).buffer;
  const { traces } = JSON.parse(await ask({ what: 'open', name: 'trace.sor', bytes }, [bytes]));
  const times = [];
  for (let i = 0; i < rounds; ++i) {
    const start = performance.now();
    await ask({ what: 'ask', request: { do: 'analyse', trace: traces[0].id } });
    times.push(performance.now() - start);
  }
  worker.terminate();
  return times;
}

// Milliseconds of processor for each of many analyses, without the start of the program.
function native(path) {
  const seconds = (count) => {
    const words = ['analyse', ...Array(count).fill(path), '--quiet'];
    const run = spawnSync('bash', ['-c', 'TIMEFORMAT=%U; time "$@" >/dev/null 2>&1', 'bash', program, ...words], { encoding: 'utf8' });
    return Number(run.stderr.trim());
  };
  return (1000 * (seconds(2 * ROUNDS) - seconds(ROUNDS))) / ROUNDS;
}

const [table, ...paths] = process.argv.slice(2);
const commit = spawnSync('git', ['rev-parse', '--short', 'HEAD'], { cwd: root, encoding: 'utf8' }).stdout.trim();
const line = [commit, Math.round(compressedSize() / 1000)];
const browser = await open();
for (const path of paths) {
  const base64 = readFileSync(path).toString('base64');
  const drops = [];
  for (let i = 0; i < ROUNDS; ++i) {
    const page = await browser.page({ viewport: { width: 1600, height: 900 } });
    await page.waitForTimeout(1500); // as long as it takes to look for a file
    drops.push(await page.evaluate(dropped, [basename(path), base64]));
    await page.context().close();
  }
  const page = await browser.page({ viewport: { width: 1600, height: 900 } });
  await drop(page, path);
  await page.waitForSelector('table.events');
  const pictures = await page.evaluate(frames);
  const wasm = await page.evaluate(analyses, [base64, ROUNDS]);
  await page.context().close();
  const by = native(path);
  const figures = [median(drops.map((one) => one.curve)).toFixed(0), median(drops.map((one) => one.table)).toFixed(0),
                   median(pictures).toFixed(1), median(wasm).toFixed(1), by.toFixed(1)];
  console.log(`${basename(path)}: curve ${figures[0]} ms, table ${figures[1]} ms, picture ${figures[2]} ms; analysis ${figures[3]} ms, by the program ${figures[4]} ms`);
  line.push(...figures);
}
await browser.close();
appendFileSync(table, `${line.join(',')}\n`);
