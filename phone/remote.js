// A remote's keypad: 操作 shows the learned keys, each pressed by a tap and
// held by a longer touch; 学習・編集 shows every key, where a tap on one not yet
// learned starts learning it. Keys are numbered from 1 for people everywhere.
'use strict';

// Where each key of the six designs lies: per key (in id order) its column,
// its row in half-key steps (a letter from "a"), and what its picture shows
// (p power, u d l r arrows, o ok, n a number, z zero, - blank).
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
// What an unnamed key's picture suggests as its name. Printed digits are left
// out: they would read as the key's number, which is its place from 1.
const HINTS = { p: '電源', u: '▲', d: '▼', l: '◀', r: '▶', o: '決定' };
const DESIGNS = {
  1: '27キー（数字・十字キー）', 2: '13キー', 3: '6キー（上下）',
  4: '20キー（数字・上下2組）', 5: '45キー（数字・十字キー）', 6: '66キー',
};
const HOLD_AFTER_MS = 400; // a touch longer than this holds the key
const keyNumber = (key) => key.id + 1;
const keyLabel = (key) => key.name || `キー${keyNumber(key)}`;

function place(design, id) {
  const s = LAYOUTS[design];
  if (!s || id * 3 + 2 >= s.length) return { col: id % 3, row: 2 * Math.floor(id / 3), kind: '-', hint: '' };
  const kind = s[id * 3 + 2];
  return { col: Number(s[id * 3]), row: s.charCodeAt(id * 3 + 1) - 97, kind, hint: HINTS[kind] || '' };
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
  const shown = editing ? r.keys : r.keys.filter((k) => k.learned);
  for (const key of shown) {
    const at = place(r.design, key.id);
    cols = Math.max(cols, at.col + 1);
    const cls = ['btn', 'key'];
    if (at.kind === 'p') cls.push('power');
    if (!key.learned) cls.push('unlearned');
    const b = el('button', {
      type: 'button', class: cls.join(' '), 'data-key': key.id,
      'aria-label': key.learned ? key.name : `キー${keyNumber(key)}（${key.name || at.hint ? (key.name || at.hint) + '・' : ''}未学習）`,
      style: `grid-column:${at.col + 1};grid-row-start:${at.row + 1}`,
    }, key.name ? el('span', {}, key.name) : el('span', { class: 'hint' }, `${keyNumber(key)} ${at.hint}`.trim()));
    if (editing) b.addEventListener('click', () => keySheet(key));
    else holdable(b, key);
    pad.append(b);
  }
  pad.style.gridTemplateColumns = `repeat(${cols}, minmax(48px, 1fr))`;
  const extra = editing ? [
    el('p', { class: 'muted' }, 'まだ学習していないキーを押すと、すぐに学習が始まります。学習したキーでは名前の変更・学び直し・削除ができます。'),
    el('div', { class: 'row' },
      el('button', { type: 'button', onclick: renameRemoteSheet }, 'リモコン名を変更'),
      el('button', { type: 'button', class: 'danger', onclick: deleteRemote }, 'リモコンを削除')),
  ] : shown.length ? [] : [el('p', { class: 'muted' }, 'まだ学習したキーがありません。',
    el('a', { href: `${base}/edit` }, '「学習・編集」'), 'でキーを押して学習させてください。')];
  show(modes, pad, ...extra);
}

async function press(key, button) {
  button.classList.add('sending');
  try {
    await api('POST', `remotes/${current.id}/keys/${key.id}/press`);
    toast(`送信しました（${keyLabel(key)}）`);
  } catch (e) {
    fail(e);
  } finally {
    button.classList.remove('sending');
  }
}

// A tap (or Enter, Space) presses once; a touch held past HOLD_AFTER_MS sends
// the key with its repeat frames until it is let go. Where the server has no
// holding, a held key is pressed once.
function holdable(b, key) {
  let timer = 0;
  let held = false; // a hold's start is sent and not yet answered
  let released = false;
  let swallowClick = false;
  const path = `remotes/${current.id}/keys/${key.id}/hold`;
  // A stop can overtake its start on another connection: then it is said again.
  const stop = async (tries) => {
    try {
      const r = await api('POST', path, { action: 'stop' });
      if (!r.held && held && tries > 0) setTimeout(() => stop(tries - 1), 100);
    } catch { /* the hold ends by itself at its limit */ }
  };
  const release = () => {
    clearTimeout(timer);
    timer = 0;
    if (held && !released) stop(5);
    released = true;
  };
  const start = async () => {
    timer = 0;
    held = true;
    released = false;
    swallowClick = true;
    b.setAttribute('aria-pressed', 'true');
    b.classList.add('held');
    try {
      const r = await api('POST', path, { action: 'start' });
      toast(`送信しました（${keyLabel(key)}・${r.frames ?? 1}回）`);
    } catch (e) {
      if (e.status === 404 || e.status === 405) await press(key, b);
      else fail(e);
    } finally {
      held = false;
      b.removeAttribute('aria-pressed');
      b.classList.remove('held');
    }
  };
  b.addEventListener('pointerdown', (ev) => {
    if (ev.button !== 0 || held) return;
    swallowClick = false;
    timer = setTimeout(start, HOLD_AFTER_MS);
  });
  for (const end of ['pointerup', 'pointercancel', 'pointerleave']) b.addEventListener(end, release);
  b.addEventListener('contextmenu', (ev) => ev.preventDefault());
  b.addEventListener('click', () => {
    if (swallowClick) swallowClick = false;
    else press(key, b);
  });
}

