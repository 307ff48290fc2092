// The whole road of a press: a browser (Debian's chromium, driven by
// Playwright) and a plain-text phone browser (w3m) use the pages of a running
// program whose transceiver is the simulator, and each press must put exactly
// one signal, the button's own bytes, into sim-transmit.log.
//
// Environment: KESTRAVA_BINARY (the program), KESTRAVA_SHOTS (a folder for
// screenshots of the six designs). Exits 77 when a tool is missing.
import { spawn, execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

const skip = (why) => { console.log(`skipped: ${why}`); process.exit(77); };
const binary = process.env.KESTRAVA_BINARY;
const shots = process.env.KESTRAVA_SHOTS || path.join(os.tmpdir(), 'kestrava-shots');
const chromiumPath = '/usr/bin/chromium';
if (!binary) skip('KESTRAVA_BINARY is not set');
if (!fs.existsSync(chromiumPath)) skip('chromium is not installed');
let chromium;
try {
    ({ chromium } = await import('playwright-core'));
} catch {
    skip('playwright-core is not installed (npm ci in tests/e2e)');
}
const haveW3m = (() => { try { execFileSync('w3m', ['-version']); return true; } catch { return false; } })();
if (!haveW3m) skip('w3m is not installed');

let passed = 0, failed = 0;
const check = (ok, what) => {
    if (ok) { passed++; console.log(`ok: ${what}`); }
    else { failed++; console.log(`FAILED: ${what}`); }
};

const cp932 = (text) => execFileSync('iconv', ['-f', 'UTF-8', '-t', 'CP932'], { input: text });
const fromCp932 = (bytes) => execFileSync('iconv', ['-f', 'CP932', '-t', 'UTF-8'], { input: bytes }).toString();

// Starts the program; resolves with the process and its web port.
function start(args) {
    const proc = spawn(binary, ['--headless', ...args], {
        env: { ...process.env, DISPLAY: '', WAYLAND_DISPLAY: '' },
        stdio: ['ignore', 'ignore', 'pipe'],
    });
    let log = '';
    return new Promise((resolve, reject) => {
        const timer = setTimeout(() => reject(new Error(`no start:\n${log}`)), 15000);
        proc.stderr.on('data', (d) => {
            log += d;
            const m = /listening on port (\d+)/.exec(log);
            if (m && /started on/.test(log)) { clearTimeout(timer); resolve({ proc, port: Number(m[1]) }); }
        });
        proc.on('exit', () => reject(new Error(`ended:\n${log}`)));
    });
}
const stop = (proc) => new Promise((resolve) => { proc.removeAllListeners('exit'); proc.on('exit', resolve); proc.kill('SIGTERM'); });

// The demo folder brings a television (design 4) and an air conditioner
// (design 3) with simulated signals; run it on a port of its own.
const home = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrava-e2e-'));
{
    const { proc } = await start(['--demo', home]);
    await stop(proc);
    const settings = path.join(home, 'setting.ini');
    const text = fromCp932(fs.readFileSync(settings)).replace(/^Port=\d+/m, 'Port=0');
    fs.writeFileSync(settings, cp932(text));
}
const { proc, port } = await start(['--home', home]);
const base = `http://127.0.0.1:${port}`;
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
console.log(`${passed} passed, ${failed} failed`);
fs.rmSync(home, { recursive: true, force: true });
process.exit(failed ? 1 : 0);
