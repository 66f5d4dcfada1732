// The part of the run that all time panels show, their shared cursor, and what the mouse does.

const GUTTER_LEFT = 72;
const GUTTER_RIGHT = 14;
const SETTLE_MS = 120;

class Timeline {
  // The run lasts from 0 to `end` seconds; nothing below `finest` seconds is worth a zoom.
  constructor(end, finest) {
    this.full = [0, end];
    this.finest = finest;
    this.window = [0, end];
    this.panels = [];
    this.cursor = null;
    this.painting = false;
    this.moving = 0;  // timer that runs while the window moves
    this.onChange = () => {};
    this.sight = new IntersectionObserver(entries => {
      for (const entry of entries) {
        entry.target.panel.inSight = entry.isIntersecting;
        if (entry.isIntersecting) this.schedule();
      }
    }, {rootMargin: '200px'});
    new ResizeObserver(() => this.invalidate()).observe(document.getElementById('sections'));
  }

  // A panel has `plot`, the element the mouse works in, draw(window), and showCursor(time or null).
  add(panel) {
    this.panels.push(panel);
    panel.dirty = true;
    panel.inSight = true;
    panel.plot.panel = panel;
    panel.cursorLine = element('div', 'cursor');
    panel.selection = element('div', 'selection');
    panel.plot.append(panel.selection, panel.cursorLine);
    this.sight.observe(panel.plot);
    attachMouse(this, panel);
  }

  get zoomed() {
    return this.window[0] > this.full[0] || this.window[1] < this.full[1];
  }

  show(from, to) {
    const span = Math.min(Math.max(to - from, this.finest), this.full[1] - this.full[0]);
    const middle = (from + to) / 2;
    let start = to - from < this.finest ? middle - span / 2 : from;
    start = Math.max(this.full[0], Math.min(start, this.full[1] - span));
    this.window = [start, start + span];
    this.keepMoving();
    this.invalidate();
  }

  // Plots are coarser while the window moves, and fine again when it stands.
  keepMoving() {
    clearTimeout(this.moving);
    this.moving = setTimeout(() => {
      this.moving = 0;
      this.invalidate();
    }, SETTLE_MS);
  }

  showAll() {
    this.show(...this.full);
  }

  // Keeps the time under `at` where it is.
  zoom(factor, at) {
    const [from, to] = this.window;
    const middle = at === undefined ? (from + to) / 2 : at;
    this.show(middle - (middle - from) * factor, middle + (to - middle) * factor);
  }

  pan(seconds) {
    this.show(this.window[0] + seconds, this.window[1] + seconds);
  }

  invalidate() {
    for (const panel of this.panels) panel.dirty = true;
    this.schedule();
    this.onChange();
  }

  // One frame paints what is dirty and in sight, however many events asked for it.
  schedule() {
    if (this.painting) return;
    this.painting = true;
    requestAnimationFrame(() => {
      this.painting = false;
      this.paint();
    });
  }

  paint() {
    for (const panel of this.panels) {
      if (!panel.dirty || !panel.inSight) continue;
      panel.dirty = false;
      panel.draw(this.window);
    }
    this.setCursor(this.cursor);
  }

  setCursor(time) {
    this.cursor = time;
    const [from, to] = this.window;
    for (const panel of this.panels) {
      const range = panel.range || this.window;
      const inside = time !== null && time >= range[0] && time <= range[1];
      panel.cursorLine.style.display = inside ? 'block' : 'none';
      if (inside) panel.cursorLine.style.left = `${xOfTime(panel, range, time)}px`;
      panel.showCursor(time !== null && time >= from && time <= to ? time : null);
    }
    this.onChange();
  }
}

function plotWidth(panel) {
  return Math.max(1, panel.plot.clientWidth - GUTTER_LEFT - GUTTER_RIGHT);
}

function xOfTime(panel, [from, to], time) {
  return GUTTER_LEFT + (time - from) / (to - from) * plotWidth(panel);
}

function timeOfX(panel, [from, to], x) {
  const share = (x - GUTTER_LEFT) / plotWidth(panel);
  return from + Math.max(0, Math.min(1, share)) * (to - from);
}

function paintSelection(panel, range, from, to) {
  const [left, right] = [xOfTime(panel, range, from), xOfTime(panel, range, to)];
  panel.selection.style.display = 'block';
  panel.selection.style.left = `${Math.min(left, right)}px`;
  panel.selection.style.width = `${Math.abs(right - left)}px`;
}

