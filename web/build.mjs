// SPDX-License-Identifier: Apache-2.0
// Puts the page together: build.mjs ENGINE OUT, where ENGINE is the folder with engine.js and engine.wasm. OUT becomes
// a folder for any web server, with reflyze.html, the same page in one file.
import { createHash } from 'node:crypto';
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { join, resolve } from 'node:path';
import { gzipSync } from 'node:zlib';
import esbuild from 'esbuild';

const [engine, out] = process.argv.slice(2, 4).map((folder) => resolve(folder));
const here = import.meta.dirname ?? new URL('.', import.meta.url).pathname;
mkdirSync(out, { recursive: true });

async function bundle(entry, define = {}) {
  const built = await esbuild.build({
    entryPoints: [join(here, 'src', entry)],
    alias: { 'engine-glue': join(engine, 'engine.js') },
    define,
    bundle: true,
    minify: true,
    format: 'iife',
    target: 'es2021',
    charset: 'utf8',
    legalComments: 'none',
    logLevel: 'warning',
    // What runs outside a browser is not in a page.
    external: ['fs', 'path', 'crypto'],
    write: false,
  });
  return built.outputFiles[0].text;
}

const style = readFileSync(join(here, 'node_modules/uplot/dist/uPlot.min.css'), 'utf8') +
  (await esbuild.transform(readFileSync(join(here, 'style.css'), 'utf8'), { loader: 'css', minify: true })).code;
const tracePage = readFileSync(join(here, 'index.html'), 'utf8');
const wasm = readFileSync(join(engine, 'engine.wasm'));
// A short link, `reflyze simulate web/warm.json -o web/warm.sor --seed 1`, that the engine is run on before anybody needs it.
const warm = readFileSync(join(here, 'warm.sor')).toString('base64');
const worker = await bundle('worker.ts', { WARM_BASE64: JSON.stringify(warm) });

const centrePage = readFileSync(join(here, 'centre.html'), 'utf8');
const centreStyle = (await esbuild.transform(readFileSync(join(here, 'centre.css'), 'utf8'), { loader: 'css', minify: true })).code;

function fill(values, page = tracePage) {
  // A function as the replacement, since "$" in a text means something to replace().
  return page.replace(/\{\{(\w+)\}\}/g, (_, name) => values[name]);
}

const folderPolicy = "default-src 'none'; script-src 'self' 'wasm-unsafe-eval'; style-src 'self'; " +
  "connect-src 'self'; worker-src 'self'; img-src 'self' data:; base-uri 'none'; form-action 'none'";
const files = {
  'index.html': fill({
    policy: folderPolicy,
    style: '<link rel="stylesheet" href="style.css">',
    script: '<script src="page.js" defer></script>',
  }),
  'centre.html': fill({
    // The centre says in its header which server has the pictures behind the map.
    policy: folderPolicy.replace('data:', 'data: https: http:'),
    style: '<link rel="stylesheet" href="style.css"><link rel="stylesheet" href="centre.css">',
    script: '<script src="centre.js" defer></script>',
  }, centrePage),
  'centre.js': await bundle('centre/main.ts'),
  'centre.css': centreStyle,
  'page.js': await bundle('folder.ts'),
  'worker.js': worker,
  'style.css': style,
  'engine.wasm': wasm,
};

// Nothing is fetched at all, so that no request to anywhere is allowed. What ends a script must not stand in one.
const inside = (text) => text.replace(/<\/(script|style)/gi, '<\\/$1').replace(/<!--/g, '<\\!--');
const script = inside(await bundle('single.ts', {
  WORKER_TEXT: JSON.stringify(worker),
  ENGINE_BASE64: JSON.stringify(wasm.toString('base64')),
}));
const sha = (text) => `'sha256-${createHash('sha256').update(text).digest('base64')}'`;
files['reflyze.html'] = fill({
  policy: `default-src 'none'; script-src ${sha(script)} 'wasm-unsafe-eval'; style-src ${sha(style)}; ` +
    "worker-src blob:; img-src data:; base-uri 'none'; form-action 'none'",
  style: `<style>${style}</style>`,
  script: `<script>${script}</script>`,
});

let compressed = 0;
for (const [name, content] of Object.entries(files)) {
  writeFileSync(join(out, name), content);
  if (name !== 'reflyze.html' && !name.startsWith('centre.')) compressed += gzipSync(content, { level: 9 }).length;
}
console.log(`${out}: ${Math.round(compressed / 1000)} KB compressed`);
