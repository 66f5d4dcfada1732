// Small helpers around the document. Names come from the profiled machine and are text, never markup.

function element(tag, className, text) {
  const made = document.createElement(tag);
  if (className) made.className = className;
  if (text !== undefined) made.textContent = text;
  return made;
}

function color(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}

// A canvas as large as its holder, sharp on dense screens. Returns its context in CSS pixels.
function fitCanvas(canvas, width, height) {
  const density = window.devicePixelRatio || 1;
  if (canvas.width !== Math.round(width * density) || canvas.height !== Math.round(height * density)) {
    canvas.width = Math.round(width * density);
    canvas.height = Math.round(height * density);
    canvas.style.width = `${width}px`;
    canvas.style.height = `${height}px`;
  }
  const context = canvas.getContext('2d');
  context.setTransform(density, 0, 0, density, 0, 0);
  context.clearRect(0, 0, width, height);
  return context;
}

// The one box of hover text; an empty text hides it.
const tip = {
  box: null,
  show(text, x, y) {
    if (!this.box) document.body.append(this.box = element('div', 'tip'));
    this.box.style.display = text ? 'block' : 'none';
    if (!text) return;
    this.box.textContent = text;
    const {offsetWidth: width, offsetHeight: height} = this.box;
    this.box.style.left = `${Math.max(4, Math.min(x + 14, innerWidth - width - 8))}px`;
    this.box.style.top = `${y + 18 + height > innerHeight ? y - height - 8 : y + 18}px`;
  },
  hide() {
    if (this.box) this.box.style.display = 'none';
  },
};

// A section with its heading. Returns the section; `bar` is the line of the heading.
function makePanel(spec) {
  const panel = element('section', 'panel');
  panel.id = spec.id;
  const bar = element('div', 'title');
  const heading = element('h2', '', spec.title);
  if (spec.subtitle) heading.append(element('small', '', spec.subtitle));
  bar.append(heading);
  panel.append(bar);
  panel.bar = bar;
  return panel;
}

function addNote(panel, text) {
  if (text) panel.append(element('p', 'note', text));
}
