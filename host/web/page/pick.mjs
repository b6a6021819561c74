// Choosing a target on the picture: by drag, by tap, by keys. Coordinates belong to the frame that was on the screen.
import { adjusted, boxBetween, clamped, holds, isTap, toFrame } from './geometry.mjs';

const refreshMs = 400;     // a proposal follows what it is about: made again on the newest picture
const proposalLives = 15;  // seconds

/// @param stage  the element that holds the picture
/// @param hooks  frame(): { number, width, height } on the screen, or null; start(wish): begin to track; propose(wish):
///               a promise of { box }; atOnce(): whether a tap needs no second one; changed(): draw again; say(text)
export class Picker {
  constructor(stage, hooks) {
    this.stage = stage;
    this.hooks = hooks;
    this.choice = { band: null, proposal: null, cross: null };
    this.press = null;
    this.asked = 0;
    stage.addEventListener('pointerdown', e => this.down_(e));
    stage.addEventListener('pointermove', e => this.move_(e));
    stage.addEventListener('pointerup', e => this.up_(e));
    stage.addEventListener('pointercancel', () => this.letGo_());
    stage.addEventListener('keydown', e => this.key_(e));
    stage.addEventListener('blur', () => { this.choice.cross = null; hooks.changed(); });
  }

  cancel() {
    this.asked++;
    clearTimeout(this.timer);
    this.press = null;
    Object.assign(this.choice, { band: null, proposal: null });
    this.hooks.changed();
  }

  accept() {
    const proposal = this.choice.proposal;
    if (!proposal) return;
    this.cancel();
    this.hooks.start({ box: proposal.box, frame: proposal.frame });
  }

  /// Asks what lies around a point; shows it, or takes it where that was asked for.
  async propose(point, number) {
    const asked = ++this.asked;
    const wish = { point: [Math.round(point.x), Math.round(point.y)], frame: number };
    try {
      const { box } = await this.hooks.propose(wish);
      if (asked !== this.asked) return;
      if (this.hooks.atOnce()) return this.hooks.start({ box, frame: number });
      this.show_({ box, frame: number, until: performance.now() + 1000 * proposalLives });
    } catch (refused) {
      if (asked === this.asked) this.hooks.say(refused.message);
    }
  }

  show_(proposal) {
    this.choice.proposal = proposal;
    this.hooks.changed();
    clearTimeout(this.timer);
    this.timer = setTimeout(() => this.refresh_(), refreshMs);
  }

  async refresh_() {
    const old = this.choice.proposal, frame = this.hooks.frame();
    if (!old || old.byHand || !frame) return;
    if (performance.now() > old.until) return this.cancel();
    const asked = this.asked, [x, y, w, h] = old.box;
    try {
      const { box, found } = await this.hooks.propose({ point: [Math.round(x + w / 2), Math.round(y + h / 2)], frame: frame.number });
      if (asked !== this.asked) return;
      this.show_({ box: found ? box : old.box, frame: frame.number, until: old.until });
    } catch {
      if (asked === this.asked) this.timer = setTimeout(() => this.refresh_(), refreshMs);
    }
  }

  place_(event, frame) {
    return toFrame({ x: event.clientX, y: event.clientY }, frame, this.stage.getBoundingClientRect());
  }

  down_(event) {
    if (event.button > 0 || event.target.closest('button')) return;
    if (this.press) return this.letGo_();  // a second finger: the person zooms the page
    const frame = this.hooks.frame();
    if (!frame) return;
    const place = this.place_(event, frame);
    if (!place.inside) return;
    this.choice.cross = null;
    this.press = { id: event.pointerId, at: { x: event.clientX, y: event.clientY }, place, number: frame.number,
                   touch: event.pointerType !== 'mouse' };
    this.stage.setPointerCapture(event.pointerId);
  }

  move_(event) {
    const frame = this.hooks.frame();
    if (!this.press || event.pointerId !== this.press.id || !frame) return;
    if (!this.choice.band && isTap(this.press.at, { x: event.clientX, y: event.clientY }, this.press.touch)) return;
    this.choice.band = boxBetween(this.press.place, this.place_(event, frame), frame);
    this.hooks.changed();
  }

  up_(event) {
    const press = this.press, frame = this.hooks.frame(), dragged = !!this.choice.band;
    if (!press || event.pointerId !== press.id || !frame) return;
    this.press = null;
    this.choice.band = null;
    if (dragged) {
      const box = boxBetween(press.place, this.place_(event, frame), frame);
      this.cancel();
      if (box[2] < 4 || box[3] < 4) return this.hooks.say('That box is too small to follow.');
      return this.hooks.start({ box, frame: frame.number });
    }
    const proposal = this.choice.proposal;
    if (proposal && holds(proposal.box, press.place)) return this.accept();
    this.cancel();
    this.propose(press.place, press.number);
  }

  letGo_() {
    this.press = null;
    this.choice.band = null;
    this.hooks.changed();
  }

  key_(event) {
    if (event.target !== this.stage || event.ctrlKey || event.metaKey || event.altKey) return;
    const frame = this.hooks.frame();
    if (!frame) return;
    const step = event.shiftKey ? 1 : Math.max(1, Math.round(frame.width / 80));
    const moves = { ArrowLeft: { x: -step }, ArrowRight: { x: step }, ArrowUp: { y: -step }, ArrowDown: { y: step } };
    const sizes = { '+': { wider: 4, higher: 4 }, '=': { wider: 4, higher: 4 }, '-': { wider: -4, higher: -4 } };
    const change = moves[event.key] || (this.choice.proposal && sizes[event.key]);
    if (change) this.keyChange_(change, frame);
    else if (event.key === 'Enter') this.keyTake_(frame);
    else if (event.key === 'Escape') { this.choice.cross = null; this.cancel(); }
    else return;
    event.preventDefault();
  }

  keyChange_(change, frame) {
    const proposal = this.choice.proposal;
    if (proposal) {
      this.asked++;  // from here on the person holds it
      clearTimeout(this.timer);
      this.choice.proposal = { box: adjusted(proposal.box, change, frame), byHand: true };
    } else {
      const cross = this.choice.cross || { x: frame.width / 2, y: frame.height / 2 };
      this.choice.cross = clamped({ x: cross.x + (change.x || 0), y: cross.y + (change.y || 0) }, frame);
    }
    this.hooks.changed();
  }

  keyTake_(frame) {
    if (this.choice.proposal) {
      if (this.choice.proposal.byHand) this.choice.proposal.frame = frame.number;
      this.choice.cross = null;
      return this.accept();
    }
    if (!this.choice.cross) this.choice.cross = { x: frame.width / 2, y: frame.height / 2 };
    this.hooks.changed();
    this.propose(this.choice.cross, frame.number);
  }
}
