'use strict';
// What every page does with its charts; the page's own script comes behind it.
const data = JSON.parse(document.getElementById('data').textContent);
const byId = id => document.getElementById(id);
const text = (tag, value) => { const e = document.createElement(tag); e.textContent = value; return e; };
const charts = {};

function draw(id, config) {
  if (charts[id]) charts[id].destroy();
  config.options = Object.assign({ animation: false, responsive: true, maintainAspectRatio: false, parsing: false }, config.options);
  charts[id] = new Chart(byId(id), config);
  byId(id).setAttribute('role', 'img');
  byId(id).setAttribute('aria-label', 'Chart: ' + config.data.datasets.map(d => d.label).join('; '));
}

// axes: { x, y: titles, range: of y, onClick: given the clicked x }; series: [{ label, colour, points, radius, dash }]
function line(id, axes, series) {
  const datasets = series.map(s => ({ label: s.label, data: s.points, borderColor: s.colour, backgroundColor: s.colour,
                                      borderWidth: s.width || 1.3, pointRadius: s.radius || 0, borderDash: s.dash || [], spanGaps: false }));
  draw(id, { type: 'line', data: { datasets },
    options: { scales: { x: Object.assign({ type: 'linear', title: { display: true, text: axes.x } }, axes.domain),
                         y: Object.assign({ title: { display: true, text: axes.y } }, axes.range) },
               plugins: { legend: { display: series.length > 1 || !!axes.legend, labels: { usePointStyle: true, pointStyle: 'line' } }, tooltip: { mode: 'index', intersect: false } },
               onClick: axes.onClick ? (e, _, chart) => axes.onClick(chart.scales.x.getValueForPixel(e.x)) : null } });
}

// series: [{ label, colour, steps, values, dash }]; shares between 0 and 1
function curve(id, x, y, series, legend) {
  line(id, { x, y, range: { min: 0, max: 1 }, legend, domain: { min: 0, max: Math.max(...series.flatMap(s => s.steps), 0) } },
       series.map(s => ({ label: s.label, colour: s.colour, dash: s.dash, width: 2, points: s.steps.map((step, i) => ({ x: step, y: s.values[i] })) })));
}
