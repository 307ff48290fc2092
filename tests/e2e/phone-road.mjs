// The phone page at /m/ on a phone-sized chromium (390 x 844, scale 3, touch)
// against a running program whose transceiver is the simulator: keys large
// enough for a finger, a tap that sends exactly once, a held key that repeats,
// a reload or the back button that sends nothing, a remote learned (one
// learn cancelled), used, edited, reserved on chosen weekdays and deleted
// from the page alone, each view with its own title and messages, the server
// stopped and started again under the open page. Then the same page at
// desktop size with the keyboard.
//
// Environment: KESTRAVA_BINARY (the program), KESTRAVA_SHOTS (a folder for
// screenshots). Exits 77 when a tool is missing.
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { check, chromium, chromiumPath, cp932, finish, fromCp932, startDemo, startOn, stop } from './road.mjs';

const shots = process.env.KESTRAVA_SHOTS || path.join(os.tmpdir(), 'kestrava-shots');
const demo = await startDemo();
const { home, base } = demo;
let { proc } = demo;
const logFile = path.join(home, 'sim-transmit.log');
const sent = () => (fs.existsSync(logFile) ? fs.readFileSync(logFile, 'utf8').trim().split('\n').filter(Boolean) : []);
const signalHex = (device, fn) => {
    const file = fs.readFileSync(path.join(home, 'IRSignals', `${device}-${fn}.bin`));
    const n = file[1998] * 255 + file[1999];
    return [...file.subarray(0, n)].map((b) => b.toString(16).toUpperCase().padStart(2, '0')).join(' ');
};

const browser = await chromium.launch({
    executablePath: chromiumPath,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
        '--disable-background-networking', '--disable-component-update', '--disable-sync'],
});
const phone = { viewport: { width: 390, height: 844 }, deviceScaleFactor: 3, isMobile: true, hasTouch: true };

// Does something on the page and returns what the message line then says.
async function after(page, action) {
    await page.evaluate(() => { document.getElementById('toast').className = ''; });
    await action();
    return message(page);
}
async function message(page) {
    const toast = page.locator('#toast.show');
    await toast.waitFor();
    const text = await toast.textContent();
    const error = await toast.evaluate((t) => t.classList.contains('err'));
    await page.evaluate(() => { document.getElementById('toast').className = ''; });
    return { text, error };
}
const key = (page, name) => page.locator('.key', { hasText: name });
const sheetButton = (page, name) => page.locator('#sheet button', { hasText: name });
// The page marks the view of the address once it is shown.
const settle = (page) => page.waitForFunction(() => {
    const main = document.getElementById('main');
    return main.dataset.shown === location.hash && main.getAttribute('aria-busy') === 'false';
});

