// Scenes on the phone page at 390 px with touch: one of three steps (a key, a
// pause, a key of another remote) made on the page and run, its frames seen in
// the simulator's log in order with the pause between them; then edited (the
// pause out, an air conditioner's state in and moved up), run again with that
// unit gone, the failing step named by its number and nothing sent after it;
// then deleted.
//
// Environment: KESTRAVA_BINARY. Exits 77 when a tool is missing.
import fs from 'node:fs';
import path from 'node:path';
import { check, chromium, chromiumPath, finish, startDemo, stop } from './road.mjs';

const { home, proc, base } = await startDemo();
const logFile = path.join(home, 'sim-transmit.log');
const sent = () => (fs.existsSync(logFile) ? fs.readFileSync(logFile, 'utf8').trim().split('\n').filter(Boolean) : []);
const signalHex = (remote, key) => {
    const file = fs.readFileSync(path.join(home, 'IRSignals', `${remote}-${key}.bin`));
    const n = file[1998] * 255 + file[1999];
    return [...file.subarray(0, n)].map((b) => b.toString(16).toUpperCase().padStart(2, '0')).join(' ');
};
const browser = await chromium.launch({
    executablePath: chromiumPath,
    args: ['--no-sandbox', '--disable-gpu', '--no-first-run', '--disable-background-networking'],
});
const settle = (page) => page.waitForFunction(() =>
    main.dataset.shown === location.hash && main.getAttribute('aria-busy') === 'false');

try {
    const page = await (await browser.newContext({
        viewport: { width: 390, height: 844 }, deviceScaleFactor: 3, isMobile: true, hasTouch: true,
    })).newPage();
    page.on('dialog', (d) => d.accept());
    const tap = (text, where = 'main') => page.locator(`${where} :is(button, a)`, { hasText: text }).first().tap();
    const keyStep = async (remote, key) => {
        await tap('キーを追加');
        await page.selectOption('#sck-remote', { label: remote });
        await page.waitForFunction((k) => [...document.querySelectorAll('#sck-key option')].some((o) => o.text === k), key);
        await page.selectOption('#sck-key', { label: key });
        await tap('追加', '#sheet');
    };
    // Runs the one scene from the list; resolves with what its note said on the way.
    const run = async () => {
        await page.goto(`${base}/m/#/scenes`);
        await settle(page);
        await page.evaluate(() => {
            const note = document.querySelector('main li .note');
            window.said = [];
            new MutationObserver(() => window.said.push(note.textContent)).observe(note, { childList: true });
        });
        await tap('実行');
        await page.waitForFunction(() => !document.querySelector('main li button.primary').disabled
            && /送りました|手順/.test(document.querySelector('main li .note').textContent), null, { timeout: 15000 });
        return { said: await page.evaluate(() => window.said), note: await page.locator('main li .note').textContent() };
    };

    // Made on the page: a key, 1.5 s, a key of another remote.
    await page.goto(`${base}/m/#/scenes`);
    await settle(page);
    await tap('新しいシーン');
    await settle(page);
    await page.fill('#scene-name', '映画を見る');
    await keyStep('テレビ', '電源');
    await tap('待ち時間を追加');
    await page.fill('#scw-sec', '1.5');
    await tap('追加', '#sheet');
    await keyStep('オーディオ', '電源');
    const shown = await page.locator('main ol li b').allTextContents();
    check(shown.join() === 'テレビ・電源,1.5秒待つ,オーディオ・電源', `three steps on the page (${shown})`);
    await tap('作成');
    await page.waitForURL(/#\/scenes$/);
    await settle(page);
    const wide = await page.evaluate(() => document.documentElement.scrollWidth);
    check(wide <= 390 && (await page.locator('main li b').textContent()) === '映画を見る', `the scene is listed inside 390 px (${wide})`);

    // Run: both frames in order, the pause between them, each step shown as it goes.
    const before = sent().length;
    let r = await run();
    const lines = sent().slice(before);
    const at = lines.map((l) => Date.parse(l.split(' ')[0]));
    check(lines.length === 2 && lines[0].endsWith(signalHex('テレビ', '電源')) && lines[1].endsWith(signalHex('オーディオ', '電源')),
        `the two keys on the wire in order (${lines.length} frames)`);
    check(at[1] - at[0] >= 1500 && at[1] - at[0] < 2000, `the pause between them (${at[1] - at[0]} ms)`);
    check(r.note.includes('送りました') && r.said.some((t) => t.includes('手順 2/3')), `the run is shown step by step (${r.said})`);

    // Edited: the pause out, an air conditioner's state in, moved to the middle.
    let unit = null;
    for (const family of ['daikin', 'mitsubishi', 'panasonic', 'gree', 'midea', 'coolix']) {
        const res = await page.request.post(`${base}/api/v1/climates`, { data: { name: '寝室のエアコン', family } });
        if (res.status() === 201) { unit = await res.json(); break; }
    }
    await tap('編集');
    await settle(page);
    await page.locator('[aria-label="手順2を削除"]').tap();
    await tap('エアコンを追加');
    await page.selectOption('#scc-unit', { label: '寝室のエアコン' });
    await page.selectOption('#scc-mode', unit.caps.modes[0]);
    await page.fill('#scc-temp', String(unit.caps.min));
    await tap('追加', '#sheet');
    await page.locator('[aria-label="手順3を上へ"]').tap();
    await tap('保存');
    await page.waitForURL(/#\/scenes$/);
    const [{ steps: kept }] = (await (await page.request.get(`${base}/api/v1/scenes`)).json()).scenes;
    check(kept.map((s) => s.remoteName || s.climateName).join() === 'テレビ,寝室のエアコン,オーディオ'
        && kept[1].state.mode === unit.caps.modes[0] && kept[1].state.temperature === unit.caps.min,
        `the edited steps are stored (${JSON.stringify(kept)})`);

    // The unit goes; the run stops at step 2 and says so, the third key unsent.
    await page.request.delete(`${base}/api/v1/climates/${unit.id}`);
    const mid = sent().length;
    r = await run();
    check(/手順 ?2/.test(r.note) && (await page.locator('main li .note.err').count()) === 1,
        `the failing step is named (${r.note})`);
    check(sent().length === mid + 1 && sent().at(-1).endsWith(signalHex('テレビ', '電源')), 'nothing is sent after the failing step');

    // Deleted after confirming.
    await tap('編集');
    await settle(page);
    await tap('シーンを削除');
    await page.waitForURL(/#\/scenes$/);
    await settle(page);
    const { scenes } = await (await page.request.get(`${base}/api/v1/scenes`)).json();
    check(scenes.length === 0 && (await page.locator('main li').count()) === 0, 'the scene is deleted');
} catch (e) {
    check(false, `scene road: ${e.stack || e.message}`);
} finally {
    await browser.close();
    await stop(proc);
}
finish(home);
