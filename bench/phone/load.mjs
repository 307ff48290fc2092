// The phone page's first load on loopback: a fresh browser profile (nothing
// cached) opens /m/ of a program running on the demo folder, at phone size.
// Reports the time to DOMContentLoaded and to the remote list on screen, and
// the bytes transferred, over a number of runs (default 20).
//
//   KESTRAVA_BINARY=build/app/kestrava node bench/phone/load.mjs [runs]
import { chromium, chromiumPath, startDemo, stop } from '../../tests/e2e/road.mjs';
import fs from 'node:fs';

const runs = Number(process.argv[2] || 20);
const { home, proc, base } = await startDemo();
const browser = await chromium.launch({
    executablePath: chromiumPath,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
        '--disable-background-networking', '--disable-component-update', '--disable-sync'],
});
const dcl = [], list = [];
let bytes = 0;
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
        const transferred = await page.evaluate(() => performance.getEntriesByType('navigation')
            .concat(performance.getEntriesByType('resource')).reduce((n, e) => n + e.transferSize, 0));
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
console.log(`runs: ${runs}, each in a fresh profile at 390x844`);
console.log(`first load to DOMContentLoaded: ${stats(dcl)}`);
console.log(`to the remote list on screen:   ${stats(list)}`);
console.log(`transferred (headers and bodies): ${bytes} bytes`);
process.exit(Math.max(...dcl) <= 200 ? 0 : 1);
