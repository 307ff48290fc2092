// The phone page's scenes: named sequences of steps (a key of a remote, an air
// conditioner's state, a pause), listed, run, made and edited here. app.js owns
// the page and calls view() for #/scenes, #/scenes/new and #/scenes/<id>.
'use strict';

(() => {
  const MODES = { cool: '冷房', heat: '暖房', dry: '除湿', fan: '送風', auto: '自動' };
  const fanText = (f) => ({ auto: '自動', quiet: '静音' }[f] || (/^\d$/.test(f) ? `風量${f}` : f));
  const keyText = (k) => k.name || `キー${k.id + 1}`;
  const seconds = (ms) => `${Math.round(ms / 100) / 10}秒`;

  function stateText(state, caps) {
    if (!state || !state.power) return '停止';
    const usesTemp = !(caps && (caps.noTemperature || []).includes(state.mode));
    return [MODES[state.mode] || state.mode, usesTemp ? `${state.temperature}℃` : null,
      fanText(state.fan), state.swing ? 'スイング' : null].filter(Boolean).join(' ');
  }

  function stepText(s) {
    if (s.type === 'wait') return `${seconds(s.ms)}待つ`;
    if (s.type === 'climate') return `${s.climateName || s.climateId}：${stateText(s.state, s.caps)}`;
    const name = `${s.remoteName || `リモコン${s.remote}`}・${s.keyName || `キー${s.key + 1}`}`;
    return s.repeat > 1 ? `${name} ×${s.repeat}` : name;
  }

  // What the API takes: the names shown here stay on the page.
  function stepBody(s) {
    if (s.type === 'wait') return { type: 'wait', ms: s.ms };
    if (s.type === 'climate') return { type: 'climate', climateId: s.climateId, state: s.state };
    return { type: 'key', remote: s.remote, key: s.key, repeat: s.repeat || 1 };
  }

  // Runs an action with a form's controls held, so a second tap cannot act twice.
  async function holding(ctx, form, action) {
    const controls = [...form.querySelectorAll('button, input, select')];
    const was = controls.map((c) => c.disabled);
    controls.forEach((c) => { c.disabled = true; });
    try {
      await action();
    } catch (e) {
      ctx.fail(e);
    } finally {
      controls.forEach((c, i) => { c.disabled = was[i]; });
    }
  }

  // The event stream is opened only while a run of this page goes: its
  // `scene` events say which step is on the wire.
  const watchers = new Map(); // scene id -> what to do with its events
  let stream = null;
  async function watch(id, fn) {
    watchers.set(id, fn);
    if (stream || !self.EventSource) return;
    stream = new EventSource('../api/v1/events');
    stream.addEventListener('scene', (ev) => {
      let data;
      try { data = JSON.parse(ev.data); } catch { return; }
      const w = watchers.get(data.id);
      if (w) w(data);
    });
    // A run's first event must not go before the stream listens.
    const opened = stream;
    await new Promise((ready) => {
      opened.addEventListener('open', ready, { once: true });
      setTimeout(ready, 1500);
    });
  }
  function unwatch(id) {
    watchers.delete(id);
    if (!watchers.size && stream) { stream.close(); stream = null; }
  }

  // The list ---------------------------------------------------------------

  async function listView(ctx) {
    const { el } = ctx;
    ctx.setTitle('シーン', '#/');
    const { scenes } = await ctx.api('GET', 'scenes');
    const items = scenes.map((s) => {
      const note = el('p', { class: 'note', role: 'status', id: `scene-${s.id}-note` });
      const run = el('button', { type: 'button', class: 'primary', 'aria-describedby': note.id }, '実行');
      run.addEventListener('click', () => runScene(ctx, s, run, note));
      return el('li', { class: 'item', 'data-id': s.id },
        el('b', {}, s.name), el('span', { class: 'sub' }, `${s.steps.length}個の手順`),
        el('div', { class: 'row', style: 'flex-basis:100%;margin:4px 0 0' },
          run, el('a', { class: 'btn', href: `#/scenes/${s.id}`, 'aria-label': `${s.name}を編集` }, '編集')),
        el('div', { style: 'flex-basis:100%' }, note));
    });
    ctx.show(
      el('p', { class: 'muted' }, 'いくつかのリモコンのキーやエアコンの設定を、順に一度に送ります。'),
      items.length ? el('ul', { class: 'list' }, items)
        : el('p', { class: 'muted' }, 'シーンがありません。「新しいシーン」から作ってください。'),
      el('div', { class: 'row' }, el('a', { class: 'btn', href: '#/scenes/new' }, '新しいシーン')));
  }

  async function runScene(ctx, s, button, note) {
    const say = (text, error) => {
      note.textContent = text;
      note.classList.toggle('err', Boolean(error));
    };
    button.disabled = true;
    say('開始を待っています…');
    try {
      await watch(s.id, (ev) => {
        const n = Number(ev.step) || 0;
        if (ev.state === 'running' && n) {
          const step = s.steps[n - 1];
          say(`手順 ${n}/${s.steps.length} を実行中${step ? `（${stepText(step)}）` : ''}…`);
        } else if (ev.state === 'running') say('実行中…');
        else if (ev.state === 'failed' && ev.message) say(ev.message, true);
      });
      await ctx.api('POST', `scenes/${s.id}/run`);
      say('すべての手順を送りました。');
      ctx.toast(`シーン「${s.name}」を実行しました`);
    } catch (e) {
      say(e.message, true);
      ctx.fail(e);
    } finally {
      unwatch(s.id);
      button.disabled = false;
    }
  }

  // Making and editing ------------------------------------------------------

  async function editView(ctx, id) {
    const { el } = ctx;
    const [scene, { remotes }, { climates }] = await Promise.all([
      id ? ctx.api('GET', `scenes/${id}`) : { name: '', steps: [] },
      ctx.api('GET', 'remotes?keys=none'), ctx.api('GET', 'climates')]);
    ctx.setTitle(id ? scene.name : '新しいシーン', '#/scenes');
    const units = new Map(climates.map((u) => [u.id, u]));
    const steps = scene.steps.map((s) => ({ ...s, caps: units.get(s.climateId)?.caps }));
    const list = el('ol', { 'aria-label': '手順', style: 'list-style:none;margin:0;padding:0;display:grid;gap:8px' });
    const empty = el('p', { class: 'muted' }, '手順がありません。下のボタンで追加してください。');
    const render = (focus) => {
      list.replaceChildren(...steps.map((s, i) => {
        const n = i + 1;
        const move = (to) => () => {
          steps.splice(to, 0, ...steps.splice(i, 1));
          render(`[data-step="${to}"] [data-act="${to < i ? 'up' : 'down'}"]`);
        };
        const remove = () => { steps.splice(i, 1); render(`[data-step="${Math.min(i, steps.length - 1)}"] [data-act="del"]`); };
        return el('li', { class: 'item', 'data-step': i },
          el('b', {}, stepText(s)), el('span', { class: 'sub' }, `手順 ${n}`),
          el('div', { class: 'row', style: 'flex-basis:100%;margin:4px 0 0' },
            el('button', { type: 'button', 'data-act': 'up', 'aria-label': `手順${n}を上へ`, disabled: i === 0, onclick: move(i - 1) }, '↑'),
            el('button', { type: 'button', 'data-act': 'down', 'aria-label': `手順${n}を下へ`, disabled: n === steps.length, onclick: move(i + 1) }, '↓'),
            el('button', { type: 'button', class: 'danger', 'data-act': 'del', 'aria-label': `手順${n}を削除`, onclick: remove }, '削除')));
      }));
      empty.hidden = steps.length > 0;
      const f = focus && list.querySelector(focus);
      if (f && !f.disabled) f.focus();
    };
    const add = (step) => { steps.push(step); render(); ctx.closeSheet(); };
    const form = el('form', {},
      el('label', { for: 'scene-name' }, 'シーンの名前'),
      el('input', { id: 'scene-name', name: 'name', value: scene.name, required: true, autocomplete: 'off', maxlength: 40 }),
      el('h2', {}, '手順'), list, empty,
      el('div', { class: 'row' },
        el('button', { type: 'button', onclick: () => keySheet(ctx, remotes, add) }, 'キーを追加'),
        climates.length ? el('button', { type: 'button', onclick: () => climateSheet(ctx, climates, add) }, 'エアコンを追加') : null,
        el('button', { type: 'button', onclick: () => waitSheet(ctx, add) }, '待ち時間を追加')),
      el('div', { class: 'row' },
        el('button', { type: 'submit', class: 'primary' }, id ? '保存' : '作成'),
        id ? el('button', { type: 'button', class: 'danger', onclick: () => removeScene(ctx, form, scene) }, 'シーンを削除') : null));
    form.addEventListener('submit', (ev) => {
      ev.preventDefault();
      const name = form.elements.name.value.trim();
      if (!name) return ctx.toast('名前を入れてください。', true);
      if (!steps.length) return ctx.toast('手順を一つ以上追加してください。', true);
      holding(ctx, form, async () => {
        const body = { name, steps: steps.map(stepBody) };
        await (id ? ctx.api('PUT', `scenes/${id}`, body) : ctx.api('POST', 'scenes', body));
        ctx.toast(id ? 'シーンを保存しました' : 'シーンを作りました');
        location.replace('#/scenes');
      });
    });
    render();
    ctx.show(form);
  }

  function removeScene(ctx, form, scene) {
    if (!confirm(`シーン「${scene.name}」を削除しますか？`)) return;
    holding(ctx, form, async () => {
      await ctx.api('DELETE', `scenes/${scene.id}`);
      ctx.toast('シーンを削除しました');
      location.replace('#/scenes');
    });
  }

  // The dialogs that add one step ---------------------------------------------

  function sheetForm(ctx, fields, onAdd) {
    const { el } = ctx;
    const form = el('form', {}, ...fields,
      el('div', { class: 'row' },
        el('button', { type: 'submit', class: 'primary' }, '追加'),
        el('button', { type: 'button', onclick: ctx.closeSheet }, '閉じる')));
    form.addEventListener('submit', (ev) => {
      ev.preventDefault();
      holding(ctx, form, onAdd);
    });
    return form;
  }

  function keySheet(ctx, remotes, add) {
    const { el } = ctx;
    const learned = (r) => r.learned ?? (r.keys || []).filter((k) => k.learned).length;
    const usable = remotes.filter((r) => learned(r) > 0);
    if (!usable.length) {
      return ctx.openSheet('キーの手順', el('p', { class: 'muted' }, '学習したキーのあるリモコンがありません。'),
        el('div', { class: 'row' }, el('button', { type: 'button', onclick: ctx.closeSheet }, '閉じる')));
    }
    const remote = el('select', { id: 'sck-remote', name: 'remote' }, usable.map((r) => el('option', { value: r.id }, r.name)));
    const key = el('select', { id: 'sck-key', name: 'key', required: true });
    const repeat = el('input', { id: 'sck-repeat', name: 'repeat', type: 'number', inputmode: 'numeric', min: 1, max: 20, step: 1, value: 1, required: true });
    const keys = new Map(); // remote id -> its learned keys, asked once
    let shown = null;
    const fill = async () => {
      const id = Number(remote.value);
      key.disabled = true;
      try {
        if (!keys.has(id)) keys.set(id, (await ctx.api('GET', `remotes/${id}`)).keys.filter((k) => k.learned));
        if (Number(remote.value) !== id) return;
        key.replaceChildren(...keys.get(id).map((k) => el('option', { value: k.id }, keyText(k))));
        shown = id;
      } catch (e) {
        ctx.fail(e);
      } finally {
        key.disabled = false;
      }
    };
    remote.addEventListener('change', fill);
    const form = sheetForm(ctx, [
      el('label', { for: 'sck-remote' }, 'リモコン'), remote,
      el('label', { for: 'sck-key' }, 'キー'), key,
      el('label', { for: 'sck-repeat' }, '送る回数（1〜20）'), repeat,
    ], async () => {
      const r = usable.find((x) => x.id === shown);
      const k = r && keys.get(r.id).find((x) => String(x.id) === key.value);
      if (!k) return ctx.toast('キーを選んでください。', true);
      add({ type: 'key', remote: r.id, key: k.id, repeat: Number(repeat.value), remoteName: r.name, keyName: keyText(k) });
    });
    ctx.openSheet('キーの手順', form);
    return fill();
  }

  function climateSheet(ctx, climates, add) {
    const { el } = ctx;
    const unit = el('select', { id: 'scc-unit', name: 'unit' }, climates.map((u) => el('option', { value: u.id }, u.name)));
    const mode = el('select', { id: 'scc-mode', name: 'mode' });
    const temp = el('input', { id: 'scc-temp', name: 'temperature', type: 'number', inputmode: 'decimal', required: true });
    const fan = el('select', { id: 'scc-fan', name: 'fan' });
    const swing = el('input', { id: 'scc-swing', name: 'swing', type: 'checkbox', style: 'width:24px;min-height:24px' });
    const swingBox = el('label', { for: 'scc-swing', class: 'item' }, swing, 'スイング');
    const chosen = () => climates.find((x) => x.id === unit.value);
    const fill = () => {
      const u = chosen();
      mode.replaceChildren(el('option', { value: 'off' }, '停止'),
        ...u.caps.modes.map((m) => el('option', { value: m, selected: u.state.power && m === u.state.mode }, MODES[m] || m)));
      Object.assign(temp, { min: u.caps.min, max: u.caps.max, step: u.caps.step, value: u.state.temperature });
      fan.replaceChildren(...u.caps.fans.map((f) => el('option', { value: f, selected: f === u.state.fan }, fanText(f))));
      swing.checked = Boolean(u.state.swing);
      swingBox.hidden = !u.caps.swing;
      sync();
    };
    // Off needs nothing else; a mode without a temperature hides it.
    const sync = () => {
      const u = chosen();
      const off = mode.value === 'off';
      temp.disabled = off || (u.caps.noTemperature || []).includes(mode.value);
      fan.disabled = off;
      swing.disabled = off;
    };
    unit.addEventListener('change', fill);
    mode.addEventListener('change', sync);
    const form = sheetForm(ctx, [
      el('label', { for: 'scc-unit' }, 'エアコン'), unit,
      el('label', { for: 'scc-mode' }, '運転モード'), mode,
      el('label', { for: 'scc-temp' }, '温度（℃）'), temp,
      el('label', { for: 'scc-fan' }, '風量'), fan,
      swingBox,
    ], async () => {
      const u = chosen();
      const state = mode.value === 'off' ? { ...u.state, power: false }
        : { power: true, mode: mode.value, temperature: Number(temp.value), fan: fan.value, swing: u.caps.swing && swing.checked };
      add({ type: 'climate', climateId: u.id, state, climateName: u.name, caps: u.caps });
    });
    fill();
    ctx.openSheet('エアコンの手順', form);
  }

  function waitSheet(ctx, add) {
    const { el } = ctx;
    const sec = el('input', { id: 'scw-sec', name: 'seconds', type: 'number', inputmode: 'decimal', min: 0.1, max: 30, step: 0.1, value: 1, required: true });
    const form = sheetForm(ctx, [el('label', { for: 'scw-sec' }, '待つ秒数（0.1〜30）'), sec], async () => {
      const ms = Math.round(Number(sec.value) * 1000);
      if (!(ms >= 100 && ms <= 30000)) return ctx.toast('待ち時間は 0.1〜30 秒です。', true);
      add({ type: 'wait', ms });
    });
    ctx.openSheet('待ち時間の手順', form);
  }

  self.KestravaScenes = {
    view(ctx, id) {
      if (id == null || id === '') return listView(ctx);
      return editView(ctx, id === 'new' ? null : Number(id));
    },
    // The scenes a reservation may fire, for the reservation form's choice.
    async reserveChoices(ctx) {
      try {
        const { scenes } = await ctx.api('GET', 'scenes');
        return scenes.map((s) => ({ value: `scene:${s.id}`, label: `シーン ${s.name}` }));
      } catch {
        return [];
      }
    },
  };
})();
