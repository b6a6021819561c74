// The configuration as a form, made from the schema that the plug-in publishes. What is changed is taken at once.
import { ask, order } from './api.mjs';

const byId = id => document.getElementById(id);
const make = (tag, given = {}, ...inside) => {
  const element = Object.assign(document.createElement(tag), given);
  element.append(...inside);
  return element;
};
const same = (a, b) => JSON.stringify(a) === JSON.stringify(b);
const words = value => (value === true ? 'on' : value === false ? 'off' : Array.isArray(value) ? value.join(', ') : String(value));

/// The keys of a schema: [{ group, name, path, type, options }], in its order. Pure.
export function keysOf(schema) {
  const keys = [];
  for (const [group, entry] of Object.entries(schema.properties || {})) {
    if (!entry.properties) keys.push({ group: '', name: group, path: group, type: entry.type, options: entry.enum });
    else for (const [name, key] of Object.entries(entry.properties)) {
      keys.push({ group, name, path: group + '.' + name, type: key.type, options: key.enum });
    }
  }
  return keys;
}

/// A value by the key's path; undefined where there is none. Pure.
export function valueOf(values, key) {
  return key.group ? (values[key.group] || {})[key.name] : values[key.name];
}

/// What a person wrote as a value of the key's type. @throws Error with what is wrong. Pure.
export function read(text, type) {
  const written = text.trim();
  if (type === 'integer' || type === 'number') {
    const value = Number(written);
    if (written === '' || !Number.isFinite(value)) throw new Error('Write a number.');
    if (type === 'integer' && !Number.isInteger(value)) throw new Error('Write a whole number.');
    return value;
  }
  if (type === 'array') {
    const values = written === '' ? [] : written.split(/[,\s]+/).map(Number);
    if (values.some(value => !Number.isFinite(value))) throw new Error('Write numbers with commas between.');
    return values;
  }
  return written;
}

export class Settings {
  constructor() {
    this.config = null;
    this.revision = -1;
    this.fields = new Map();
    byId('settings').addEventListener('toggle', () => this.load_());
    byId('preset').onchange = e => this.send_({ preset: e.target.value }, 'Preset “' + e.target.value + '” is in force.');
    byId('upload').onclick = () => byId('file').click();
    byId('file').onchange = e => this.upload_(e.target.files[0]);
    byId('onlyChanged').onchange = () => this.mark_();
    byId('find').oninput = () => this.mark_();
  }

  /// Somebody else changed the configuration too.
  follow(revision) {
    if (revision === this.revision) return;
    this.revision = revision;
    if (this.config) this.load_();
  }

  async load_() {
    if (!byId('settings').open) return;
    try {
      this.config = await ask('/api/config');
      if (!this.fields.size) this.build_();
      this.fill_();
    } catch (refused) { this.say_(refused.message, true); }
  }

  say_(text, bad = false) {
    byId('settingsSaid').textContent = text;
    byId('settingsSaid').classList.toggle('bad', bad);
  }

  build_() {
    byId('preset').replaceChildren(...Object.keys(this.config.presets).map(name => make('option', { value: name, textContent: name })));
    const groups = new Map();
    for (const key of keysOf(this.config.schema)) {
      if (valueOf(this.config.values, key) === undefined) continue;  // another name of a key that is shown
      if (!groups.has(key.group)) groups.set(key.group, []);
      groups.get(key.group).push(this.field_(key));
    }
    byId('form').replaceChildren(...[...groups].map(([group, fields]) =>
      make('fieldset', { id: 'group-' + group }, make('legend', { textContent: group || 'general' }), ...fields)));
  }

