// The phone page: air conditioners, remotes, their keypads, learning, reservations and
// scenes, all through the JSON API. Only a tap or a form acts; showing a view (a reload,
// the back button, a restored tab) reads and nothing more. The views live in climate.js,
// remote.js, reserve.js and scenes.js; this file holds what they share and the routes.
'use strict';

const $ = (id) => document.getElementById(id);
const main = $('main');

// Builds an element. Strings become text nodes, so names are never markup.
function el(tag, props, ...kids) {
  const e = document.createElement(tag);
  for (const [k, v] of Object.entries(props || {})) {
    if (k.startsWith('on')) e.addEventListener(k.slice(2), v);
    else if (k === 'class') e.className = v;
    else if (k === 'style') e.style.cssText = v; // not an attribute: the page's policy allows no inline style
    else if (v === true) e.setAttribute(k, '');
    else if (v !== false && v != null) e.setAttribute(k, v);
  }
  for (const kid of kids.flat()) if (kid != null && kid !== false) e.append(kid);
  return e;
}

class ApiError extends Error {
  constructor(code, message, status) { super(message); this.code = code; this.status = status; }
}

const OFFLINE_TEXT = 'サーバーに接続できません。キーの送信や一覧の表示にはサーバーが必要です。';

async function api(method, path, body, options) {
  const init = { method, cache: 'no-store', credentials: 'same-origin', headers: { Accept: 'application/json' }, ...options };
  if (body !== undefined) {
    init.headers['Content-Type'] = 'application/json';
    init.body = JSON.stringify(body);
  }
  let res;
  try {
    res = await fetch('../api/v1/' + path, init);
  } catch (e) {
    if (e.name === 'AbortError') throw e;
    serverDown();
    throw new ApiError('network', OFFLINE_TEXT, 0);
  }
  let data = null;
  if (res.status !== 204) {
    try { data = await res.json(); } catch { data = null; }
  }
  if (!res.ok) {
    const message = data && typeof data.message === 'string' && data.message
      ? data.message : `エラーが起きました（${res.status}）`;
    throw new ApiError(data && data.error || 'http', message, res.status);
  }
  return data;
}

// While the server does not answer, a banner says so and asks again, less
// often each time (1 s, 2 s, ... 30 s); the first answer brings the view back.
let downTimer = 0;
let downDelay = 0;
function serverDown() {
  $('offline').hidden = false;
  if (downTimer) return;
  downDelay = Math.min(30000, downDelay ? downDelay * 2 : 1000);
  downTimer = setTimeout(probe, downDelay);
}
async function probe() {
  clearTimeout(downTimer);
  downTimer = 0;
  try {
    await fetch('../api/v1/status', { cache: 'no-store', credentials: 'same-origin' });
  } catch {
    serverDown();
    return;
  }
  downDelay = 0;
  $('offline').hidden = true;
  route();
}
$('retry').addEventListener('click', probe);

let toastTimer = 0;
let toastAt = -1e9;
function toast(text, error) {
  toastAt = performance.now();
  const t = $('toast');
  t.textContent = text;
  t.className = error ? 'show err' : 'show';
  t.setAttribute('role', error ? 'alert' : 'status');
  clearTimeout(toastTimer);
  toastTimer = setTimeout(() => { t.className = error ? 'err' : ''; }, error ? 6000 : 2500);
}
// A message belongs to its view: a new view clears it, unless it was given
// by the very act that moved here ("deleted", then the list).
function clearToast() {
  if (performance.now() - toastAt < 50) return;
  clearTimeout(toastTimer);
  $('toast').className = '';
  $('toast').textContent = '';
}
const fail = (e) => { if (e.code !== 'network') toast(e.message || String(e), true); };

function setTitle(text, backTo) {
  $('title').textContent = text;
  document.title = text === 'Kestrava' ? text : `${text} - Kestrava`;
  const back = $('back');
  back.hidden = !backTo;
  if (backTo) back.href = backTo;
}

function show(...nodes) {
  main.replaceChildren(...nodes);
}

