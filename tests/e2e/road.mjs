// What the browser roads share: the tools they need, the checks they count,
// and the program started headless on a copy of the demo folder.
import { spawn, execFileSync } from 'node:child_process';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';

export const skip = (why) => { console.log(`skipped: ${why}`); process.exit(77); };
export const binary = process.env.KESTRAVA_BINARY;
export const chromiumPath = '/usr/bin/chromium';
if (!binary) skip('KESTRAVA_BINARY is not set');
if (!fs.existsSync(chromiumPath)) skip('chromium is not installed');
export let chromium;
try {
    ({ chromium } = await import('playwright-core'));
} catch {
    skip('playwright-core is not installed (npm ci in tests/e2e)');
}

let passed = 0, failed = 0;
export const check = (ok, what) => {
    if (ok) { passed++; console.log(`ok: ${what}`); }
    else { failed++; console.log(`FAILED: ${what}`); }
};

export const cp932 = (text) => execFileSync('iconv', ['-f', 'UTF-8', '-t', 'CP932'], { input: text });
export const fromCp932 = (bytes) => execFileSync('iconv', ['-f', 'CP932', '-t', 'UTF-8'], { input: bytes }).toString();

// Starts the program; resolves with the process and its web port once it has
// started (and its log matches also, when given).
function start(args, also = null) {
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
            if (m && /started on/.test(log) && (!also || also.test(log))) { clearTimeout(timer); resolve({ proc, port: Number(m[1]) }); }
        });
        proc.on('exit', () => reject(new Error(`ended:\n${log}`)));
    });
}
export const stop = (proc) => new Promise((resolve) => { proc.removeAllListeners('exit'); proc.on('exit', resolve); proc.kill('SIGTERM'); });

// A port the system gives out now. Not one of the program's own choices
// (8080 upward): roads run side by side, and one that stops its server must
// not find another road's server on the same port when it looks again.
export const systemPort = () => new Promise((resolve, reject) => {
    const server = net.createServer().once('error', reject);
    server.listen(0, '127.0.0.1', () => { const { port } = server.address(); server.close(() => resolve(port)); });
});

// The demo folder (six remotes with simulated signals) in a temporary folder,
// the program running on it on a port of its own.
export async function startDemo() {
    const home = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrava-e2e-'));
    {
        const { proc } = await start(['--demo', home]);
        await stop(proc);
        const settings = path.join(home, 'setting.ini');
        const text = fromCp932(fs.readFileSync(settings)).replace(/^Port=\d+/m, `Port=${await systemPort()}`);
        fs.writeFileSync(settings, cp932(text));
    }
    const { proc, port } = await start(['--home', home]);
    return { home, proc, base: `http://127.0.0.1:${port}` };
}

// The program again on a folder made by startDemo.
export const startOn = (home, also) => start(['--home', home], also);

export function finish(home) {
    console.log(`${passed} passed, ${failed} failed`);
    fs.rmSync(home, { recursive: true, force: true });
    process.exit(failed ? 1 : 0);
}
