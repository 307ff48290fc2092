// The air conditioners' cards on the list, and the form that reserves a state.
'use strict';

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