  field_(key) {
    const about = this.config.keys[key.path] || {}, id = 'key-' + key.path.replace('.', '-');
    const input = key.options ? make('select', { id }, ...key.options.map(o => make('option', { value: o, textContent: o })))
      : make('input', { id, type: key.type === 'boolean' ? 'checkbox' : 'text' });
    if (key.type === 'integer' || key.type === 'number') input.inputMode = 'decimal';
    input.autocomplete = 'off';
    const hint = make('p', { id: id + '-hint', className: 'hint', textContent: [about.effect, about.range].filter(Boolean).join(' ') });
    const fault = make('p', { id: id + '-fault', className: 'fault', hidden: true });
    const back = make('button', { type: 'button', className: 'small', hidden: true });
    const changed = make('span', { className: 'changed', hidden: true });
    input.setAttribute('aria-describedby', hint.id + ' ' + fault.id);
    const row = make('div', { className: 'key' }, make('label', { htmlFor: id, textContent: key.name + (about.unit ? ', ' + about.unit : '') }), input, changed, back, fault, hint);
    const field = { key, input, row, fault, back, changed };
    input.onchange = () => this.change_(field, key.type === 'boolean' ? input.checked : input.value);
    back.onclick = () => this.change_(field, valueOf(this.base_(), key), true);
    this.fields.set(key.path, field);
    return row;
  }

  base_() { return this.config.presets[this.config.preset]; }

  fill_() {
    byId('preset').value = this.config.preset;
    for (const { key, input, fault } of this.fields.values()) {
      if (document.activeElement === input && !fault.hidden) continue;  // somebody is at it
      const value = valueOf(this.config.values, key);
      if (key.type === 'boolean') input.checked = value;
      else input.value = Array.isArray(value) ? value.join(', ') : value;
      this.fault_(this.fields.get(key.path), '');
    }
    this.mark_();
  }

  mark_() {
    if (!this.config) return;
    const wanted = byId('find').value.trim().toLowerCase(), only = byId('onlyChanged').checked;
    let count = 0;
    for (const { key, row, back, changed } of this.fields.values()) {
      const value = valueOf(this.config.values, key), usual = valueOf(this.base_(), key), differs = !same(value, usual);
      count += differs;
      row.classList.toggle('differs', differs);
      changed.hidden = back.hidden = !differs;
      changed.textContent = 'changed';
      back.textContent = 'Back to ' + words(usual);
      back.setAttribute('aria-label', key.path + ': back to ' + words(usual));
      row.hidden = (only && !differs) || (wanted && !(key.path + ' ' + row.textContent).toLowerCase().includes(wanted));
    }
    for (const group of byId('form').children) group.hidden = ![...group.querySelectorAll('.key')].some(row => !row.hidden);
    byId('differences').textContent = count === 0 ? 'as the preset' : count === 1 ? '1 value differs from the preset' : count + ' values differ from the preset';
  }

  fault_(field, text) {
    field.fault.textContent = text;
    field.fault.hidden = !text;
    field.input.setAttribute('aria-invalid', text ? 'true' : 'false');
  }

  change_(field, given, typed = false) {
    const { key } = field;
    let value;
    try {
      value = typed || key.type === 'boolean' || key.options ? given : read(given, key.type);
    } catch (wrong) { return this.fault_(field, wrong.message); }
    this.fault_(field, '');
    return this.send_({ config: key.group ? { [key.group]: { [key.name]: value } } : { [key.name]: value } }, key.path + ' is ' + words(value) + ' now.');
  }

  async send_(what, done) {
    try {
      await order('/api/config', what);
      this.say_(done);
      await this.load_();
    } catch (refused) {
      this.say_(refused.message, true);
      for (const fault of refused.faults || []) {
        const field = this.fields.get(fault.key);
        if (field) this.fault_(field, fault.text);
      }
      if (what.preset) byId('preset').value = this.config.preset;
    }
  }

  async upload_(file) {
    if (!file) return;
    byId('file').value = '';
    try {
      if (file.size > 60000) throw new Error('That file is too large to be a configuration.');
      await this.send_({ config: JSON.parse(await file.text()), replace: true }, '“' + file.name + '” is in force.');
    } catch (wrong) {
      this.say_(wrong instanceof SyntaxError ? '“' + file.name + '” is not JSON.' : wrong.message, true);
    }
  }
}
