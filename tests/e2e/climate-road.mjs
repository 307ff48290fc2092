// An air conditioner's card on the phone page at 390 px: the state the
// program believes, a tap that sends at once, quick taps on + sent as one
// frame after the quiet, a change made elsewhere shown through the event
// stream, a refused send shown on the card with the state kept, and a
// reservation of a state made there and listed by the classic pages.
//
// Environment: KESTRAVA_BINARY. Exits 77 when a tool is missing.
import fs from 'node:fs';
import path from 'node:path';
import { check, chromium, chromiumPath, finish, fromCp932, startDemo, stop } from './road.mjs';

const { home, proc, base } = await startDemo();
const logFile = path.join(home, 'sim-transmit.log');
const sent = () => (fs.existsSync(logFile) ? fs.readFileSync(logFile, 'utf8').trim().split('\n').filter(Boolean) : []);
const browser = await chromium.launch({
    executablePath: chromiumPath,
    args: ['--no-sandbox', '--disable-gpu', '--no-first-run', '--disable-background-networking'],
});

try {
    const context = await browser.newContext({
        viewport: { width: 390, height: 844 }, deviceScaleFactor: 3, isMobile: true, hasTouch: true,
    });
    const page = await context.newPage();
    // The first family the program knows, off at its range's bottom.
    let unit = null;
    for (const family of ['daikin', 'mitsubishi', 'panasonic', 'gree', 'midea', 'coolix', 'samsung', 'sharp']) {
        const r = await page.request.post(`${base}/api/v1/climates`, { data: { name: '寝室のエアコン', family } });
        if (r.status() === 201) { unit = await r.json(); break; }
    }
    if (!unit) throw new Error('no climate family to make a unit of');
    const { min, step } = unit.caps;
    await page.request.put(`${base}/api/v1/climates/${unit.id}/state`, { data: { power: false, temperature: min } });
    const before = sent().length;

    const puts = [];
    page.on('request', (r) => { if (r.method() === 'PUT') puts.push(r.postDataJSON()); });
    await page.goto(`${base}/m/`);
    const card = page.locator(`section.ac[data-id="${unit.id}"]`);
    await card.waitFor();
    const temp = card.locator('output.temp');
    const note = card.locator('.note');
    const wide = await page.evaluate(() => document.documentElement.scrollWidth);
    const box = await card.boundingBox();
    check(wide <= 390 && box.width <= 390 && (await card.locator('h3').textContent()) === '寝室のエアコン',
        `a card for the unit inside 390 px (${wide})`);
    check((await card.locator('button.power').getAttribute('aria-pressed')) === 'false',
        'the card shows the unit believed off');

    // A tap on power: one send at once.
    await card.locator('button.power').tap();
    await page.waitForFunction((id) => document.querySelector(`section.ac[data-id="${id}"] .note`).textContent !== '', unit.id);
    check(puts.length === 1 && puts[0].power === true && sent().length === before + 1,
        `a tap on power sends once (${JSON.stringify(puts)}, ${await note.textContent()})`);

    // Three quick taps on +: the display follows each, one send after the quiet.
    const plus = card.locator('button[aria-label="温度を上げる"]');
    for (let n = 0; n < 3; n++) await plus.tap();
    const want = Math.round((min + 3 * step) * 10) / 10;
    check((await temp.textContent()) === `${want}℃` && puts.length === 1, 'the taps show at once and wait');
    await page.waitForTimeout(1200);
    check(puts.length === 2 && puts[1].temperature === want && sent().length === before + 2,
        `three quick taps, one send of ${want} (${JSON.stringify(puts.slice(1))})`);
    check((await temp.textContent()) === `${want}℃`, 'the card shows the state sent');

    // Another front changes the unit: the card follows through the event stream.
    await page.request.put(`${base}/api/v1/climates/${unit.id}/state`, { data: { power: false } });
    await page.waitForFunction((id) =>
        document.querySelector(`section.ac[data-id="${id}"] button.power`).getAttribute('aria-pressed') === 'false', unit.id,
    { timeout: 5000 }).then(() => check(true, 'a change made elsewhere shows on the card'),
        () => check(false, 'a change made elsewhere shows on the card'));

    // A refused state: the card says why and keeps what it believed.
    await page.route('**/api/v1/climates/*/state', (r) => r.continue({ postData: JSON.stringify({ temperature: min - 10 }) }));
    await plus.tap();
    await page.waitForFunction((id) => document.querySelector(`section.ac[data-id="${id}"] .note.err`), unit.id);
    check((await temp.textContent()) === `${want}℃` && sent().length === before + 3,
        `a refused send shows its reason and keeps the state (${await note.textContent()})`);
    await page.unroute('**/api/v1/climates/*/state');

    // A reservation of a state from the page; the classic list shows it by name.
    await page.goto(`${base}/m/#/res`);
    await page.locator('#acr-unit').waitFor();
    await page.selectOption('#acr-unit', unit.id);
    await page.selectOption('#acr-mode', unit.caps.modes[0]);
    await page.fill('#acr-temp', String(min));
    await page.fill('#acr-time', '17:30');
    await page.selectOption('#acr-repeat', 'daily');
    await page.locator('button', { hasText: 'エアコンの予約を追加' }).tap();
    const row = page.locator('ul.list li', { hasText: '寝室のエアコン' });
    await row.waitFor();
    const listed = await row.textContent();
    check(listed.includes('毎日 17:30') && listed.includes(`${min}℃`), `the reservation is listed (${listed})`);
    const classic = fromCp932(Buffer.from(await (await page.request.get(`${base}/list.asp`)).body()));
    check(classic.includes('寝室のエアコン') && classic.includes(`${min}℃`), 'the classic list shows it by its name');
} catch (e) {
    check(false, `climate road: ${e.stack || e.message}`);
} finally {
    await browser.close();
    await stop(proc);
}
finish(home);
