// axe-core on every view of the phone page, in the light and the dark theme, at
// phone size: any violation (contrast under 4.5:1, a control without a name, ...)
// fails, with where it is. Exits 77 when a tool is missing.
import { createRequire } from 'node:module';
import { check, chromium, chromiumPath, finish, skip, startDemo, stop } from './road.mjs';

let axePath;
try {
    axePath = createRequire(import.meta.url).resolve('axe-core/axe.min.js');
} catch {
    skip('axe-core is not installed (npm ci in tests/e2e)');
}

const { home, proc, base } = await startDemo();
const browser = await chromium.launch({
    executablePath: chromiumPath,
    args: ['--no-sandbox', '--disable-gpu', '--no-first-run', '--disable-background-networking'],
});
const settle = (page) => page.waitForFunction(() => {
    const main = document.getElementById('main');
    return main.dataset.shown === location.hash && main.getAttribute('aria-busy') === 'false';
});

try {
    // A unit of the first family the program knows, so the list shows a card.
    const context = await browser.newContext({
        viewport: { width: 390, height: 844 }, deviceScaleFactor: 3, isMobile: true, hasTouch: true,
        bypassCSP: true, // axe is injected as a script of the page
    });
    const page = await context.newPage();
    for (const family of ['daikin', 'mitsubishi', 'panasonic', 'gree', 'midea', 'coolix']) {
        const r = await page.request.post(`${base}/api/v1/climates`, { data: { name: '寝室', family } });
        if (r.status() === 201) break;
    }
    // Each view, and what only a tap shows: a key's dialog, chosen weekdays.
    const views = [
        ['list', '#/'], ['keypad', '#/r/1'], ['learning', '#/r/1/edit'], ['new remote', '#/new'],
        ['reservations', '#/res'], ['scenes', '#/scenes'], ['new scene', '#/scenes/new'],
        ['key dialog', '#/r/1/edit', (p) => p.locator('.key:not(.unlearned)').first().tap()],
        ['weekdays', '#/res', (p) => p.selectOption('#add-repeat', 'days')],
        ['scene step dialog', '#/scenes/new', (p) => p.locator('button', { hasText: 'エアコンを追加' }).tap()],
    ];
    for (const scheme of ['light', 'dark']) {
        await page.emulateMedia({ colorScheme: scheme });
        for (const [name, hash, act] of views) {
            await page.goto(`${base}/m/${hash}`);
            await settle(page);
            if (act) await act(page);
            await page.waitForTimeout(300); // transitions (the message line) at rest
            if (!(await page.evaluate(() => 'axe' in window))) await page.addScriptTag({ path: axePath });
            const found = await page.evaluate(async () => (await window.axe.run(document, { resultTypes: ['violations'] }))
                .violations.map((v) => `${v.id}: ${v.nodes.map((n) => n.target.join(' ')).join(', ')}`));
            check(found.length === 0, `${name} (${scheme}) has no accessibility violations ${found.join('; ')}`);
        }
    }
} catch (e) {
    check(false, `phone axe: ${e.stack || e.message}`);
} finally {
    await browser.close();
    await stop(proc);
}
finish(home);
