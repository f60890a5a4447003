// SPDX-License-Identifier: Apache-2.0
// Levels of detail lose nothing that a screen could show: whatever the zoom, each column has the lowest and the highest
// of its points, and the reflection of a single point stays. What is left of a falling trace less its line lies around 0.
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { test } from 'node:test';
import esbuild from 'esbuild';
import { root } from './browser.mjs';

async function load(name) {
  const built = await esbuild.build({ entryPoints: [join(root, 'web/src', name)], bundle: true, format: 'esm', write: false });
  return import(`data:text/javascript,${encodeURIComponent(built.outputFiles[0].text)}`);
}

// Numbers that are the same in each run.
function noise(seed) {
  let state = seed;
  return () => (state = (state * 1103515245 + 12345) % 2147483648) / 2147483648;
}

test('each column shows the lowest and highest of its points', async () => {
  const { makeCurve, trace, rangeOf } = await load('curve.ts');
  const random = noise(7);
  const count = 300001;
  const km = Float64Array.from({ length: count }, (_, i) => i * 0.0002 - 1);
  const db = Float64Array.from({ length: count }, () => -20 + random());
  const spikes = Array.from({ length: 40 }, () => Math.floor(random() * count));
  for (const i of spikes) db[i] = -5;
  const curve = makeCurve(km, db);
  const width = 900;
  let crossed = 0;
  for (let round = 0; round < 60; ++round) {
    const from = Math.floor(random() * (count - 10));
    const to = Math.min(count - 1, from + 4 + Math.floor((count - from) * random() ** 4));
    const xOf = (place) => ((place - km[from]) / (km[to] - km[from])) * width;
    const columns = new Map();
    const path = { lineTo: (x, y) => {
      const column = Math.floor(x / 3);
      const seen = columns.get(column) ?? { low: Infinity, high: -Infinity };
      columns.set(column, { low: Math.min(seen.low, y), high: Math.max(seen.high, y) });
    } };
    trace(curve, km[from], km[to], { xOf, yOf: (level) => level }, path);
    for (const spike of spikes.filter((i) => i > from && i < to)) {
      // A group of points is drawn where it begins, at most a column away.
      const column = Math.floor(xOf(km[spike]) / 3);
      assert.ok([column - 1, column].some((one) => columns.get(one)?.high === -5), `spike at ${spike} from ${from} to ${to}`);
      ++crossed;
    }
    const slow = db.slice(from, to + 1).reduce((high, level) => Math.max(high, level), -Infinity);
    const quick = rangeOf(curve, km[from], km[to]).high;
    assert.ok(quick >= Math.fround(slow) && (quick === Math.fround(slow) || quick === -5));
  }
  assert.ok(crossed > 100, String(crossed));
});

test('residuals of a falling trace lie around 0 at every level of detail', async () => {
  const { residualsOf } = await load('rest.ts');
  const { makeCurve } = await load('curve.ts');
  const random = noise(3);
  const count = 50000;
  const km = Float64Array.from({ length: count }, (_, i) => i * 0.001);
  const db = Float64Array.from(km, (place) => -10 - 0.2 * place + 0.01 * (random() - 0.5));
  const rest = residualsOf(makeCurve(km, db), [[2, -10.4, 20, -14], null, [22, -14.4, 49, -19.8]]);
  assert.equal(rest.km.length, 18001 + 27001);
  for (const detail of rest.details)
    detail.low.forEach((low, i) => assert.ok(low > -0.0052 && detail.high[i] < 0.0052 && low < detail.high[i], `${detail.group}: ${low}`));
});