function replaceKey(key) {
  const i = current.keys.findIndex((k) => k.id === key.id);
  if (i >= 0) current.keys[i] = key;
}

let captureMs = 0;
async function captureTime() {
  if (!captureMs) {
    try {
      captureMs = (await api('GET', 'status')).transceiver.captureMs || 11000;
    } catch {
      return 11000;
    }
  }
  return captureMs;
}

function keySheet(key) {
  const at = place(current.design, key.id);
  const left = el('b', {});
  const wait = el('p', { class: 'wait', hidden: true, role: 'status' },
    'リモコンを受光部に向けて、覚えさせるボタンを押してください。残り ', left, ' 秒');
  const cancel = el('button', { type: 'button', hidden: true }, 'キャンセル');
  const learnButton = el('button', { type: 'submit', class: 'primary' }, key.learned ? '学び直す' : '学習する');
  const close = closeButton();
  const form = el('form', {},
    nameField('key-name', key.name || at.hint || `キー${keyNumber(key)}`, 'キーの名前'),
    el('p', { class: 'muted' }, key.learned
      ? `学習済み${key.code ? `：${key.code}` : ''}` : 'まだ学習していません。'),
    wait,
    el('div', { class: 'row' }, learnButton, cancel,
      key.name ? el('button', { type: 'button', onclick: () => renameKey() }, '名前だけ変更') : null),
    el('div', { class: 'row' },
      key.name || key.learned ? el('button', { type: 'button', class: 'danger', onclick: () => deleteKey() }, 'キーを削除') : null,
      close));
  const name = () => form.elements.name.value.trim();
  const learnPath = `remotes/${current.id}/keys/${key.id}/learn`;
  let learning = false;
  // A cancel can overtake the learn it ends on another connection: then it is said again.
  const stopLearning = async (tries = 5) => {
    if (!learning) return;
    try {
      await api('DELETE', learnPath);
    } catch (e) {
      if (e.code === 'not_learning' && learning && tries > 0) setTimeout(() => stopLearning(tries - 1), 100);
    }
  };
  // While the capture waits only キャンセル and 閉じる act; both end it on the server.
  const learn = async () => {
    if (!name()) return toast('名前を入れてください。', true);
    const controls = [...form.querySelectorAll('button, input')].filter((c) => c !== cancel && c !== close);
    controls.forEach((c) => { c.disabled = true; });
    learning = true;
    cancel.hidden = false;
    learnButton.hidden = true;
    wait.hidden = false;
    const end = Date.now() + await captureTime();
    const tick = () => { left.textContent = String(Math.max(0, Math.ceil((end - Date.now()) / 1000))); };
    tick();
    const ticker = setInterval(tick, 250);
    try {
      const learned = await api('POST', learnPath, { name: name() });
      learning = false;
      replaceKey(learned);
      closeSheet();
      renderRemote(true);
      toast(`学習しました（${name()}）`);
    } catch (e) {
      if (e.code === 'cancelled') toast('学習を取り消しました');
      else fail(e);
    } finally {
      learning = false;
      clearInterval(ticker);
      wait.hidden = true;
      cancel.hidden = true;
      learnButton.hidden = false;
      controls.forEach((c) => { c.disabled = false; });
    }
  };
  cancel.addEventListener('click', () => stopLearning());
  form.addEventListener('submit', (ev) => {
    ev.preventDefault();
    learn();
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
    if (!confirm(`${keyLabel(key)}（キー${keyNumber(key)}）を削除しますか？`)) return;
    holding(form, async () => {
      await api('DELETE', `remotes/${current.id}/keys/${key.id}`);
      replaceKey({ ...key, name: '', learned: false, protocol: null, scancode: null, code: null });
      closeSheet();
      renderRemote(true);
      toast('キーを削除しました');
    });
  };
  openSheet(`キー${keyNumber(key)}${key.name ? `（${key.name}）` : ''}`, form);
  onSheetClose(stopLearning);
  if (!key.learned) learn();
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
