// Builds the page from its data and says on the body when it stands, or why it does not.

const MAKERS = {
  chart: (spec, context) => new Chart(spec, context.grid, context.timeline).panel,
  heatmap: (spec, context) => new HeatMap(spec, context.grid, context.timeline).panel,
  flame: (spec, context) => {
    const graph = new FlameGraph(spec);
    context.flames.push(graph);
    return graph.panel;
  },
  table: spec => new Table(spec).panel,
  empty: spec => {
    const panel = makePanel(spec);
    panel.append(element('p', 'empty', spec.text));
    return panel;
  },
};

function fillHead(model) {
  document.title = `${model.name} – tiv report`;
  document.getElementById('name').textContent = model.name;
  const state = document.getElementById('state');
  state.textContent = model.state;
  state.className = `badge ${model.state === 'complete' ? 'good' : 'bad'}`;
  const missing = document.getElementById('missing');
  missing.hidden = model.missing.length === 0;
  missing.replaceChildren(...model.missing.map(text => element('li', '', text)));
  document.getElementById('facts').replaceChildren(...model.facts.map(([name, value]) => {
    const fact = element('div');
    fact.append(element('dt', '', name), element('dd', '', value));
    return fact;
  }));
}

function fillLinks(model) {
  document.getElementById('links').replaceChildren(...model.sections.filter(spec => spec.link !== '').map(spec => {
    const link = element('a', '', spec.link || spec.title);
    link.href = `#${spec.id}`;
    return link;
  }));
}

function makeTimeline(model) {
  const {grid} = model;
  const timeline = new Timeline(Math.max(grid.step, grid.count * grid.step), grid.step * 4);
  timeline.step = Math.min(0.1, Math.max(0.001, grid.step / 4));
  const range = document.getElementById('range');
  timeline.onChange = () => {
    const [from, to] = timeline.window;
    const step = Math.min(1, (to - from) / 200);
    const cursor = timeline.cursor === null ? '' : `  ·  cursor ${timeText(timeline.cursor, timeline.step)}`;
    range.textContent = `${timeText(from, step)} – ${timeText(to, step)} of ${timeText(timeline.full[1], 0.1)}${cursor}`;
    document.getElementById('reset').disabled = !timeline.zoomed;
  };
  document.getElementById('reset').addEventListener('click', () => timeline.showAll());
  attachKeys(timeline);
  return timeline;
}

function chooseTheme(name) {
  document.documentElement.dataset.theme = name;
  document.getElementById('theme').textContent = name === 'dark' ? 'light' : 'dark';
}

function followTheme(repaint) {
  const system = matchMedia('(prefers-color-scheme: dark)');
  chooseTheme(system.matches ? 'dark' : 'light');
  system.addEventListener('change', () => {
    chooseTheme(system.matches ? 'dark' : 'light');
    repaint();
  });
  document.getElementById('theme').addEventListener('click', () => {
    chooseTheme(document.documentElement.dataset.theme === 'dark' ? 'light' : 'dark');
    repaint();
  });
}

function build(model) {
  fillHead(model);
  fillLinks(model);
  const timed = model.grid !== null;
  document.getElementById('bar').hidden = false;
  document.getElementById('overview').hidden = !timed;
  document.getElementById('reset').hidden = !timed;
  document.getElementById('hint').hidden = !timed;
  const context = {grid: model.grid, flames: [], timeline: timed ? makeTimeline(model) : null};
  followTheme(() => {
    if (timed) context.timeline.invalidate();
    for (const flame of context.flames) flame.draw();
  });
  if (timed) new Overview(document.getElementById('overview'), model.overview, model.grid, context.timeline);
  const sections = document.getElementById('sections');
  for (const spec of model.sections) sections.append(MAKERS[spec.kind](spec, context));
  if (timed) {
    context.timeline.onChange();
    context.timeline.paint();
  }
  for (const flame of context.flames) flame.draw();
}

function fail(error) {
  const text = error instanceof Error ? error.message : String(error);
  document.body.setAttribute('data-error', text);
  document.getElementById('state').textContent = 'this page cannot be shown';
  document.getElementById('state').className = 'badge bad';
  document.getElementById('name').textContent = text;
}

window.addEventListener('error', event => fail(event.error || event.message));
window.addEventListener('unhandledrejection', event => fail(event.reason));

loadData().then(build).then(() => document.body.setAttribute('data-ready', '')).catch(fail);
