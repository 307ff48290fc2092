// The phone page's first load on loopback: a fresh browser profile (nothing
// cached) opens /m/ of a program running on the demo folder filled up to a
// number of remotes (default 100, 66 keys each, ten of them learned), at phone
// size. Reports the time to DOMContentLoaded and to the remote list on screen,
// and the bytes transferred (all, and the list's data), over a number of runs
// (default 20). Fails past 200 ms to DOMContentLoaded or 40 KB.
//
//   KESTRAVA_BINARY=build/app/kestrava node bench/phone/load.mjs [runs] [remotes]
import { chromium, chromiumPath, startDemo, stop } from '../../tests/e2e/road.mjs';
import fs from 'node:fs';

const runs = Number(process.argv[2] || 20);
const remotes = Number(process.argv[3] || 100);
const { home, proc, base } = await startDemo();
const call = (method, path, body) => fetch(`${base}/api/v1/${path}`, {
    method, headers: { 'Content-Type': 'application/json' }, body: JSON.stringify(body),
}).then((r) => { if (!r.ok) throw new Error(`${method} ${path}: ${r.status}`); return r.json(); });
for (let n = (await call('GET', 'remotes')).remotes.length; n < remotes; n++) {
    const r = await call('POST', 'remotes', { name: `リモコン${n + 1}`, design: 6 });
    for (let k = 0; k < 10; k++)
        await call('PUT', `remotes/${r.id}/keys/${k}/code`, { name: `キー${k + 1}`, code: `nec:0x${(0x0400 + k).toString(16)}` });
}
const browser = await chromium.launch({
    executablePath: chromiumPath,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
        '--disable-background-networking', '--disable-component-update', '--disable-sync'],
});
const dcl = [], list = [];
let bytes = 0, listBytes = 0;
try {
    for (let i = 0; i < runs; i++) {
        const context = await browser.newContext({
            viewport: { width: 390, height: 844 }, deviceScaleFactor: 3, isMobile: true, hasTouch: true,
        });
        const page = await context.newPage();
        await page.goto(`${base}/m/`, { waitUntil: 'domcontentloaded' });
        await page.locator('ul.list a').first().waitFor();
        const t = await page.evaluate(() => {
            const nav = performance.getEntriesByType('navigation')[0];
            return { dcl: nav.domContentLoadedEventEnd - nav.startTime, shown: performance.now() - nav.startTime };
        });
        await page.waitForLoadState('networkidle');
        // Headers and bodies of the page, its files and its first data.
        const [transferred, listSize] = await page.evaluate(() => {
            const all = performance.getEntriesByType('navigation').concat(performance.getEntriesByType('resource'));
            return [all.reduce((n, e) => n + e.transferSize, 0),
                all.filter((e) => e.name.includes('/api/v1/remotes')).reduce((n, e) => n + e.transferSize, 0)];
        });
        listBytes = Math.max(listBytes, listSize);
        dcl.push(t.dcl);
        list.push(t.shown);
        bytes = Math.max(bytes, transferred);
        await context.close();
    }
} finally {
    await browser.close();
    await stop(proc);
    fs.rmSync(home, { recursive: true, force: true });
}
const stats = (xs) => {
    const s = [...xs].sort((a, b) => a - b);
    const at = (q) => s[Math.min(s.length - 1, Math.floor(q * s.length))];
    return `median ${at(0.5).toFixed(1)} ms, p90 ${at(0.9).toFixed(1)} ms, max ${s[s.length - 1].toFixed(1)} ms`;
};
console.log(`runs: ${runs}, each in a fresh profile at 390x844, ${remotes} remotes`);
console.log(`first load to DOMContentLoaded: ${stats(dcl)}`);
console.log(`to the remote list on screen:   ${stats(list)}`);
console.log(`transferred (headers and bodies): ${bytes} bytes, of which the remote list ${listBytes}`);
process.exit(Math.max(...dcl) <= 200 && bytes <= 40 * 1024 ? 0 : 1);
