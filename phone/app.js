// The phone page: air conditioners, remotes, their keypads, learning and reservations, all
// through the JSON API. Only a tap or a form acts; showing a view (a reload,
// the back button, a restored tab) reads and nothing more.
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

async function api(method, path, body) {
  const init = { method, cache: 'no-store', credentials: 'same-origin', headers: { Accept: 'application/json' } };
  if (body !== undefined) {
    init.headers['Content-Type'] = 'application/json';
    init.body = JSON.stringify(body);
  }
  let res;
  try {
    res = await fetch('../api/v1/' + path, init);
  } catch {
    throw new ApiError('network', 'サーバーに接続できません。ネットワークを確かめてください。', 0);
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

let toastTimer = 0;
function toast(text, error) {
  const t = $('toast');
  t.textContent = text;
  t.className = error ? 'show err' : 'show';
  t.setAttribute('role', error ? 'alert' : 'status');
  clearTimeout(toastTimer);
  toastTimer = setTimeout(() => { t.className = error ? 'err' : ''; }, error ? 6000 : 2500);
}
const fail = (e) => toast(e.message || String(e), true);

// Where each key of the six designs lies: per key (in id order) its column,
// its row in half-key steps (a letter from "a"), and what its picture shows
// (p power, u d l r arrows, o ok, n its number, z zero, - blank).
const LAYOUTS = {
  1: '0ap0cn1cn2cn0en1en2en0gn1gn2gn0i-1iz2i-1ku1od0ml2mr0q-1q-2q-0s-1s-2s-1mo0u-1u-2u-',
  2: '0ap0c-1c-2c-0e-1e-2e-0g-1g-2g-0i-1i-2i-',
  3: '0ap0cu0gd1c-1e-1g-',
  4: '0ap0cn1cn2cn0en1en2en0gn1gn2gn0in1in2in0ku0od1k-1m-1o-2ku2od',
  5: '0ap0cn1cn2cn0en1en2en0gn1gn2gn0in1in2in0kz3c-3e-3g-3i-0n-1mu1od2mu2od3m-3o-0q-1q-2q-3q-' +
     '0s-1s-2s-3s-0u-1u-2u-3u-1wu1{d0yl2yr1y-3w-3y-3{-',
  6: '0ap' + Array.from({ length: 13 }, (_, r) =>
    [0, 1, 2, 3, 4].map((c) => c + String.fromCharCode(99 + 2 * r) + '-').join('')).join(''),
};
const HINTS = { p: '電源', u: '▲', d: '▼', l: '◀', r: '▶', o: '決定', z: '0' };
const DESIGNS = {
  1: '27キー（数字・十字キー）', 2: '13キー', 3: '6キー（上下）',
  4: '20キー（数字・上下2組）', 5: '45キー（数字・十字キー）', 6: '66キー',
};
const REPEATS = { once: '1回', daily: '毎日', weekdays: '平日（月〜金）' };

function place(design, id) {
  const s = LAYOUTS[design];
  if (!s || id * 3 + 2 >= s.length) return null;
  const kind = s[id * 3 + 2];
  return {
    col: Number(s[id * 3]), row: s.charCodeAt(id * 3 + 1) - 97,
    kind, hint: kind === 'n' ? String(id) : HINTS[kind] || '',
  };
}

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

// Views ----------------------------------------------------------------

async function listView() {
  setTitle('Kestrava', null);
  const [{ remotes }, { climates }] = await Promise.all([api('GET', 'remotes'), api('GET', 'climates')]);
  cards.clear();
  const items = remotes.map((r) => {
    const learned = r.keys.filter((k) => k.learned).length;
    return el('li', {}, el('a', { href: `#/r/${r.id}` },
      el('b', {}, r.name), el('span', { class: 'sub' }, `${learned}/${r.keys.length}キー`)));
  });
  show(
    ...(climates.length ? [el('h2', {}, 'エアコン'), ...climates.map(climateCard)] : []),
    el('h2', {}, 'リモコン'),
    items.length ? el('ul', { class: 'list' }, items)
      : el('p', { class: 'muted' }, 'リモコンがありません。「新しいリモコン」から作ってください。'),
    el('div', { class: 'row' }, el('a', { class: 'btn', href: '#/new' }, '新しいリモコン')),
    el('p', { class: 'muted' }, el('a', { href: '../default.asp' }, '従来のページ')),
  );
}

// Air conditioners ------------------------------------------------------
// A card shows the state the program believes the unit is in; a tap sends the
// new state at once, and taps on −/+ wait for 400 ms of quiet to go as one.

const MODES = { cool: '冷房', heat: '暖房', dry: '除湿', fan: '送風', auto: '自動' };
const FANS = { auto: '自動', quiet: '静音' };
const fanText = (f) => FANS[f] || (/^\d$/.test(f) ? `風量${f}` : f);
const QUIET_MS = 400;
const cards = new Map(); // unit id -> its card on screen

function climateCard(unit) {
  const id = unit.id;
  const title = `ac-${id}-name`;
  const c = { unit, pending: null, timer: 0 };
  const believed = el('span', { class: 'sub' });
  const power = el('button', { type: 'button', class: 'power', onclick: () => send(c, { power: !c.unit.state.power }) }, '電源');
  const modes = el('div', { class: 'seg', role: 'group', 'aria-label': '運転モード' },
    unit.caps.modes.map((m) => el('button', { type: 'button', 'data-mode': m, onclick: () => send(c, { power: true, mode: m }) }, MODES[m] || m)));
  const temp = el('output', { class: 'temp', 'aria-live': 'polite', 'aria-label': '設定温度' });
  const step = (sign) => () => nudge(c, sign);
  const down = el('button', { type: 'button', class: 'nudge', 'aria-label': '温度を下げる', onclick: step(-1) }, '−');
  const up = el('button', { type: 'button', class: 'nudge', 'aria-label': '温度を上げる', onclick: step(1) }, '+');
  const fan = el('select', { id: `ac-${id}-fan`, onchange: () => send(c, { fan: fan.value }) },
    unit.caps.fans.map((f) => el('option', { value: f }, fanText(f))));
  const swing = unit.caps.swing
    ? el('button', { type: 'button', onclick: () => send(c, { swing: !c.unit.state.swing }) }, 'スイング') : null;
  const note = el('p', { class: 'note', role: 'status' });
  c.view = { believed, power, modes, temp, down, up, fan, swing, note };
  c.card = el('section', { class: 'ac', 'aria-labelledby': title, 'data-id': id },
    el('div', { class: 'head' }, el('h3', { id: title }, unit.name), power),
    believed, modes,
    el('div', { class: 'dial' }, down, temp, up),
    el('div', { class: 'row' }, el('label', { for: `ac-${id}-fan` }, '風量'), fan, swing),
    note);
  cards.set(id, c);
  paint(c);
  return c.card;
}

// Shows the believed state, with a temperature still waiting to be sent.
function paint(c) {
  const { state, caps } = c.unit;
  const v = c.view;
  const t = c.pending ?? state.temperature;
  const usesTemp = !(caps.noTemperature || []).includes(state.mode);
  v.believed.textContent = c.unit.text || '';
  v.power.setAttribute('aria-pressed', String(state.power));
  for (const b of v.modes.children) b.setAttribute('aria-pressed', String(state.power && b.dataset.mode === state.mode));
  v.temp.textContent = usesTemp ? `${t}℃` : '—';
  v.temp.classList.toggle('pending', c.pending != null);
  v.down.disabled = !usesTemp || t <= caps.min;
  v.up.disabled = !usesTemp || t >= caps.max;
  v.fan.value = state.fan;
  if (v.swing) v.swing.setAttribute('aria-pressed', String(state.swing));
}

function say(c, text, error) {
  c.view.note.textContent = text;
  c.view.note.classList.toggle('err', Boolean(error));
}

function nudge(c, sign) {
  const { caps } = c.unit;
  const from = c.pending ?? c.unit.state.temperature;
  const t = Math.round((from + sign * caps.step) * 10) / 10;
  c.pending = Math.min(caps.max, Math.max(caps.min, t));
  paint(c);
  clearTimeout(c.timer);
  c.timer = setTimeout(() => send(c, {}), QUIET_MS);
}

async function send(c, change) {
  clearTimeout(c.timer);
  const body = { ...change };
  if (c.pending != null) body.temperature = c.pending;
  c.pending = null;
  c.card.setAttribute('aria-busy', 'true');
  try {
    const r = await api('PUT', `climates/${encodeURIComponent(c.unit.id)}/state`, body);
    c.unit.state = r.state;
    c.unit.text = r.text;
    say(c, r.message || `送信しました（${r.text}）`);
  } catch (e) {
    say(c, e.message, true);
    fail(e);
  } finally {
    c.card.setAttribute('aria-busy', 'false');
    paint(c);
  }
}

// Someone else changed a unit (another front, or its own remote heard).
function climateEvent(ev) {
  let data;
  try { data = JSON.parse(ev.data); } catch { return; }
  const c = cards.get(data.id);
  if (!c || !data.state) return;
  c.unit.state = data.state;
  if (typeof data.text === 'string') c.unit.text = data.text;
  paint(c);
}

let current = null; // the remote on screen

async function remoteView(id, editing) {
  current = await api('GET', `remotes/${id}`);
  renderRemote(editing);
}

function renderRemote(editing) {
  const r = current;
  setTitle(r.name, editing ? `#/r/${r.id}` : '#/');
  const base = `#/r/${r.id}`;
  const modes = el('nav', { class: 'modes', 'aria-label': '表示' },
    el('a', { class: 'btn', href: base, 'aria-current': editing ? null : 'page' }, '操作'),
    el('a', { class: 'btn', href: `${base}/edit`, 'aria-current': editing ? 'page' : null }, '学習・編集'));
  let cols = 1;
  const pad = el('div', { class: editing ? 'pad edit' : 'pad' });
  for (const key of r.keys) {
    const at = place(r.design, key.id) || { col: key.id % 3, row: 2 * Math.floor(key.id / 3), kind: '-', hint: '' };
    cols = Math.max(cols, at.col + 1);
    const name = key.name || at.hint;
    const cls = ['btn', 'key'];
    if (at.kind === 'p') cls.push('power');
    if (!key.name) cls.push('unset');
    if (!key.learned) cls.push('unlearned');
    const b = el('button', {
      type: 'button', class: cls.join(' '), 'data-key': key.id,
      'aria-label': key.name || `キー${key.id + 1}（未設定${at.hint ? '・' + at.hint : ''}）`,
      style: `grid-column:${at.col + 1};grid-row-start:${at.row + 1}`,
      onclick: () => (editing ? keySheet(key) : press(key, b)),
    }, name ? el('span', {}, name) : el('span', { class: 'hint' }, '—'));
    pad.append(b);
  }
  pad.style.gridTemplateColumns = `repeat(${cols}, minmax(48px, 1fr))`;
  const extra = editing ? [
    el('p', { class: 'muted' }, 'キーを押すと、学習・名前の変更・削除ができます。'),
    el('div', { class: 'row' },
      el('button', { type: 'button', onclick: renameRemoteSheet }, 'リモコン名を変更'),
      el('button', { type: 'button', class: 'danger', onclick: deleteRemote }, 'リモコンを削除')),
  ] : [];
  show(modes, pad, ...extra);
}

async function press(key, button) {
  button.classList.add('sending');
  try {
    await api('POST', `remotes/${current.id}/keys/${key.id}/press`);
    toast(`送信しました（${key.name || `キー${key.id + 1}`}）`);
  } catch (e) {
    fail(e);
  } finally {
    button.classList.remove('sending');
  }
}

// The dialog that edits one thing at a time.
const sheet = $('sheet');
function openSheet(title, ...body) {
  $('sheet-title').textContent = title;
  $('sheet-body').replaceChildren(...body);
  if (!sheet.open) sheet.showModal();
  const first = sheet.querySelector('input, select');
  if (first) first.focus();
}
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

function replaceKey(key) {
  const i = current.keys.findIndex((k) => k.id === key.id);
  if (i >= 0) current.keys[i] = key;
}

function keySheet(key) {
  const at = place(current.design, key.id);
  const wait = el('p', { class: 'wait', hidden: true, role: 'status' },
    'リモコンを受光部に向けて、覚えさせるボタンを押してください…');
  const form = el('form', {},
    nameField('key-name', key.name || (at ? at.hint : ''), 'キーの名前'),
    el('p', { class: 'muted' }, key.learned
      ? `学習済み${key.code ? `：${key.code}` : ''}` : 'まだ学習していません。'),
    wait,
    el('div', { class: 'row' },
      el('button', { type: 'submit', class: 'primary', value: 'learn' }, key.learned ? '学び直す' : '学習する'),
      key.name ? el('button', { type: 'button', onclick: () => renameKey() }, '名前だけ変更') : null),
    el('div', { class: 'row' },
      key.name || key.learned ? el('button', { type: 'button', class: 'danger', onclick: () => deleteKey() }, 'キーを削除') : null,
      closeButton()));
  const name = () => form.elements.name.value.trim();
  form.addEventListener('submit', (ev) => {
    ev.preventDefault();
    if (!name()) return toast('名前を入れてください。', true);
    holding(form, async () => {
      wait.hidden = false;
      try {
        replaceKey(await api('POST', `remotes/${current.id}/keys/${key.id}/learn`, { name: name() }));
      } finally {
        wait.hidden = true;
      }
      closeSheet();
      renderRemote(true);
      toast(`学習しました（${name()}）`);
    });
  });
  const renameKey = () => {
    if (!name()) return toast('名前を入れてください。', true);
    holding(form, async () => {
      replaceKey(await api('PATCH', `remotes/${current.id}/keys/${key.id}`, { name: name() }));
      closeSheet();
      renderRemote(true);
      toast('名前を変更しました');
    });
  };
  const deleteKey = () => {
    if (!confirm(`キー「${key.name || key.id + 1}」を削除しますか？`)) return;
    holding(form, async () => {
      await api('DELETE', `remotes/${current.id}/keys/${key.id}`);
      replaceKey({ ...key, name: '', learned: false, protocol: null, scancode: null, code: null });
      closeSheet();
      renderRemote(true);
      toast('キーを削除しました');
    });
  };
  openSheet(`キー ${key.id + 1}`, form);
}

function renameRemoteSheet() {
  const form = el('form', {}, nameField('remote-name', current.name, 'リモコンの名前'),
    el('div', { class: 'row' }, el('button', { type: 'submit', class: 'primary' }, '変更'), closeButton()));
  form.addEventListener('submit', (ev) => {
    ev.preventDefault();
    holding(form, async () => {
      current = await api('PATCH', `remotes/${current.id}`, { name: form.elements.name.value.trim() });
      closeSheet();
      renderRemote(true);
      toast('名前を変更しました');
    });
  });
  openSheet('リモコン名の変更', form);
}

async function deleteRemote() {
  if (!confirm(`リモコン「${current.name}」とその学習したキーをすべて削除しますか？`)) return;
  try {
    await api('DELETE', `remotes/${current.id}`);
    toast('リモコンを削除しました');
    location.replace('#/');
  } catch (e) {
    fail(e);
  }
}

function newView() {
  setTitle('新しいリモコン', '#/');
  const designs = Object.entries(DESIGNS).map(([n, text]) =>
    el('label', { class: 'item' },
      el('input', { type: 'radio', name: 'design', value: n, checked: n === '2', style: 'width:24px;min-height:24px' }),
      el('b', {}, `デザイン${n}`), el('span', { class: 'sub' }, text)));
  const form = el('form', {}, nameField('new-name', '', 'リモコンの名前'),
    el('fieldset', { style: 'border:0;padding:0;margin:12px 0' }, el('legend', {}, 'デザイン'), designs),
    el('div', { class: 'row' }, el('button', { type: 'submit', class: 'primary' }, '作成')));
  form.addEventListener('submit', (ev) => {
    ev.preventDefault();
    holding(form, async () => {
      const r = await api('POST', 'remotes', {
        name: form.elements.name.value.trim(), design: Number(form.elements.design.value),
      });
      toast('リモコンを作りました。キーを押して学習させてください。');
      location.replace(`#/r/${r.id}/edit`);
    });
  });
  show(form);
}

function describe(v) {
  const when = v.repeat === 'once' && v.date ? `${v.date} ${v.time}` : `${REPEATS[v.repeat] || v.repeat} ${v.time}`;
  return when;
}

async function reservationsView() {
  setTitle('予約', '#/');
  const [{ reservations }, { remotes }, { climates }] = await Promise.all(
    [api('GET', 'reservations'), api('GET', 'remotes'), api('GET', 'climates')]);
  const items = reservations.map((v) => el('li', { class: 'item' },
    el('b', {}, describe(v)), el('span', { class: 'sub' }, `${v.remote}・${v.key}`),
    el('div', { class: 'row', style: 'flex-basis:100%;margin:4px 0 0' },
      el('button', { type: 'button', onclick: () => moveSheet(v) }, '変更'),
      el('button', { type: 'button', class: 'danger', onclick: () => deleteReservation(v) }, '削除'))));
  show(
    el('h2', {}, '予約の一覧'),
    items.length ? el('ul', { class: 'list' }, items) : el('p', { class: 'muted' }, '予約はありません。'),
    el('h2', {}, '予約の追加'),
    addForm(remotes),
    ...(climates.length ? [el('h2', {}, 'エアコンの予約'), climateAddForm(climates)] : []));
}

function timeFields(prefix, v) {
  const date = el('input', { id: `${prefix}-date`, name: 'date', type: 'date', value: v.date || today() });
  const dateBox = el('div', {}, el('label', { for: `${prefix}-date` }, '日付'), date);
  const repeat = el('select', { id: `${prefix}-repeat`, name: 'repeat' },
    Object.entries(REPEATS).map(([k, t]) => el('option', { value: k, selected: k === v.repeat }, t)));
  const sync = () => { dateBox.hidden = repeat.value !== 'once'; };
  repeat.addEventListener('change', sync);
  sync();
  return [
    el('label', { for: `${prefix}-time` }, '時刻'),
    el('input', { id: `${prefix}-time`, name: 'time', type: 'time', required: true, value: v.time || '' }),
    el('label', { for: `${prefix}-repeat` }, '繰り返し'), repeat, dateBox,
  ];
}

function today() {
  const d = new Date();
  return `${d.getFullYear()}-${String(d.getMonth() + 1).padStart(2, '0')}-${String(d.getDate()).padStart(2, '0')}`;
}

function when(form) {
  const body = { time: form.elements.time.value, repeat: form.elements.repeat.value };
  if (body.repeat === 'once') body.date = form.elements.date.value;
  return body;
}

function addForm(remotes) {
  const usable = remotes.filter((r) => r.keys.some((k) => k.learned));
  if (!usable.length) return el('p', { class: 'muted' }, '学習したキーのあるリモコンがありません。');
  const keySelect = el('select', { id: 'add-key', name: 'key' });
  const remoteSelect = el('select', { id: 'add-remote', name: 'remote' },
    usable.map((r) => el('option', { value: r.id }, r.name)));
  const fill = () => {
    const r = usable.find((x) => String(x.id) === remoteSelect.value);
    keySelect.replaceChildren(...r.keys.filter((k) => k.learned)
      .map((k) => el('option', { value: k.id }, k.name || `キー${k.id + 1}`)));
  };
  remoteSelect.addEventListener('change', fill);
  fill();
  const form = el('form', {},
    el('label', { for: 'add-remote' }, 'リモコン'), remoteSelect,
    el('label', { for: 'add-key' }, 'キー'), keySelect,
    ...timeFields('add', { repeat: 'once' }),
    el('div', { class: 'row' }, el('button', { type: 'submit', class: 'primary' }, '予約を追加')));
  form.addEventListener('submit', (ev) => {
    ev.preventDefault();
    holding(form, async () => {
      await api('POST', 'reservations', {
        ...when(form), remoteId: Number(remoteSelect.value), keyId: Number(keySelect.value),
      });
      await reservationsView();
      toast('予約を追加しました');
    });
  });
  return form;
}

// A reservation of an air conditioner's state ("17:30 冷房 26℃ 自動").
function climateAddForm(climates) {
  const unitSelect = el('select', { id: 'acr-unit', name: 'unit' }, climates.map((u) => el('option', { value: u.id }, u.name)));
  const mode = el('select', { id: 'acr-mode', name: 'mode' });
  const temp = el('input', { id: 'acr-temp', name: 'temperature', type: 'number', inputmode: 'decimal', required: true });
  const fan = el('select', { id: 'acr-fan', name: 'fan' });
  const fill = () => {
    const u = climates.find((x) => x.id === unitSelect.value);
    mode.replaceChildren(el('option', { value: 'off' }, '停止'),
      ...u.caps.modes.map((m) => el('option', { value: m, selected: u.state.power && m === u.state.mode }, MODES[m] || m)));
    Object.assign(temp, { min: u.caps.min, max: u.caps.max, step: u.caps.step, value: u.state.temperature });
    fan.replaceChildren(...u.caps.fans.map((f) => el('option', { value: f, selected: f === u.state.fan }, fanText(f))));
  };
  unitSelect.addEventListener('change', fill);
  fill();
  const form = el('form', {},
    el('label', { for: 'acr-unit' }, 'エアコン'), unitSelect,
    el('label', { for: 'acr-mode' }, '運転モード'), mode,
    el('label', { for: 'acr-temp' }, '温度（℃）'), temp,
    el('label', { for: 'acr-fan' }, '風量'), fan,
    ...timeFields('acr', { repeat: 'once' }),
    el('div', { class: 'row' }, el('button', { type: 'submit', class: 'primary' }, 'エアコンの予約を追加')));
  form.addEventListener('submit', (ev) => {
    ev.preventDefault();
    const state = mode.value === 'off' ? { power: false }
      : { power: true, mode: mode.value, temperature: Number(temp.value), fan: fan.value };
    holding(form, async () => {
      const r = await api('POST', 'reservations', { ...when(form), climateId: unitSelect.value, state });
      await reservationsView();
      toast(r.message || '予約を追加しました');
    });
  });
  return form;
}

function moveSheet(v) {
  const form = el('form', {}, el('p', {}, `${v.remote}・${v.key}`), ...timeFields('move', v),
    el('div', { class: 'row' }, el('button', { type: 'submit', class: 'primary' }, '変更'), closeButton()));
  form.addEventListener('submit', (ev) => {
    ev.preventDefault();
    holding(form, async () => {
      await api('PATCH', `reservations/${encodeURIComponent(v.id)}`, when(form));
      closeSheet();
      await reservationsView();
      toast('予約を変更しました');
    });
  });
  openSheet('予約の変更', form);
}

async function deleteReservation(v) {
  if (!confirm(`${describe(v)} の「${v.remote}・${v.key}」の予約を削除しますか？`)) return;
  try {
    await api('DELETE', `reservations/${encodeURIComponent(v.id)}`);
    await reservationsView();
    toast('予約を削除しました');
  } catch (e) {
    fail(e);
  }
}

// Routes: #/ the list, #/r/ID a keypad, #/r/ID/edit its learning view,
// #/new a new remote, #/res the reservations.
async function route() {
  closeSheet();
  const h = location.hash.replace(/^#\/?/, '');
  let m;
  main.setAttribute('aria-busy', 'true');
  try {
    if ((m = /^r\/(\d+)(\/edit)?$/.exec(h))) await remoteView(Number(m[1]), Boolean(m[2]));
    else if (h === 'new') newView();
    else if (h === 'res') await reservationsView();
    else await listView();
  } catch (e) {
    show(el('p', { role: 'alert' }, e.message), el('p', {}, el('a', { href: '#/' }, 'リモコンの一覧へ')));
    fail(e);
  }
  $('tores').hidden = h === 'res';
  main.dataset.shown = location.hash;
  main.setAttribute('aria-busy', 'false');
}

if (window.EventSource) new EventSource('../api/v1/events').addEventListener('climate', climateEvent);
window.addEventListener('hashchange', route);
route();
