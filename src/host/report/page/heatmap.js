// A row of colour per core over time.

const ROW_HEIGHTS = [4, 16];
const HEAT_HEIGHT = 400;

function parseColor(text) {
  const value = parseInt(text.slice(1), 16);
  return [value >> 16, (value >> 8) & 255, value & 255];
}

// A pixel as it lies in the memory of an image.
function pixelOf([red, green, blue]) {
  return new Uint32Array(Uint8Array.of(red, green, blue, 255).buffer)[0];
}

class HeatMap {
  // `spec.rows` have a name and `mean`, a column of percentages.
  constructor(spec, grid, timeline) {
    this.spec = spec;
    this.grid = grid;
    this.timeline = timeline;
    this.panel = makePanel(spec);
    const legend = element('div', 'legend');
    const scale = element('span', 'key fixed');
    scale.append(element('span', '', '0 %'), element('span', 'ramp'), element('span', '', '100 % busy'));
    this.reading = element('span', 'key fixed');
    legend.append(scale, this.reading);
    this.rowHeight = Math.max(ROW_HEIGHTS[0], Math.min(ROW_HEIGHTS[1],
      Math.floor(HEAT_HEIGHT / spec.rows.length)));
    this.plot = element('div', 'plot');
    this.plot.style.cursor = 'crosshair';
    this.plot.style.height = `${this.rowHeight * spec.rows.length + AXIS_HEIGHT + 2}px`;
    this.canvas = element('canvas');
    this.plot.append(this.canvas);
    this.panel.append(legend, this.plot);
    addNote(this.panel, spec.note);
    this.plot.addEventListener('pointermove', event => {
      this.row = Math.floor((event.clientY - this.plot.getBoundingClientRect().top) / this.rowHeight);
    }, {capture: true});
    this.plot.addEventListener('pointerleave', () => { this.row = undefined; }, {capture: true});
    timeline.add(this);
  }

  // 256 colours from idle to busy.
  ramp() {
    const stops = [0, 1, 2, 3].map(index => parseColor(color(`heat${index}`)));
    return Array.from({length: 256}, (_, index) => {
      const place = index / 255 * (stops.length - 1);
      const low = Math.min(stops.length - 2, Math.floor(place));
      return pixelOf(stops[low].map((part, i) =>
        Math.round(part + (stops[low + 1][i] - part) * (place - low))));
    });
  }

  draw(window) {
    const width = this.plot.clientWidth;
    const context = fitCanvas(this.canvas, width, this.rowHeight * this.spec.rows.length + AXIS_HEIGHT + 2);
    const columns = Math.max(1, Math.round(plotWidth(this)));
    const image = new ImageData(columns, this.spec.rows.length);
    const pixels = new Uint32Array(image.data.buffer);
    const [ramp, gap] = [this.ramp(), pixelOf(parseColor(color('gap')))];
    const cell = x => (window[0] + x / columns * (window[1] - window[0]) - this.grid.start) / this.grid.step;
    for (let x = 0; x < columns; x++) {
      const first = Math.max(0, Math.min(this.grid.count - 1, Math.floor(cell(x))));
      const end = Math.max(first + 1, Math.min(this.grid.count, Math.floor(cell(x + 1))));
      this.spec.rows.forEach(({mean}, row) => {
        const value = meanOf(mean, first, end);
        pixels[row * columns + x] = value === value
          ? ramp[Math.max(0, Math.min(255, Math.round(value * 2.55)))] : gap;
      });
    }
    this.paint(context, image, columns);
    this.drawLabels(context, window);
  }

  paint(context, image, columns) {
    const small = element('canvas');
    small.width = columns;
    small.height = this.spec.rows.length;
    small.getContext('2d').putImageData(image, 0, 0);
    context.imageSmoothingEnabled = false;
    context.drawImage(small, GUTTER_LEFT, 0, columns, this.rowHeight * this.spec.rows.length);
  }

  drawLabels(context, window) {
    context.font = '11px system-ui, "DejaVu Sans", sans-serif';
    context.fillStyle = color('quiet');
    context.textBaseline = 'middle';
    context.textAlign = 'right';
    const every = Math.ceil(11 / this.rowHeight);
    this.spec.rows.forEach(({name}, row) => {
      if (row % every === 0) context.fillText(name, GUTTER_LEFT - 6, (row + 0.5) * this.rowHeight);
    });
    drawTimeAxis(context, this, window, this.rowHeight * this.spec.rows.length);
  }

  showCursor(time) {
    const row = this.spec.rows[this.row];
    if (time === null || !row) {
      this.reading.textContent = '';
      return;
    }
    const cell = Math.max(0, Math.min(this.grid.count - 1, Math.floor((time - this.grid.start) / this.grid.step)));
    this.reading.textContent = `${row.name} at ${timeText(time, this.timeline.step)}: ${showValue(row.mean[cell], 'percent')}`;
  }
}

function drawTimeAxis(context, panel, window, top) {
  context.textAlign = 'center';
  context.textBaseline = 'top';
  context.fillStyle = color('quiet');
  context.strokeStyle = color('line');
  context.lineWidth = 1;
  for (const {v, label} of timeTicks(window[0], window[1], plotWidth(panel) / 100)) {
    const x = Math.round(xOfTime(panel, window, v)) + 0.5;
    context.beginPath();
    context.moveTo(x, top);
    context.lineTo(x, top + 4);
    context.stroke();
    context.fillText(label, x, top + 5);
  }
}
