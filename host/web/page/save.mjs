// What a person takes along: a still, a clip of the last minute, a run for replay.
import { ask, fetchFile, order } from './api.mjs';

const byId = id => document.getElementById(id);

export class Saving {
  constructor() {
    byId('still').onclick = () => this.download_('/api/still?drawn=1', byId('still'), 'The picture is saved.');
    byId('clip').onclick = () => this.download_('/api/clip', byId('clip'), 'The clip is saved.');
    byId('keepRun').onclick = () => this.keep_();
    byId('saving').addEventListener('toggle', () => this.look_());
    this.look_();
  }

  say_(text, bad = false) {
    byId('savingSaid').textContent = text;
    byId('savingSaid').classList.toggle('bad', bad);
  }

  async download_(path, button, done) {
    button.disabled = true;
    this.say_('Being made …');
    try {
      const { blob, name } = await fetchFile(path);
      const link = Object.assign(document.createElement('a'), { href: URL.createObjectURL(blob), download: name });
      link.click();
      setTimeout(() => URL.revokeObjectURL(link.href), 60000);
      this.say_(done);
    } catch (refused) { this.say_('Not saved: ' + refused.message + '.', true); }
    button.disabled = false;
  }

  async keep_() {
    try { this.show_(await order('/api/run', { keep: this.state === 'ready' })); }
    catch (refused) { this.say_(refused.message, true); }
    this.look_();
  }

  async look_() {
    clearTimeout(this.timer);
    if (!byId('saving').open) return;
    try { if (!document.hidden) this.show_(await ask('/api/run')); } catch { /* said elsewhere */ }
    this.timer = setTimeout(() => this.look_(), 1000);
  }

  show_(run) {
    this.state = run.state;
    byId('keepRun').disabled = run.state === 'off';
    byId('keepRun').textContent = run.state === 'armed' || run.state === 'saving' ? 'End saving the run' : 'Save the next run';
    const where = run.folder ? ' in ' + run.folder : '';
    byId('runSaid').textContent = run.state === 'off' ? 'Start the program with --http-save FOLDER to save runs for replay.'
      : run.state === 'armed' ? 'The next target that you choose is saved.'
      : run.state === 'saving' ? 'Being saved: ' + run.frames + ' frames' + where
      : run.said ? 'Saved: ' + run.frames + ' frames' + where + '; ended as ' + run.said + '.' : 'A run is saved on the device, for csrt-track replay.';
  }
}
