'use strict';
// What every page does with its charts; the page's own script comes behind it.
const data = JSON.parse(document.getElementById('data').textContent);
const byId = id => document.getElementById(id);
const text = (tag, value) => { const e = document.createElement(tag); e.textContent = value; return e; };
const charts = {};
const colours = { blue: '#2f86cc', red: '#dc4a43', green: '#2f9e5e', purple: '#9a6ad0', grey: '#808b98' };  // on light and dark

// The page's own colours, for what the charts write and rule; they change with the browser's preference.
function themeCharts() {
  const style = getComputedStyle(document.documentElement);
  Chart.defaults.color = style.getPropertyValue('--soft').trim();
  Chart.defaults.borderColor = style.getPropertyValue('--line').trim();
}
// @param redraw  draws all charts of the page anew
function followTheme(redraw) {
  themeCharts();
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => { themeCharts(); redraw(); });
}

function draw(id, config) {
  if (charts[id]) charts[id].destroy();
  config.options = Object.assign({ animation: false, responsive: true, maintainAspectRatio: false, parsing: false }, config.options);
  charts[id] = new Chart(byId(id), config);
  byId(id).setAttribute('role', 'img');
  byId(id).setAttribute('aria-label', 'Chart: ' + (config.label || config.data.datasets.map(d => d.label).join('; ')));
}

const axisWidth = 62;  // pixels of every y axis, so that charts above one another have their data above one another

// The axes of a chart. axes: { x, y: titles, range: of y, domain: of x }
function scales(axes) {
  const exact = { afterFit: s => { s.paddingLeft = 0; s.paddingRight = 0; } };
  return { x: Object.assign({ type: 'linear', title: { display: true, text: axes.x }, ticks: { maxRotation: 0, autoSkipPadding: 20, precision: axes.whole ? 0 : undefined, includeBounds: !axes.whole } }, exact, axes.domain),
           y: Object.assign({ title: { display: true, text: axes.y }, afterFit: s => { s.width = axisWidth; } }, axes.range) };
}

// axes: as above, and onClick: given the clicked x; series: [{ label, colour, points, radius, dash, width }]
function line(id, axes, series) {
  const datasets = series.map(s => ({ label: s.label, data: s.points, borderColor: s.colour, backgroundColor: s.colour,
                                      borderWidth: s.width || 1.3, pointRadius: s.radius || 0, borderDash: s.dash || [], spanGaps: false }));
  draw(id, { type: 'line', data: { datasets },
    options: { scales: scales(axes), layout: { padding: { right: 24 } }, interaction: { mode: 'index', intersect: false },
               plugins: { legend: { display: series.length > 1 || !!axes.legend, labels: { usePointStyle: true, pointStyle: 'line' } }, tooltip: { mode: 'index', intersect: false } },
               onClick: axes.onClick ? (e, _, chart) => axes.onClick(chart.scales.x.getValueForPixel(e.x)) : null } });
}

// series: [{ label, colour, steps, values, dash }]; shares between 0 and 1
function curve(id, x, y, series, legend) {
  line(id, { x, y, range: { min: 0, max: 1 }, legend, domain: { min: 0, max: Math.max(...series.flatMap(s => s.steps), 0) } },
       series.map(s => ({ label: s.label, colour: s.colour, dash: s.dash, width: 2, points: s.steps.map((step, i) => ({ x: step, y: s.values[i] })) })));
}