// The dialog that edits one thing at a time. onClose runs once when it closes,
// however it closes (a button, Escape, a new view).
const sheet = $('sheet');
let sheetClosed = null;
function openSheet(title, ...body) {
  const last = sheetClosed;
  sheetClosed = null;
  if (last) last();
  $('sheet-title').textContent = title;
  $('sheet-body').replaceChildren(...body);
  if (!sheet.open) sheet.showModal();
  const first = sheet.querySelector('input, select');
  if (first) first.focus();
}
const onSheetClose = (f) => { sheetClosed = f; };
sheet.addEventListener('close', () => {
  const f = sheetClosed;
  sheetClosed = null;
  if (f) f();
});
const closeSheet = () => sheet.open && sheet.close();
const closeButton = () => el('button', { type: 'button', onclick: closeSheet }, '閉じる');

// Runs an action with the dialog's buttons held, so a second tap cannot act twice.
async function holding(form, action) {
  const controls = form.querySelectorAll('button, input, select');
  controls.forEach((c) => { c.disabled = true; });
  try {
    await action();
  } catch (e) {
    fail(e);
  } finally {
    controls.forEach((c) => { c.disabled = false; });
  }
}

function nameField(id, value, label) {
  return [el('label', { for: id }, label),
    el('input', { id, name: 'name', value: value || '', required: true, autocomplete: 'off', maxlength: 64 })];
}

// The light list (names and counts, no keys) where the server has it.
async function remoteList() {
  const { remotes } = await api('GET', 'remotes?keys=none');
  return remotes.map((r) => ({
    id: r.id, name: r.name, design: r.design,
    buttons: r.buttonCount ?? (r.keys || []).length,
    learned: r.learned ?? (r.keys || []).filter((k) => k.learned).length,
  }));
}

async function listView() {
  setTitle('Kestrava', null);
  const [remotes, { climates }] = await Promise.all([remoteList(), api('GET', 'climates')]);
  const items = remotes.map((r) => el('li', {}, el('a', { href: `#/r/${r.id}` },
    el('b', {}, r.name), el('span', { class: 'sub' }, `${r.learned}/${r.buttons}キー`))));
  show(
    ...(climates.length ? [el('h2', {}, 'エアコン'), ...climates.map(climateCard)] : []),
    el('h2', {}, 'リモコン'),
    items.length ? el('ul', { class: 'list' }, items)
      : el('p', { class: 'muted' }, 'リモコンがありません。「新しいリモコン」から作ってください。'),
    el('div', { class: 'row' }, el('a', { class: 'btn', href: '#/new' }, '新しいリモコン')),
    el('p', { class: 'muted' }, el('a', { href: '../default.asp' }, '従来のページ')),
  );
}

const scenes = () => self.KestravaScenes;
const ctx = { api, el, show, setTitle, toast, fail, openSheet, closeSheet, main };

// Routes: #/ the list, #/r/ID a keypad, #/r/ID/edit its learning view, #/new a
// new remote, #/res the reservations, #/scenes[/ID|/new] the scenes.
async function route() {
  closeSheet();
  clearToast();
  cards.clear();
  const h = location.hash.replace(/^#\/?/, '');
  let m;
  main.setAttribute('aria-busy', 'true');
  try {
    if ((m = /^r\/(\d+)(\/edit)?$/.exec(h))) {
      setTitle('リモコン', '#/');
      await remoteView(Number(m[1]), Boolean(m[2]));
    } else if (h === 'new') newView();
    else if (h === 'res') {
      setTitle('予約', '#/');
      await reservationsView();
    } else if ((m = /^scenes(?:\/(\d+|new))?$/.exec(h)) && scenes()) {
      setTitle('シーン', '#/');
      await scenes().view(ctx, m[1] === 'new' ? 'new' : m[1] ? Number(m[1]) : null);
    } else await listView();
  } catch (e) {
    show(el('p', { role: 'alert' }, e.message),
      el('p', {}, el('a', { href: '#/' }, 'リモコンの一覧へ')));
    fail(e);
  }
  $('tores').hidden = h === 'res';
  $('toscenes').hidden = !scenes() || h.startsWith('scenes');
  main.dataset.shown = location.hash;
  main.setAttribute('aria-busy', 'false');
}

if (window.EventSource) new EventSource('../api/v1/events').addEventListener('climate', climateEvent);
// The page's own files stay usable without the server (where the browser allows a worker).
if ('serviceWorker' in navigator && window.isSecureContext) navigator.serviceWorker.register('sw.js').catch(() => {});
window.addEventListener('hashchange', route);
route();
