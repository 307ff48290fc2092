// The whole road of a press: a browser (Debian's chromium, driven by
// Playwright) and a plain-text phone browser (w3m) use the pages of a running
// program whose transceiver is the simulator, and each press must put exactly
// one signal, the button's own bytes, into sim-transmit.log; a press from a
// page of another site must put none.
//
// Environment: KESTRAVA_BINARY (the program), KESTRAVA_SHOTS (a folder for
// screenshots of the six designs). Exits 77 when a tool is missing.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { check, chromium, chromiumPath, finish, skip, startDemo, stop } from './road.mjs';

const shots = process.env.KESTRAVA_SHOTS || path.join(os.tmpdir(), 'kestrava-shots');
const haveW3m = (() => { try { execFileSync('w3m', ['-version']); return true; } catch { return false; } })();
if (!haveW3m) skip('w3m is not installed');
const { home, proc, base } = await startDemo();
const logFile = path.join(home, 'sim-transmit.log');
const sent = () => (fs.existsSync(logFile) ? fs.readFileSync(logFile, 'utf8').trim().split('\n').filter(Boolean) : []);

// The bytes a signal file holds, as the simulator logs them.
function signalHex(device, fn) {
    const file = fs.readFileSync(path.join(home, 'IRSignals', `${device}-${fn}.bin`));
    const n = file[1998] * 255 + file[1999];
    return [...file.subarray(0, n)].map((b) => b.toString(16).toUpperCase().padStart(2, '0')).join(' ');
}

const browser = await chromium.launch({
    executablePath: chromiumPath,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
        '--disable-background-networking', '--disable-component-update', '--disable-sync'],
});
try {
    const page = await browser.newPage({ viewport: { width: 480, height: 640 } });
    await page.goto(`${base}/remote.asp`);
    await Promise.all([page.waitForLoadState('load'), page.getByText('テレビ').click()]);
    check(/remote4\.asp\?DevID=\d+&Button=&Device=/.test(page.url()), `the list leads to design 4 (${page.url()})`);
    check(sent().length === 0, 'opening a remote sends nothing');

    await Promise.all([page.waitForURL(/Button=0/), page.locator('img[src="pic/power.gif"]').click()]);
    await page.waitForLoadState('load');
    const lines = sent();
    check(lines.length === 1, `one click, one transmission (${lines.length})`);
    check(lines.length === 1 && lines[0].endsWith(signalHex('テレビ', '電源')), 'the power button sent its own bytes');

    // A page of another site (another host name for this machine) that tries
    // a press through the owner's browser.
    const press = `${base}/remote4.asp?DevID=1&Button=0&Device=x`;
    const other = http.createServer((req, res) => {
        res.writeHead(200, { 'Content-Type': 'text/html' });
        res.end(`<img src="${press}">`);
    });
    await new Promise((done) => other.listen(0, '127.0.0.1', done));
    // The browser drops the answer (not a picture); the request has gone all the same.
    const done = new Promise((resolve) => {
        const seen = (r) => { if (r.url() === press) resolve(); };
        page.on('requestfinished', seen);
        page.on('requestfailed', seen);
    });
    await page.goto(`http://localhost:${other.address().port}/`);
    await done;
    other.close();
    check(sent().length === 1, 'a press from another site sends nothing');

    fs.mkdirSync(shots, { recursive: true });
    for (let d = 1; d <= 6; d++) {
        // Links carry names in CP932, as the list page writes them.
        await page.goto(`${base}/remote${d}.asp?DevID=1&Button=&Device=%83e%83%8C%83r`);
        await page.screenshot({ path: path.join(shots, `remote${d}.png`), fullPage: true });
    }
    check(sent().length === 1, 'showing the designs sends nothing');

    // The phone: cell.asp, then the device, then a function, by following links.
    const w3m = (url) => execFileSync('w3m', ['-dump', '-o', 'display_link_number=1', '-O', 'UTF-8', url],
        { env: { ...process.env, LANG: 'C.UTF-8' } }).toString();
    const links = (dump) => [...dump.matchAll(/^\s*\[\d+\]\s+(\S+)$/gm)].map((m) => m[1]);
    const cell = w3m(`${base}/cell.asp`);
    const remote = links(cell).find((l) => l.includes('cremote.asp') && l.includes('DevID=1&'));
    check(Boolean(remote), 'cell.asp links the television');
    const list = w3m(remote);
    const fn = links(list).find((l) => /Button=1&/.test(l));
    check(Boolean(fn) && list.includes('ch1'), 'the phone list shows the functions');
    w3m(fn);
    const after = sent();
    check(after.length === 2 && after[1].endsWith(signalHex('テレビ', 'ch1')), 'one phone click, one transmission of ch1');
} catch (e) {
    check(false, `browser road: ${e.message}`);
} finally {
    await browser.close();
    await stop(proc);
}
console.log(`screenshots in ${shots}`);
finish(home);
