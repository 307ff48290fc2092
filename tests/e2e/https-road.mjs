// The program over HTTPS in chromium: the certificate from files named in
// setting.ini, the classic menu and the phone page served there, and a tap
// that sends once.
//
// Environment: KESTRAVA_BINARY (the program). Exits 77 when a tool is missing.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { check, chromium, chromiumPath, cp932, finish, fromCp932, skip, startDemo, startOn, stop, systemPort } from './road.mjs';

try { execFileSync('openssl', ['version']); } catch { skip('openssl is not installed'); }
const demo = await startDemo();
await stop(demo.proc);
const { home } = demo;
const cert = path.join(home, '..', `${path.basename(home)}-cert.pem`);
const key = path.join(home, '..', `${path.basename(home)}-key.pem`);
execFileSync('openssl', ['req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes',
    '-days', '2', '-keyout', key, '-out', cert, '-subj', '/CN=127.0.0.1', '-addext', 'subjectAltName=IP:127.0.0.1'],
{ stdio: 'ignore' });
const httpsPort = await systemPort();
const settings = path.join(home, 'setting.ini');
const text = fromCp932(fs.readFileSync(settings)).replace(/^\[WebServer\]\r?\n/m,
    `[WebServer]\r\nHttpsPort=${httpsPort}\r\nCertFile=${cert}\r\nKeyFile=${key}\r\n`);
fs.writeFileSync(settings, cp932(text));
const { proc } = await startOn(home, /HTTPS listening on port \d+/);
const base = `https://127.0.0.1:${httpsPort}`;

const browser = await chromium.launch({
    executablePath: chromiumPath,
    args: ['--no-sandbox', '--disable-gpu', '--no-first-run', '--disable-background-networking',
        '--disable-component-update', '--disable-sync'],
});
const logFile = path.join(home, 'sim-transmit.log');
const sent = () => (fs.existsSync(logFile) ? fs.readFileSync(logFile, 'utf8').trim().split('\n').filter(Boolean) : []);
try {
    const context = await browser.newContext({ ignoreHTTPSErrors: true, hasTouch: true });
    const page = await context.newPage();
    const menu = await page.goto(`${base}/default.asp`);
    const tls = (await menu.securityDetails())?.protocol;
    check(menu.status() === 200 && /^TLS 1\.[23]$/.test(tls), `the classic menu over ${tls}`);
    check((await page.locator('a[href="m/"]').count()) === 1, 'the menu links the phone page');

    await page.goto(`${base}/m/`);
    await page.locator('ul.list a', { hasText: 'テレビ' }).tap();
    await page.locator('.key', { hasText: '電源' }).tap();
    await page.locator('#toast.show').waitFor();
    check(sent().length === 1, 'a tap over HTTPS sends once');
} finally {
    await browser.close();
    await stop(proc);
    fs.rmSync(cert, { force: true });
    fs.rmSync(key, { force: true });
}
finish(home);
