// SPDX-License-Identifier: Apache-2.0
// draw.mjs FOLDER: the pictures of the pages that the documents show.
import { join } from 'node:path';
import { drop, example, open, show } from './browser.mjs';
import { startNetwork } from './centre.mjs';

const folder = process.argv[2];
const browser = await open();

const page = await browser.page({ viewport: { width: 1360, height: 880 }, colorScheme: 'light' });
await show(page, example('metro-40km.sor'));
await page.click('#tab-settings');
await page.click('text=Usual');
await page.fill('[aria-label="Limit Splice, dB"]', '0.2');
await page.fill('[aria-label="Limit of warning Splice, dB"]', '0.12');
await page.click('#residuals');
await page.click('#fit');
await page.waitForSelector('td.warning');
await page.locator('#stage').evaluate((stage) => stage.scrollTo(0, 0));
await page.mouse.move(5, 5);
await page.waitForTimeout(600);
await page.screenshot({ path: join(folder, 'page.png') });
page.expectQuiet();

const dark = await browser.page({ viewport: { width: 1600, height: 900 }, colorScheme: 'dark' });
await drop(dark, example('baseline-40km.sor'), example('current-40km.sor'));
await dark.waitForFunction(() => document.querySelectorAll('#list li').length === 2);
await dark.click('#tab-compare');
await dark.selectOption('#pane-compare select >> nth=0', { label: 'baseline-40km.sor' });
await dark.selectOption('#pane-compare select >> nth=1', { label: 'current-40km.sor' });
await dark.waitForSelector('.sentences');
await dark.waitForTimeout(600);
await dark.screenshot({ path: join(folder, 'page-compare.png') });
dark.expectQuiet();

// The network of the examples, when all has happened.
const network = await startNetwork(200, 4, 120);
const centre = await browser.page({ viewport: { width: 1360, height: 840 }, colorScheme: 'light' }, network.address, network.address);
const alarm = (text) => centre.locator('#alarms tr', { hasText: text });
await alarm('sends no trace').waitFor({ timeout: 120000 });
await alarm('broken at 3.').locator('[data-act=acknowledge]').click();
await alarm('by local').waitFor();
await centre.mouse.move(5, 5);
await centre.waitForTimeout(600);
await centre.screenshot({ path: join(folder, 'centre.png') });
await centre.emulateMedia({ colorScheme: 'dark' });
await alarm('creeps').locator('[data-act=choose]').click();
await centre.locator('#fibre tr', { hasText: '0.0200' }).first().waitFor();
await centre.evaluate(() => {
  const rows = [...document.querySelectorAll('#fibre table:last-child tbody tr')];
  for (const row of rows.slice(6)) row.remove(); // they say the same
});
await centre.locator('#fibre-part').screenshot({ path: join(folder, 'centre-fibre.png') });
centre.expectQuiet();
await browser.close();
await network.stop();
