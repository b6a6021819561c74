// What is drawn over the picture, in screen pixels, so that it is sharp at every size.
import { fit } from './geometry.mjs';

/// The look of a standing: colour on the picture, whether its line is broken, the word.
export const looks = {
  idle: { colour: '#c4cad2', dash: [], word: 'Idle' },
  waiting: { colour: '#e2c08d', dash: [2, 4], word: 'Pointing' },
  tracked: { colour: '#46d486', dash: [], word: 'Tracked' },
  predicted: { colour: '#ffb347', dash: [9, 6], word: 'Predicted' },
  searching: { colour: '#ff8a4c', dash: [3, 5], word: 'Searching' },
  lost: { colour: '#ff6b64', dash: [1, 4], word: 'Lost' },
  no_signal: { colour: '#aeb7c2', dash: [9, 6], word: 'No signal' },
};

const trailLength = 75;

/// Where targets were seen, by name; kept by the page, since the program tells one frame at a time.
export class Trails {
  constructor() { this.run = null; this.all = new Map(); }
  take(state) {
    if (state.run !== this.run) { this.run = state.run; this.all.clear(); }
    const names = new Set(state.targets.map(t => t.name));
    for (const name of this.all.keys()) if (!names.has(name)) this.all.delete(name);
    for (const target of state.targets) {
      if (!this.all.has(target.name)) this.all.set(target.name, []);
      const trail = this.all.get(target.name);
      if (target.state === 'reseeded' || target.standing === 'lost') trail.length = 0;
      if (target.standing !== 'tracked' || !target.box) continue;
      const [x, y, w, h] = target.box, last = trail[trail.length - 1];
      if (last && last.frame === target.frame) continue;
      trail.push({ frame: target.frame, x: x + w / 2, y: y + h / 2 });
      if (trail.length > trailLength) trail.shift();
    }
  }
  of(name) { return this.all.get(name) || []; }
}

class Pen {
  constructor(canvas, frame) {
    const rect = canvas.getBoundingClientRect(), ratio = window.devicePixelRatio || 1;
    const width = Math.round(rect.width * ratio), height = Math.round(rect.height * ratio);
    if (canvas.width !== width || canvas.height !== height) { canvas.width = width; canvas.height = height; }
    this.to = canvas.getContext('2d');
    this.to.setTransform(1, 0, 0, 1, 0, 0);
    this.to.clearRect(0, 0, width, height);
    this.to.setTransform(ratio, 0, 0, ratio, 0, 0);
    this.width = rect.width;
    this.height = rect.height;
    this.view = fit(frame, { left: 0, top: 0, width: rect.width, height: rect.height });
  }
  x(value) { return this.view.left + value * this.view.scale; }
  y(value) { return this.view.top + value * this.view.scale; }
  // Twice: dark and wide first, so that it stands out on bright pictures too.
  stroke(path, colour, width, dash = []) {
    const to = this.to;
    to.lineCap = 'butt';
    to.setLineDash(dash);
    to.strokeStyle = width > 1 ? 'rgba(0,0,0,.6)' : 'rgba(0,0,0,.35)';
    to.lineWidth = width + (width > 1 ? 2 : 1);
    to.stroke(path);
    to.strokeStyle = colour;
    to.lineWidth = width;
    to.stroke(path);
    to.setLineDash([]);
  }
  box([x, y, w, h], colour, width, dash) {
    const path = new Path2D();
    path.rect(this.x(x), this.y(y), w * this.view.scale, h * this.view.scale);
    this.stroke(path, colour, width, dash);
  }
  label(text, x, y, colour) {
    const to = this.to;
    to.font = '600 12px system-ui, sans-serif';
    const width = to.measureText(text).width + 10, height = 18;
    const left = Math.min(Math.max(x, 2), Math.max(this.width - width - 2, 2));
    const top = y - height - 3 < 2 ? y + 3 : y - height - 3;
    to.fillStyle = 'rgba(10,14,18,.82)';
    to.beginPath();
    to.roundRect(left, top, width, height, 4);
    to.fill();
    to.fillStyle = colour;
    to.textBaseline = 'middle';
    to.fillText(text, left + 5, top + height / 2 + .5);
  }
}

function drawTrail(pen, trail, colour) {
  if (trail.length < 2) return;
  const path = new Path2D();
  trail.forEach((p, i) => (i ? path.lineTo(pen.x(p.x), pen.y(p.y)) : path.moveTo(pen.x(p.x), pen.y(p.y))));
  pen.stroke(path, colour, 1.5);
}

function drawTarget(pen, target, trails, shown, selected) {
  const look = looks[target.standing] || looks.idle;
  if (shown.window && target.window) pen.box(target.window, 'rgba(255,255,255,.85)', 1, [3, 4]);
  if (shown.trail) drawTrail(pen, trails.of(target.name), look.colour);
  if (!target.box) return;
  if (shown.box) pen.box(target.box, look.colour, selected ? 2.5 : 1.5, look.dash);
  if (!shown.labels) return;
  const score = target.score === undefined || target.standing !== 'tracked' ? '' : '  ' + target.score.toFixed(2);
  const word = target.standing === 'tracked' ? '' : '  ' + look.word.toLowerCase();
  pen.label(target.name + word + score, pen.x(target.box[0]), pen.y(target.box[1]), look.colour);
}

function drawChoice(pen, choice) {
  if (choice.band) pen.box(choice.band, '#ffffff', 2);
  if (choice.proposal) {
    pen.box(choice.proposal.box, '#ffffff', 2, [6, 4]);
    pen.label('track this?', pen.x(choice.proposal.box[0]), pen.y(choice.proposal.box[1]), '#ffffff');
  }
  if (choice.cross) {
    const x = pen.x(choice.cross.x), y = pen.y(choice.cross.y), path = new Path2D();
    path.moveTo(x - 14, y); path.lineTo(x + 14, y); path.moveTo(x, y - 14); path.lineTo(x, y + 14);
    pen.stroke(path, '#ffffff', 1.5);
  }
}

/// @param shown   { box, window, trail, labels }: which parts are wanted
/// @param choice  { band, proposal, cross }: what the person is choosing; each may be missing
export function drawOverlay(canvas, frame, state, trails, shown, selected, choice) {
  const pen = new Pen(canvas, frame);
  for (const target of state.targets) drawTarget(pen, target, trails, shown, target.name === selected);
  drawChoice(pen, choice);
}
