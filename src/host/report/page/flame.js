// The flame graph: the root on top, below each frame what it called, as wide as its share of samples.

const FRAME_HEIGHT = 18;
const FLAME_FONT = '11.5px ui-monospace, "DejaVu Sans Mono", monospace';

// Hue by kind, shade by name, so that a function has one colour all over the graph.
function frameColor(name, kind, dark) {
  let hash = 0;
  for (let i = 0; i < name.length; i++) hash = (hash * 31 + name.charCodeAt(i)) >>> 0;
  const hues = {kernel: 205 + hash % 22, user: 18 + hash % 34, unknown: 0};
  const saturation = kind === 'unknown' ? 0 : 58 + hash % 20;
  return `hsl(${hues[kind]} ${saturation}% ${dark ? 56 + hash % 9 : 68 + hash % 10}%)`;
}

class FlameGraph {
  // `spec` has `names` and `modules`, and a column entry per node: name, module, parent, self, codeKind
  // (0 user, 1 kernel, 2 unknown). Parents stand before their children; node 0 is the root.
  constructor(spec) {
    this.spec = spec;
    this.focus = 0;
    this.pattern = '';
    this.layOut();
    this.panel = makePanel(spec);
    this.makeTools();
    this.crumb = element('div', 'crumb');
    this.plot = element('div', 'plot flame');
    this.canvas = element('canvas');
    this.plot.append(this.canvas);
    this.panel.append(this.crumb, this.plot);
    addNote(this.panel, spec.note);
    this.plot.addEventListener('pointermove', event => this.hover(event));
    this.plot.addEventListener('pointerleave', () => tip.hide());
    this.plot.addEventListener('click', event => {
      const node = this.nodeAt(event);
      if (node !== undefined) this.zoomTo(node);
    });
    new ResizeObserver(() => this.draw()).observe(this.plot);
  }

  makeTools() {
    this.search = element('input');
    this.search.type = 'search';
    this.search.placeholder = 'function or module';
    this.search.setAttribute('aria-label', 'Search the flame graph');
    this.search.addEventListener('input', () => {
      this.pattern = this.search.value.trim().toLowerCase();
      this.draw();
    });
    this.found = element('span', 'count');
    this.back = element('button', '', 'whole graph');
    this.back.type = 'button';
    this.back.addEventListener('click', () => this.zoomTo(0));
    this.panel.bar.append(element('span', 'spacer'), this.found, this.search, this.back);
  }

  // Totals, depths and places: each node covers [left, left + total) of all samples.
  layOut() {
    const {parent, self} = this.spec;
    const count = parent.length;
    this.total = Float64Array.from(self);
    this.depth = new Uint16Array(count);
    for (let node = count - 1; node > 0; node--) this.total[parent[node]] += this.total[node];
    this.left = new Float64Array(count);
    this.children = Array.from({length: count}, () => []);
    const next = new Float64Array(count);
    for (let node = 1; node < count; node++) {
      const above = parent[node];
      this.depth[node] = this.depth[above] + 1;
      this.left[node] = this.left[above] + next[above];
      next[above] += this.total[node];
      this.children[above].push(node);
    }
  }

  nameOf(node) {
    return this.spec.names[this.spec.name[node]];
  }

  moduleOf(node) {
    return this.spec.modules[this.spec.module[node]];
  }

  share(count) {
    return `${(100 * count / this.total[0]).toFixed(2)} %`;
  }

  matches(node) {
    return this.pattern !== '' && (this.nameOf(node).toLowerCase().includes(this.pattern) ||
      this.moduleOf(node).toLowerCase().includes(this.pattern));
  }

  zoomTo(node) {
    this.focus = node;
    this.draw();
  }

  // Walks what is wide enough to be seen: visit(node, left and width in pixels). Frames above the
  // focus span the whole width.
  walk(visit) {
    const width = this.plot.clientWidth;
    const scale = width / this.total[this.focus];
    const above = [];
    for (let node = this.focus; node !== 0;) above.push(node = this.spec.parent[node]);
    for (const node of above.reverse()) visit(node, 0, width);
    const open = [this.focus];
    while (open.length > 0) {
      const node = open.pop();
      const wide = this.total[node] * scale;
      if (wide < 0.4) continue;
      visit(node, (this.left[node] - this.left[this.focus]) * scale, wide);
      for (const child of this.children[node]) open.push(child);
    }
  }

  draw() {
    if (this.plot.clientWidth === 0) return;
    let deepest = 0;
    const seen = [];
    this.walk((node, left, wide) => {
      deepest = Math.max(deepest, this.depth[node]);
      seen.push([node, left, wide]);
    });
    const height = (deepest + 1) * FRAME_HEIGHT;
    this.plot.style.height = `${height}px`;
    const context = fitCanvas(this.canvas, this.plot.clientWidth, height);
    context.font = FLAME_FONT;
    context.textBaseline = 'middle';
    this.letter = context.measureText('m').width;
    const dark = document.documentElement.dataset.theme === 'dark';
    this.rows = Array.from({length: deepest + 1}, () => []);
    for (const [node, left, wide] of seen) {
      this.rows[this.depth[node]].push([node, left, wide]);
      this.drawFrame(context, node, left, wide, dark);
    }
    this.tell();
  }

  drawFrame(context, node, left, wide, dark) {
    const top = this.depth[node] * FRAME_HEIGHT;
    const kind = ['user', 'kernel', 'unknown'][this.spec.codeKind[node]];
    context.globalAlpha = this.depth[node] < this.depth[this.focus] ? 0.55 : 1;
    context.fillStyle = this.matches(node) ? color('hit') : frameColor(this.nameOf(node), kind, dark);
    context.fillRect(left, top, Math.max(0.5, wide - 0.6), FRAME_HEIGHT - 1);
    const room = Math.floor((wide - 8) / this.letter);
    if (room >= 3) {
      const name = this.nameOf(node);
      context.fillStyle = this.matches(node) ? '#ffffff' : '#15181d';
      context.fillText(name.length > room ? `${name.slice(0, room - 1)}…` : name, left + 4,
        top + FRAME_HEIGHT / 2);
    }
    context.globalAlpha = 1;
  }

  // Samples below a frame that matches, each counted once.
  matched() {
    let sum = 0;
    const open = [0];
    while (open.length > 0) {
      const node = open.pop();
      if (this.matches(node)) sum += this.total[node];
      else open.push(...this.children[node]);
    }
    return sum;
  }

  tell() {
    const name = this.focus === 0 ? '' : `${this.nameOf(this.focus)}: `;
    this.crumb.textContent = `${name}${grouped(this.total[this.focus])} samples, ${this.share(this.total[this.focus])} of all`;
    this.back.disabled = this.focus === 0;
    this.found.textContent = this.pattern === '' ? '' : `${this.share(this.matched())} matched`;
  }

  nodeAt(event) {
    const box = this.plot.getBoundingClientRect();
    const row = this.rows && this.rows[Math.floor((event.clientY - box.top) / FRAME_HEIGHT)];
    const x = event.clientX - box.left;
    const found = row && row.find(([, left, wide]) => x >= left && x < left + Math.max(1, wide));
    return found && found[0];
  }

  hover(event) {
    const node = this.nodeAt(event);
    if (node === undefined) return tip.hide();
    const module = this.moduleOf(node);
    tip.show(`${this.nameOf(node)}${module ? `\n${module}` : ''}\n` +
      `${grouped(this.total[node])} samples, ${this.share(this.total[node])}; ` +
      `itself ${grouped(this.spec.self[node])}, ${this.share(this.spec.self[node])}`,
      event.clientX, event.clientY);
  }
}
