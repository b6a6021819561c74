// The page: shows the newest picture with what is known about it, and lets a person choose, stop and look back.
import { nextFrame, order } from './api.mjs';
import { drawOverlay, looks, Trails } from './overlay.mjs';
import { Picker } from './pick.mjs';
import { Saving } from './save.mjs';
import { Settings } from './settings.mjs';
import { Timeline } from './timeline.mjs';

const byId = id => document.getElementById(id);
const icons = { idle: '○', waiting: '◔', tracked: '●', predicted: '◐', searching: '◌', lost: '✕', no_signal: '▲', gone: '▲' };

let state = null;      // what is known, of the picture on the screen or newer
let frame = null;      // the picture on the screen: { number, width, height }
let selected = '';     // the target that picking is for; empty: the first
let fresh = null;      // the name of a target that is about to be chosen
let paused = false;
let lastWords = '';
const trails = new Trails();
const timeline = new Timeline();
const settings = new Settings();
new Saving();
const shown = {};

const picker = new Picker(byId('stage'), {
  frame: () => frame,
  start: wish => start(wish),
  propose: wish => order('/api/propose', wish),
  atOnce: () => byId('atOnce').checked,
  changed: () => choiceChanged(),
  say: text => say(text),
});

function say(text) {
  const note = byId('note');
  note.textContent = text;
  note.hidden = !text;
  clearTimeout(say.timer);
  if (text) say.timer = setTimeout(() => say(''), 6000);
}

// ---- picking

async function start(wish) {
  const name = fresh || selected;
  const began = performance.now();
  try {
    const done = await order('/api/targets', name ? { ...wish, name } : wish);
    selected = done.name;
    fresh = null;
    say('');
    document.body.dataset.answered = Math.round(performance.now() - began);  // for whoever drives the page by program
  } catch (refused) {
    say('Not started: ' + refused.message + '.');
  }
  showTargets();
}

async function stop(name) {
  try {
    await order('/api/stop', { name });
    if (selected === name) selected = '';
  } catch (refused) { say(refused.message); }
}

function choiceChanged() {
  byId('ask').hidden = !picker.choice.proposal;
  redraw();
}

// ---- what is shown

function redraw() {
  if (frame && state) drawOverlay(byId('overlay'), frame, state, trails, shown, chosen()?.name, picker.choice);
}

const chosen = () => state && (state.targets.find(t => t.name === selected) || state.targets[0]);

// Why the guard does not agree with the tracker's box; nothing where it does, or where there is none.
const guardWords = guard => guard && guard.state !== 'agreed' ? 'Guard: ' + guard.reason : '';

function stepBanner() {
  const banner = byId('banner'), target = chosen();
  let standing = 'idle', words = 'Nothing is followed', more = 'Drag a box over the target, or tap on it.';
  if (state.ended) { standing = 'gone'; words = 'The run has ended'; more = ''; }
  else if (state.no_signal) { standing = 'no_signal'; words = 'No signal for ' + state.silent_s.toFixed(0) + ' s'; more = 'The last picture is shown.'; }
  else if (target) { standing = target.standing; words = target.words; more = [state.targets.length > 1 && target.name, guardWords(target.guard)].filter(Boolean).join(' · '); }
  showBanner(standing, words, more);
  // Said aloud only when something becomes another, not while seconds count.
  const said = standing + (target ? target.name : '');
  if (said !== lastWords) byId('said').textContent = (target && state.targets.length > 1 ? target.name + ': ' : '') + words;
  lastWords = said;
  byId('age').textContent = state.age_ms === undefined ? '–' : state.age_ms.toFixed(0) + ' ms';
  byId('rate').textContent = state.rate.toFixed(1) + ' /s';
  byId('score').textContent = target?.score === undefined ? '–' : target.score.toFixed(2);
  byId('number').textContent = state.frame < 0 ? '–' : state.frame;
  banner.title = words;
}

function showBanner(standing, words, more) {
  const banner = byId('banner');
  banner.dataset.standing = standing;
  byId('icon').textContent = icons[standing];
  byId('words').textContent = words;
  byId('more').textContent = more;
}

function chip(name, standing, words) {
  const item = document.createElement('li'), pick = document.createElement('button');
  item.dataset.standing = standing;
  pick.type = 'button';
  pick.className = 'chip';
  pick.textContent = name;
  pick.title = words;
  pick.onclick = () => { selected = name; fresh = null; showTargets(); redraw(); };
  const end = document.createElement('button');
  end.type = 'button';
  end.className = 'chip-stop';
  end.textContent = '✕';
  end.setAttribute('aria-label', 'Stop ' + name);
  end.onclick = () => stop(name);
  item.append(pick, end);
  return item;
}

