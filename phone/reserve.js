// Reservations: the list, a key's (or a scene's) reservation, and moving one.
// A repeat is once, daily, weekdays or days chosen (a Sunday-first mask "0101000").
'use strict';

const REPEATS = { once: '1回', daily: '毎日', weekdays: '平日（月〜金）', days: '曜日を選ぶ' };
const DAYS = '日月火水木金土';

function describe(v) {
  if (v.repeat === 'once' && v.date) return `${v.date} ${v.time}`;
  if (v.repeat === 'days' && v.days) {
    const chosen = [...v.days].map((d, i) => (d === '1' ? DAYS[i] : '')).filter(Boolean);
    return `毎週 ${chosen.join('・')} ${v.time}`;
  }
  return `${REPEATS[v.repeat] || v.repeat} ${v.time}`;
}

async function reservationsView() {
  setTitle('予約', '#/');
  const [{ reservations }, remotes, { climates }, choices] = await Promise.all(
    [api('GET', 'reservations'), remoteList(), api('GET', 'climates'), sceneChoices()]);
  const what = (v) => (v.sceneId != null
    ? (choices.find((c) => c.value === `scene:${v.sceneId}`) || { label: `シーン ${v.sceneId}` }).label
    : `${v.remote}・${v.key}`);
  const items = reservations.map((v) => el('li', { class: 'item' },
    el('b', {}, describe(v)), el('span', { class: 'sub' }, what(v)),
    el('div', { class: 'row', style: 'flex-basis:100%;margin:4px 0 0' },
      el('button', { type: 'button', onclick: () => moveSheet(v, what(v)) }, '変更'),
      el('button', { type: 'button', class: 'danger', onclick: () => deleteReservation(v, what(v)) }, '削除'))));
  show(
    el('h2', {}, '予約の一覧'),
    items.length ? el('ul', { class: 'list' }, items) : el('p', { class: 'muted' }, '予約はありません。'),
    el('h2', {}, '予約の追加'),
    addForm(remotes, choices),
    ...(climates.length ? [el('h2', {}, 'エアコンの予約'), climateAddForm(climates)] : []));
}

async function sceneChoices() {
  try {
    return (await self.KestravaScenes?.reserveChoices?.(ctx)) || [];
  } catch {
    return [];
  }
}

function timeFields(prefix, v) {
  const date = el('input', { id: `${prefix}-date`, name: 'date', type: 'date', value: v.date || today() });
  const dateBox = el('div', {}, el('label', { for: `${prefix}-date` }, '日付'), date);
  const mask = v.days || '0000000';
  const days = el('fieldset', { class: 'days' }, el('legend', {}, '曜日'),
    [...DAYS].map((d, i) => el('label', {},
      el('input', { type: 'checkbox', name: 'day', value: i, checked: mask[i] === '1' }), d)));
  const repeat = el('select', { id: `${prefix}-repeat`, name: 'repeat' },
    Object.entries(REPEATS).map(([k, t]) => el('option', { value: k, selected: k === v.repeat }, t)));
  const sync = () => {
    dateBox.hidden = repeat.value !== 'once';
    days.hidden = repeat.value !== 'days';
  };
  repeat.addEventListener('change', sync);
  sync();
  return [
    el('label', { for: `${prefix}-time` }, '時刻'),
    el('input', { id: `${prefix}-time`, name: 'time', type: 'time', required: true, value: v.time || '' }),
    el('label', { for: `${prefix}-repeat` }, '繰り返し'), repeat, dateBox, days,
  ];
}

function today() {
  const d = new Date();
  return `${d.getFullYear()}-${String(d.getMonth() + 1).padStart(2, '0')}-${String(d.getDate()).padStart(2, '0')}`;
}

function when(form) {
  const body = { time: form.elements.time.value, repeat: form.elements.repeat.value };
  if (body.repeat === 'once') body.date = form.elements.date.value;
  if (body.repeat === 'days') {
    const on = new Set([...form.querySelectorAll('input[name=day]:checked')].map((c) => Number(c.value)));
    if (!on.size) throw new Error('曜日を一つ以上選んでください。');
    body.days = [...DAYS].map((_, i) => (on.has(i) ? '1' : '0')).join('');
  }
  return body;
}

function addForm(remotes, choices) {
  const usable = remotes.filter((r) => r.learned > 0);
  if (!usable.length && !choices.length) return el('p', { class: 'muted' }, '学習したキーのあるリモコンがありません。');
  const keySelect = el('select', { id: 'add-key', name: 'key' });
  const keyBox = el('div', {}, el('label', { for: 'add-key' }, 'キー'), keySelect);
  const remoteSelect = el('select', { id: 'add-remote', name: 'remote' },
    usable.map((r) => el('option', { value: r.id }, r.name)),
    choices.length ? el('optgroup', { label: 'シーン' }, choices.map((c) => el('option', { value: c.value }, c.label))) : null);
  // A remote's keys are read when it is chosen: the list has none.
  const fill = async () => {
    const chosen = remoteSelect.value;
    keyBox.hidden = chosen.startsWith('scene:');
    keySelect.replaceChildren();
    if (keyBox.hidden) return;
    try {
      const r = await api('GET', `remotes/${chosen}`);
      if (remoteSelect.value !== chosen) return;
      keySelect.replaceChildren(...r.keys.filter((k) => k.learned)
        .map((k) => el('option', { value: k.id }, k.name || `キー${k.id + 1}`)));
    } catch (e) {
      fail(e);
    }
  };
  remoteSelect.addEventListener('change', fill);
  fill();
  const form = el('form', {},
    el('label', { for: 'add-remote' }, 'リモコン・シーン'), remoteSelect, keyBox,
    ...timeFields('add', { repeat: 'once' }),
    el('div', { class: 'row' }, el('button', { type: 'submit', class: 'primary' }, '予約を追加')));
  form.addEventListener('submit', (ev) => {
    ev.preventDefault();
    holding(form, async () => {
      const scene = /^scene:(\d+)$/.exec(remoteSelect.value);
      await api('POST', 'reservations', {
        ...when(form),
        ...(scene ? { sceneId: Number(scene[1]) }
          : { remoteId: Number(remoteSelect.value), keyId: Number(keySelect.value) }),
      });
      await reservationsView();
      toast('予約を追加しました');
    });
  });
  return form;
}

function moveSheet(v, what) {
  const form = el('form', {}, el('p', {}, what), ...timeFields('move', v),
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

async function deleteReservation(v, what) {
  if (!confirm(`${describe(v)} の「${what}」の予約を削除しますか？`)) return;
  try {
    await api('DELETE', `reservations/${encodeURIComponent(v.id)}`);
    await reservationsView();
    toast('予約を削除しました');
  } catch (e) {
    fail(e);
  }
}