try {
    fs.mkdirSync(shots, { recursive: true });
    const context = await browser.newContext(phone);
    const page = await context.newPage();
    const foreign = [], lists = [];
    page.on('request', (r) => {
        if (!r.url().startsWith(base)) foreign.push(r.url());
        if (r.url().includes('/api/v1/remotes')) lists.push(r.url());
    });
    await page.goto(`${base}/m/`);
    await settle(page);
    const bytes = await page.evaluate(() => performance.getEntriesByType('navigation')
        .concat(performance.getEntriesByType('resource')).reduce((n, e) => n + e.transferSize, 0));
    check((await page.locator('ul.list a').count()) === 6, 'the list shows the six remotes');
    check(bytes > 0 && bytes <= 40 * 1024, `the page and its data weigh ${bytes} bytes`);
    check(lists.length === 1 && lists[0].endsWith('?keys=none'), `the list asks for names, not keys (${lists})`);
    check(foreign.length === 0, `nothing is fetched from elsewhere (${foreign})`);

    // Every design's keypad fits the width, with keys a finger can hit.
    for (let id = 1; id <= 6; id++) {
        const { keys } = await (await page.request.get(`${base}/api/v1/remotes/${id}`)).json();
        await page.goto(`${base}/m/#/r/${id}`);
        await settle(page);
        const shown = await page.$$eval('.key', (ks) => ks.map((k) => Number(k.dataset.key)));
        check(String(shown) === String(keys.filter((k) => k.learned).map((k) => k.id)),
            `remote ${id}: 操作 shows its ${shown.length} learned keys only`);
        await page.goto(`${base}/m/#/r/${id}/edit`);
        await settle(page);
        const sizes = await page.$$eval('.key', (keys) => keys.map((k) => {
            const box = k.getBoundingClientRect();
            const span = k.querySelector('span');
            return { w: box.width, h: box.height, right: box.right,
                font: parseFloat(getComputedStyle(span || k).fontSize) };
        }));
        const small = sizes.filter((s) => s.w < 48 || s.h < 48 || s.font < 14 || s.right > 390);
        const wide = await page.evaluate(() => document.documentElement.scrollWidth);
        check(sizes.length > 0 && small.length === 0 && wide <= 390,
            `design of remote ${id}: ${sizes.length} keys of at least 48x48 px with 14 px names inside 390 px (${JSON.stringify(small[0] || wide)})`);
        await page.screenshot({ path: path.join(shots, `phone-remote${id}.png`), fullPage: true });
    }
    check(sent().length === 0, 'showing the keypads sends nothing');

    // A tap sends once; reload, back and forward send nothing.
    await page.goto(`${base}/m/#/`);
    await page.locator('ul.list a', { hasText: 'テレビ' }).tap();
    const done = await after(page, () => key(page, '電源').tap());
    check(!done.error && done.text.includes('送信しました'), `a tap says ${done.text}`);
    check(sent().length === 1 && sent()[0].endsWith(signalHex('テレビ', '電源')), 'one tap, one transmission of its own bytes');
    // Held for 1.5 s: the key shows it is held and its repeat frames go out.
    const held = await page.locator('.key', { hasText: '音量+' }).boundingBox();
    const cdp = await context.newCDPSession(page);
    const touch = (type, points) => cdp.send('Input.dispatchTouchEvent', { type, touchPoints: points });
    await touch('touchStart', [{ x: held.x + held.width / 2, y: held.y + held.height / 2 }]);
    await page.waitForTimeout(1500);
    const pressed = await key(page, '音量+').getAttribute('aria-pressed');
    await touch('touchEnd', []);
    const frames = await message(page);
    check(pressed === 'true', 'a held key shows it is held');
    check(sent().length >= 4 && !frames.error, `held 1.5 s: ${sent().length - 1} frames (${frames.text})`);
    const afterHold = sent().length;
    const acts = [];
    page.on('request', (r) => { if (r.method() !== 'GET') acts.push(r.url()); });
    await page.reload();
    await settle(page);
    await page.goBack();
    await settle(page);
    await page.goForward();
    await settle(page);
    check(page.url().endsWith('#/r/1') && sent().length === afterHold && acts.length === 0,
        `reload, back and forward send nothing (${acts})`);

    // Learning a remote from the page alone.
    page.on('dialog', (d) => d.accept());
    await page.goto(`${base}/m/#/`);
    await page.locator('a', { hasText: '新しいリモコン' }).tap();
    await page.fill('#new-name', '扇風機');
    await page.locator('label', { hasText: 'デザイン3' }).tap();
    await page.locator('button', { hasText: '作成' }).tap();
    await page.waitForURL(/#\/r\/\d+\/edit$/);
    await settle(page);
    const remoteId = /#\/r\/(\d+)/.exec(page.url())[1];
    check((await page.locator('.key').count()) === 6, 'a new remote of design 3 has six keys');
    const name2 = await page.locator('.key[data-key="1"]').evaluate((k) => [k.textContent, k.getAttribute('aria-label')]);
    check(name2[0] === '2 ▲' && name2[1] === 'キー2（▲・未学習）', `one numbering from 1: ${name2}`);
    // A tap on a key not learned starts learning it; キャンセル ends the capture on the server.
    await page.locator('.key[data-key="1"]').tap();
    const countdown = await page.locator('#sheet .wait', { hasText: /残り \d+ 秒/ }).textContent();
    let m = await after(page, () => sheetButton(page, 'キャンセル').tap());
    const status = await (await page.request.get(`${base}/api/v1/status`)).json();
    check(/残り \d+ 秒/.test(countdown) && (await page.locator('#sheet-title').textContent()) === 'キー2',
        `learning counts down (${countdown})`);
    check(!m.error && m.text.includes('取り消しました') && status.transceiver.state !== 'capturing',
        `a learn is cancelled on the server (${m.text}, ${status.transceiver.state})`);
    await page.fill('#key-name', '風量');
    m = await after(page, () => sheetButton(page, '学習する').tap());
    check(!m.error && (await key(page, '風量').count()) === 1, `the key is learned after all (${m.text})`);
    m = await after(page, () => page.locator('.key[data-key="0"]').tap());
    check(!m.error && m.text.includes('学習しました（電源）'), `the power key is learned by a tap (${m.text})`);
    await key(page, '電源').tap();
    m = await after(page, () => sheetButton(page, '学び直す').tap());
    check(!m.error, `a key is learned again (${m.text})`);
    check(fs.existsSync(path.join(home, 'IRSignals', '扇風機-電源.bin')), 'the signal file is written');

    await page.locator('.modes a', { hasText: '操作' }).tap();
    m = await after(page, () => key(page, '電源').tap());
    check(!m.error && sent().length === afterHold + 1 && sent().at(-1).endsWith(signalHex('扇風機', '電源')),
        `the learned key sends its signal (${m.text})`);

    await page.locator('.modes a', { hasText: '学習・編集' }).tap();
    await key(page, '風量').tap();
    await page.fill('#key-name', '首振り');
    m = await after(page, () => sheetButton(page, '名前だけ変更').tap());
    check(!m.error && (await key(page, '首振り').count()) === 1, `a key is renamed (${m.text})`);
    await key(page, '首振り').tap();
    m = await after(page, () => sheetButton(page, 'キーを削除').tap());
    check(!m.error && (await key(page, '首振り').count()) === 0, `a key is deleted (${m.text})`);

    // A reservation on chosen weekdays added, moved and deleted; a refusal stays with its view.
    await page.locator('#tores').tap();
    await settle(page);
    await page.selectOption('#add-remote', remoteId);
    await page.selectOption('#add-key', '0');
    await page.fill('#add-time', '23:58');
    await page.selectOption('#add-repeat', 'days');
    for (const day of ['月', '水']) await page.locator('fieldset.days label', { hasText: day }).first().tap();
    m = await after(page, () => page.locator('button', { hasText: '予約を追加' }).tap());
    const row = page.locator('ul.list li', { hasText: '扇風機・電源' });
    check(!m.error && (await row.textContent()).includes('毎週 月・水 23:58'), `a reservation on chosen days is added (${m.text})`);
    await row.locator('button', { hasText: '変更' }).tap();
    await page.fill('#move-time', '21:07');
    m = await after(page, () => sheetButton(page, '変更').tap());
    check(!m.error && (await row.textContent()).includes('毎週 月・水 21:07'), `the reservation is moved (${m.text})`);
    m = await after(page, () => row.locator('button', { hasText: '削除' }).tap());
    check(!m.error && (await row.count()) === 0, `the reservation is deleted (${m.text})`);
    await page.fill('#add-time', '06:00');
    await page.selectOption('#add-repeat', 'days');
    await page.locator('button', { hasText: '予約を追加' }).tap();
    const refusal = await page.locator('#toast.show.err').textContent();
    await page.waitForTimeout(100); // a person's pace: a message given by the move itself would stay
    await page.goto(`${base}/m/#/r/${remoteId}/edit`);
    await settle(page);
    const title = await page.locator('#title').textContent();
    const left = await page.locator('#toast.show').count();
    check(refusal.includes('曜日') && title === '扇風機' && left === 0,
        `no weekday chosen is refused (${refusal}); the next view has its own title (${title}) and no message of the last (${left})`);

    await page.locator('button', { hasText: 'リモコンを削除' }).tap();
    await page.waitForURL(/#\/$/);
    await settle(page);
    check((await page.locator('ul.list a', { hasText: '扇風機' }).count()) === 0, 'the remote is deleted');
    check(sent().length === afterHold + 1, 'editing sent nothing');

    // The server stops under the open page: the page's own files still open,
    // a banner says presses need the server, and the page is back by itself
    // once the server answers again on its port.
    await page.evaluate(() => navigator.serviceWorker.ready);
    await stop(proc);
    await page.reload();
    const banner = page.locator('#offline');
    await banner.waitFor();
    const asked = page.waitForRequest((r) => r.url().includes('/api/v1/'));
    await page.locator('#retry').tap();
    check(Boolean(await asked) && (await banner.textContent()).includes('サーバーが必要'),
        'offline: the page opens, says presses need the server, and 再試行 asks again');
    const settings = path.join(home, 'setting.ini');
    fs.writeFileSync(settings, cp932(fromCp932(fs.readFileSync(settings)).replace(/^Port=\d+/m, `Port=${new URL(base).port}`)));
    ({ proc } = await startOn(home));
    await banner.waitFor({ state: 'hidden', timeout: 40000 });
    await settle(page);
    check((await page.locator('ul.list a').count()) === 6, 'the list is back without a reload');

    await page.emulateMedia({ colorScheme: 'dark' });
    const dark = await page.evaluate(() => getComputedStyle(document.body).backgroundColor);
    await page.emulateMedia({ colorScheme: 'light' });
    const light = await page.evaluate(() => getComputedStyle(document.body).backgroundColor);
    check(dark !== light, `dark by the system's setting (${dark} / ${light})`);
    const manifest = await (await page.request.get(`${base}/m/manifest.webmanifest`)).json();
    const icons = await Promise.all(manifest.icons.map((i) => page.request.get(new URL(i.src, `${base}/m/`).href)));
    check(manifest.display === 'standalone' && icons.every((r) => r.ok() && r.headers()['content-type'] === 'image/png'),
        'installable: a manifest with its icons');
    await context.close();

    // Desktop size, mouse-less: Tab to a key, Enter and Space press it.
    const desk = await browser.newPage({ viewport: { width: 1280, height: 800 } });
    await desk.goto(`${base}/m/#/r/2`);
    await key(desk, '温度+').waitFor();
    for (let n = 0; n < 20 && !(await key(desk, '温度+').evaluate((k) => k === document.activeElement)); n++)
        await desk.keyboard.press('Tab');
    const outline = await desk.evaluate(() => getComputedStyle(document.activeElement).outlineStyle);
    await after(desk, () => desk.keyboard.press('Enter'));
    await after(desk, () => desk.keyboard.press('Space'));
    const last = sent().slice(-2);
    check(sent().length === afterHold + 3 && last.every((l) => l.endsWith(signalHex('エアコン', '温度+'))),
        'Enter and Space each send the focused key once');
    check(outline !== 'none', `a focused key is outlined (${outline})`);
} catch (e) {
    check(false, `phone road: ${e.stack || e.message}`);
} finally {
    await browser.close();
    await stop(proc);
}
finish(home);
