// Reservations through a real browser (Debian's chromium, driven by
// Playwright): add1.asp chooses a moment, add2.asp adds two functions and
// moves one up, list.asp deletes one; the reservation file is checked after
// each step.
//
// Environment: KESTRAVA_BINARY (the program). Exits 77 when a tool is missing.
import fs from 'node:fs';
import path from 'node:path';
import { check, chromium, chromiumPath, finish, fromCp932, startDemo, stop } from './road.mjs';

const { home, proc, base } = await startDemo();

// Tomorrow at 21:30, chosen in 24-hour form.
const when = new Date(Date.now() + 24 * 3600 * 1000);
const two = (n) => String(n).padStart(2, '0');
const [year, month, day] = [String(when.getFullYear()), two(when.getMonth() + 1), two(when.getDate())];
const file = path.join(home, 'reserve', `${year}_${month}_${day} 21_30`);
const lines = () => (fs.existsSync(file) ? fromCp932(fs.readFileSync(file)).split('\r\n').filter(Boolean) : []);

const browser = await chromium.launch({
    executablePath: chromiumPath,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
        '--disable-background-networking', '--disable-component-update', '--disable-sync'],
});
const submit = (page, value) =>
    Promise.all([page.waitForNavigation(), page.click(`input[type="submit"][value="${value}"]`)]);
try {
    const page = await browser.newPage();
    await page.goto(`${base}/add1.asp`);
    await page.selectOption('select[name="Year"]', year);
    await page.selectOption('select[name="Month"]', month);
    await page.selectOption('select[name="Date"]', day);
    await page.check('input[name="R2"][value="H24"]');
    await page.selectOption('select[name="Hour"]', '21');
    await page.selectOption('select[name="Min"]', '30');
    await submit(page, '決定');
    check(page.url().endsWith('/add2.asp'), 'the moment leads to add2.asp');
    check((await page.content()).includes(`${year}/${month}/${day} 21:30`), 'add2.asp shows the moment');

    await page.selectOption('select[name="Dev"]', 'テレビ');
    await page.selectOption('select[name="Func"]', '電源');
    await submit(page, '追加');
    check(JSON.stringify(lines()) === JSON.stringify(['テレビ|電源']), `first add (${lines()})`);
    await page.selectOption('select[name="Func"]', 'ch1');
    await submit(page, '追加');
    check(JSON.stringify(lines()) === JSON.stringify(['テレビ|電源', 'テレビ|ch1']), `second add (${lines()})`);

    await page.selectOption('select[name="Reserve"]', { index: 2 });
    await submit(page, '上へ移動');
    check(JSON.stringify(lines()) === JSON.stringify(['テレビ|ch1', 'テレビ|電源']), `moved up (${lines()})`);

    await page.goto(`${base}/list.asp`);
    const values = await page.$$eval('select[name="Reserve"] option', (os) => os.map((o) => o.value));
    const power = values.find((v) => v.endsWith('\t電源'));
    check(Boolean(power), 'list.asp lists the reservation');
    await page.selectOption('select[name="Reserve"]', power);
    await submit(page, '削除');
    check(JSON.stringify(lines()) === JSON.stringify(['テレビ|ch1']), `deleted from the list (${lines()})`);
    const after = await page.$$eval('select[name="Reserve"] option', (os) => os.length);
    check(after === 2, 'the list shows what is left');
} catch (e) {
    check(false, `reservation road: ${e.message}`);
} finally {
    await browser.close();
    await stop(proc);
}
finish(home);
