// The last minutes as charts above one another: state, score, age, gimbal. Chart.js draws them.
import { ask } from './api.mjs';

const colours = { blue: '#2f86cc', red: '#dc4a43', green: '#2f9e5e', purple: '#9a6ad0', grey: '#808b98' };  // on light and dark
const strips = { idle: '#c4cad2', waiting: '#b59f7b', tracked: '#2f9e5e', predicted: '#f0a030', searching: '#e0672f', lost: '#dc4a43', no_signal: '#808b98' };
const axisWidth = 58;
const keepSeconds = 300;

const byId = id => document.getElementById(id);

/// Bars of what each target came to, one lane a target.
const lanes = { id: 'lanes', beforeDatasetsDraw(chart) {
  const { ctx, chartArea: area, scales: { x } } = chart, { names, rows, step } = chart.options.lanes;
  const height = area.height / Math.max(names.length, 1);
  ctx.save();
  ctx.beginPath();
  ctx.rect(area.left, area.top, area.width, area.height);
  ctx.clip();
  for (const row of rows) {
    const left = Math.floor(x.getPixelForValue(row.t)), right = Math.ceil(x.getPixelForValue(row.t + step));
    names.forEach((name, i) => {
      const target = row.targets[name];
      if (!target || target[0] === 'idle') return;
      ctx.fillStyle = strips[target[0]];
      ctx.fillRect(left, area.top + i * height + 2, right - left, height - 4);
    });
  }
  ctx.restore();
} };

export class Timeline {
  constructor() {
    this.rows = [];
    this.last = 0;
    this.run = null;
    this.charts = {};
    this.span = 60;
    byId('span').onchange = e => { this.span = +e.target.value; this.draw_(); };
    byId('timeline').addEventListener('toggle', () => this.poll_());
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => { this.forget_(); this.draw_(); });
    this.poll_();
  }

  /// Of another run behind the same address nothing is left.
  runs(run) {
    if (this.run !== null && run !== this.run) { this.rows = []; this.last = 0; }
    this.run = run;
  }

  async poll_() {
    clearTimeout(this.timer);
    if (!byId('timeline').open) return;
    if (!document.hidden) {
      try {
        const more = await ask('/api/timeline?after=' + this.last);
        this.now = more.now_s;
        this.step = more.step_s;
        this.rows.push(...more.rows);
        if (more.rows.length) this.last = more.rows[more.rows.length - 1].t;
        while (this.rows.length && this.now - this.rows[0].t > keepSeconds) this.rows.shift();
        this.draw_();
      } catch { /* the picture's loop says that the program does not answer */ }
    }
    this.timer = setTimeout(() => this.poll_(), 1000);
  }

  forget_() {
    for (const chart of Object.values(this.charts)) chart.destroy();
    this.charts = {};
  }

  draw_() {
    if (!this.rows.length) return;
    const style = getComputedStyle(document.documentElement);
    Chart.defaults.color = style.getPropertyValue('--soft').trim();
    Chart.defaults.borderColor = style.getPropertyValue('--line').trim();
    const shown = this.rows.filter(row => this.now - row.t <= this.span + 1).map(row => ({ ...row, t: row.t - this.now }));
    const names = [...new Set(shown.flatMap(row => Object.keys(row.targets)))].sort();
    byId('noTargets').hidden = names.length > 0;
    byId('strip').parentElement.hidden = byId('stripKey').hidden = !names.length;
    byId('scores').parentElement.hidden = !names.length;
    byId('strip').parentElement.style.height = 46 + 22 * Math.max(names.length, 1) + 'px';
    if (names.length) {
      this.strip_(names, shown);
      const palette = [colours.blue, colours.purple, colours.green, colours.red];
      this.line_('scores', 'score', { min: 0, max: 1 }, names.map((name, i) => ({
        label: name, colour: palette[i % palette.length], points: shown.map(row => ({ x: row.t, y: row.targets[name]?.[1] ?? null })) })));
    }
    this.line_('ages', 'age, ms', { min: 0, suggestedMax: 100 },
               [{ label: 'age of the picture', colour: colours.grey, points: shown.map(row => ({ x: row.t, y: row.age_ms ?? null })) }]);
    const gimbal = shown.some(row => row.pan_deg !== undefined);
    byId('angles').parentElement.hidden = !gimbal;
    if (gimbal) {
      this.line_('angles', 'degrees', {}, [
        { label: 'pan', colour: colours.blue, points: shown.map(row => ({ x: row.t, y: row.pan_deg ?? null })) },
        { label: 'tilt', colour: colours.red, points: shown.map(row => ({ x: row.t, y: row.tilt_deg ?? null })) }]);
    }
    this.tell_(names, shown);
  }

  scales_(title, range) {
    return { x: { type: 'linear', min: -this.span, max: 0, ticks: { maxRotation: 0, autoSkipPadding: 20, callback: v => (v ? -v + ' s' : 'now') } },
             y: { title: { display: true, text: title }, afterFit: s => { s.width = axisWidth; }, ...range } };
  }

  strip_(names, rows) {
    const options = { animation: false, responsive: true, maintainAspectRatio: false, events: [], lanes: { names, rows, step: this.step },
                      scales: this.scales_(names.length > 1 ? 'targets' : names[0], { min: 0, max: 1, ticks: { display: false }, grid: { display: false } }),
                      plugins: { legend: { display: false }, tooltip: { enabled: false } } };
    this.put_('strip', { type: 'scatter', plugins: [lanes], data: { datasets: [] }, options });
  }

  line_(id, title, range, series) {
    const datasets = series.map(s => ({ label: s.label, data: s.points, borderColor: s.colour, backgroundColor: s.colour, borderWidth: 1.8, pointRadius: 0, clip: 4, spanGaps: false }));
    const options = { animation: false, responsive: true, maintainAspectRatio: false, parsing: false, events: [], scales: this.scales_(title, range),
                      plugins: { legend: { display: series.length > 1, labels: { usePointStyle: true, pointStyle: 'line' } }, tooltip: { enabled: false } } };
    this.put_(id, { type: 'line', data: { datasets }, options });
  }

  put_(id, config) {
    const chart = this.charts[id];
    if (!chart) { this.charts[id] = new Chart(byId(id), config); return; }
    chart.data = config.data;
    chart.options = config.options;
    chart.update('none');
  }

  // What the charts say, for who cannot see them.
  tell_(names, rows) {
    for (const name of names) {
      const of = standing => rows.filter(row => row.targets[name]?.[0] === standing).length * this.step;
      const parts = Object.keys(strips).map(s => [s.replace('_', ' '), of(s)]).filter(([, s]) => s >= 1).map(([s, t]) => s + ' ' + Math.round(t) + ' s');
      byId('strip').setAttribute('aria-label', 'Chart of the state over time. ' + name + ': ' + parts.join(', '));
    }
  }
}