function showTargets() {
  const list = byId('targets'), names = state ? state.targets.map(t => t.name) : [];
  const key = names.join('\n');
  if (list.dataset.names !== key) {
    list.dataset.names = key;
    list.replaceChildren(...state.targets.map(t => chip(t.name, t.standing, t.words)));
  }
  const active = chosen();
  state.targets.forEach((t, i) => {
    const item = list.children[i];
    item.dataset.standing = t.standing;
    item.firstChild.title = t.words;
    item.firstChild.setAttribute('aria-pressed', String(!fresh && active === t));
    item.firstChild.textContent = icons[t.standing] + ' ' + t.name;
  });
  byId('freshRow').hidden = fresh === null;
  byId('newTarget').hidden = fresh !== null || !names.length;
  byId('stop').disabled = !names.length;
}

function nameFresh() {
  const taken = new Set(state.targets.map(t => t.name));
  let number = state.targets.length + 1;
  while (taken.has('target' + number)) number++;
  fresh = 'target' + number;
  byId('freshName').value = fresh;
  showTargets();
  byId('freshName').select();
  byId('freshName').focus();
}

function take(next) {
  state = next;
  trails.take(state);
  timeline.runs(state.run);
  settings.follow(state.configured);
  byId('source').textContent = state.source;
  byId('engine').textContent = state.engine;
  byId('dropped').textContent = state.dropped;
  byId('gimbal').textContent = state.gimbal ? state.gimbal[0].toFixed(1) + '° / ' + state.gimbal[1].toFixed(1) + '°' : 'none';
  stepBanner();
  showTargets();
}

// ---- the loop: one picture at a time, always the newest, as fast as this screen takes them

function show(picture, number) {
  const canvas = byId('picture');
  if (canvas.width !== picture.width || canvas.height !== picture.height) {
    canvas.width = picture.width;
    canvas.height = picture.height;
    byId('stage').style.aspectRatio = picture.width + ' / ' + picture.height;
  }
  canvas.getContext('2d', { alpha: false }).drawImage(picture, 0, 0);
  picture.close();
  frame = { number, width: canvas.width, height: canvas.height };
  byId('empty').hidden = true;
}

const wait = ms => new Promise(done => setTimeout(done, ms));
const visible = () => new Promise(done => {
  const look = () => { if (!document.hidden && !paused) { document.removeEventListener('visibilitychange', look); done(); } };
  document.addEventListener('visibilitychange', look);
  visible.again = look;
  look();
});

async function follow() {
  for (;;) {
    await visible();
    try {
      const next = await nextFrame(frame ? frame.number : -1, AbortSignal.timeout(15000));
      if (next.state.run === undefined) { await wait(300); continue; }  // before the first frame
      if (next.picture) show(next.picture, next.frame);
      take(next.state);
      redraw();
      document.body.dataset.ready = 'yes';
    } catch (failed) {
      showBanner('gone', failed.status === 401 ? 'The token is missing or wrong' : 'The program does not answer',
                 failed.status ? failed.message : 'Trying again every second.');
      await wait(1000);
    }
  }
}

// ---- controls

for (const part of ['box', 'window', 'trail', 'labels']) {
  const box = byId('show-' + part), kept = localStorage.getItem('show-' + part);
  if (kept !== null) box.checked = kept === 'yes';
  shown[part] = box.checked;
  box.onchange = () => { shown[part] = box.checked; localStorage.setItem('show-' + part, box.checked ? 'yes' : 'no'); redraw(); };
}
byId('atOnce').checked = localStorage.getItem('atOnce') === 'yes';
byId('atOnce').onchange = e => localStorage.setItem('atOnce', e.target.checked ? 'yes' : 'no');
byId('take').onclick = () => picker.accept();
byId('cancel').onclick = () => picker.cancel();
byId('stop').onclick = () => { const target = chosen(); if (target) stop(target.name); };
byId('newTarget').onclick = nameFresh;
byId('freshName').oninput = e => { fresh = e.target.value.trim(); };
byId('freshName').onkeydown = e => { if (e.key === 'Enter') byId('stage').focus(); };
byId('freshCancel').onclick = () => { fresh = null; showTargets(); };
byId('pause').onclick = () => {
  paused = !paused;
  byId('pause').textContent = paused ? 'Go on' : 'Pause';
  byId('pause').setAttribute('aria-pressed', String(paused));
  if (!paused) visible.again();
};
byId('full').onclick = () => (document.fullscreenElement ? document.exitFullscreen() : byId('viewer').requestFullscreen());
byId('full').hidden = !document.fullscreenEnabled;

byId('stage').addEventListener('keydown', e => {
  if (e.target !== byId('stage') || e.ctrlKey || e.metaKey || e.altKey) return;
  if (e.key === 's' || e.key === 'Delete') byId('stop').click();
  else if (e.key === 'n' && !byId('newTarget').hidden) { nameFresh(); e.preventDefault(); }
  else if (e.key === 'p') byId('pause').click();
  else if (e.key === 'f') byId('full').click();
  else if (e.key === 'o') for (const part of ['box', 'window', 'trail', 'labels']) byId('show-' + part).click();
  else if (e.key >= '1' && e.key <= '9' && state?.targets[e.key - 1]) { selected = state.targets[e.key - 1].name; showTargets(); redraw(); }
});
new ResizeObserver(redraw).observe(byId('stage'));

follow();