const CLICK_PIXELS = 4;

function attachMouse(timeline, panel) {
  const plot = panel.plot;
  let drag = null;
  const localX = event => event.clientX - plot.getBoundingClientRect().left;
  const rangeOf = () => panel.range || timeline.window;
  plot.addEventListener('pointerdown', event => {
    if (event.button !== 0) return;
    const range = [...rangeOf()];
    drag = {x: localX(event), range, window: [...timeline.window], at: timeOfX(panel, range, localX(event))};
    drag.pan = event.shiftKey || (panel.range !== undefined && timeline.zoomed &&
      drag.at > timeline.window[0] && drag.at < timeline.window[1]);
    plot.setPointerCapture(event.pointerId);
  });
  plot.addEventListener('pointermove', event => {
    const x = localX(event);
    if (drag && drag.pan) {
      const seconds = (x - drag.x) / plotWidth(panel) * (drag.range[1] - drag.range[0]);
      const way = panel.range ? 1 : -1;
      timeline.show(drag.window[0] + way * seconds, drag.window[1] + way * seconds);
    } else if (drag) {
      paintSelection(panel, drag.range, drag.at, timeOfX(panel, drag.range, x));
    }
    timeline.setCursor(timeOfX(panel, rangeOf(), x));
  });
  const end = event => {
    if (!drag) return;
    const {x, range, at, pan} = drag;
    drag = null;
    panel.selection.style.display = 'none';
    if (pan || event.type === 'pointercancel' || Math.abs(localX(event) - x) < CLICK_PIXELS) {
      timeline.invalidate();
      return;
    }
    const other = timeOfX(panel, range, localX(event));
    timeline.show(Math.min(at, other), Math.max(at, other));
  };
  plot.addEventListener('pointerup', end);
  plot.addEventListener('pointercancel', end);
  plot.addEventListener('pointerleave', () => { if (!drag) timeline.setCursor(null); });
  plot.addEventListener('dblclick', () => timeline.showAll());
  plot.addEventListener('wheel', event => turnWheel(timeline, panel, event, localX(event)), {passive: false});
}

// The plain wheel scrolls the page, as everywhere.
function turnWheel(timeline, panel, event, x) {
  if (event.ctrlKey || event.metaKey) {
    event.preventDefault();
    timeline.zoom(Math.exp(Math.max(-1, Math.min(1, event.deltaY / 240))),
      timeOfX(panel, panel.range || timeline.window, x));
  } else if (Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
    event.preventDefault();
    timeline.pan(event.deltaX / plotWidth(panel) * (timeline.window[1] - timeline.window[0]));
  }
}

function attachKeys(timeline) {
  document.addEventListener('keydown', event => {
    if (event.ctrlKey || event.metaKey || event.altKey || event.target instanceof HTMLInputElement) return;
    const span = timeline.window[1] - timeline.window[0];
    const actions = {ArrowLeft: () => timeline.pan(-span / 8), ArrowRight: () => timeline.pan(span / 8),
      '+': () => timeline.zoom(0.5), '-': () => timeline.zoom(2), 0: () => timeline.showAll()};
    if (!Object.hasOwn(actions, event.key)) return;
    event.preventDefault();
    actions[event.key]();
  });
}

// Cells [first, end) of the grid that a window touches, one more on either side.
function cellsIn([from, to], grid) {
  const first = Math.max(0, Math.floor((from - grid.start) / grid.step) - 1);
  return [first, Math.min(grid.count, Math.ceil((to - grid.start) / grid.step) + 1)];
}

// The mean of a column over cells [first, end); NaN when none was measured.
function meanOf(column, first, end) {
  let sum = 0, count = 0;
  for (let i = first; i < end; i++) {
    if (column[i] === column[i]) {
      sum += column[i];
      count++;
    }
  }
  return count === 0 ? NaN : sum / count;
}

function extremeOf(column, first, end, better, worst) {
  let found = worst;
  for (let i = first; i < end; i++) if (better(column[i], found)) found = column[i];
  return found === worst ? NaN : found;
}

const maxOf = (column, first, end) => extremeOf(column, first, end, (a, b) => a > b, -Infinity);
const minOf = (column, first, end) => extremeOf(column, first, end, (a, b) => a < b, Infinity);
