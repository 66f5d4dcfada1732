// A plot over time: lines or stacked areas of one unit, drawn by the plotting library.

const PLOT_HEIGHT = 200;
const AXIS_HEIGHT = 18;

// The page has legends of its own; the library's would need style attributes, which the page's
// policy forbids.
Dygraph.PLUGINS = Dygraph.PLUGINS.filter(plugin => plugin !== Dygraph.Plugins.Legend);

class Chart {
  // `spec.series` have a column `mean`, and where cells hold more than one reading `min` and `max`.
  constructor(spec, grid, timeline) {
    this.spec = spec;
    this.grid = grid;
    this.timeline = timeline;
    this.visible = spec.series.map(() => true);
    this.panel = makePanel(spec);
    this.makeLegend();
    this.plot = element('div', 'plot time');
    this.graphBox = element('div', 'graph');
    this.blank = element('p', 'empty', 'No reading in this part of the run.');
    this.blank.hidden = true;
    this.plot.append(this.graphBox);
    this.panel.append(this.plot, this.blank);
    addNote(this.panel, spec.note);
    timeline.add(this);
  }

  makeLegend() {
    const legend = element('div', 'legend');
    this.when = element('span', 'key fixed', 'mean in view');
    legend.append(this.when);
    this.keys = this.spec.series.map((series, index) => {
      const key = element('button', 'key');
      key.type = 'button';
      key.setAttribute('aria-pressed', 'true');
      key.title = series.detail || series.name;
      const swatch = element('i');
      const value = element('b');
      key.append(swatch, element('span', '', series.name), value);
      key.addEventListener('click', () => this.toggle(index));
      legend.append(key);
      return {key, swatch, value};
    });
    this.panel.append(legend);
  }

  toggle(index) {
    this.visible[index] = !this.visible[index];
    this.keys[index].key.setAttribute('aria-pressed', String(this.visible[index]));
    this.timeline.invalidate();
  }

  // Bins of whole cells, about one per pixel, or one per three while the window moves. They are aligned to the grid, so that a bin holds the
  // same cells wherever the window stands.
  bins(window) {
    const [first, end] = cellsIn(window, this.grid);
    const bins = plotWidth(this) / (this.timeline.moving ? 3 : 1);
    const size = Math.max(1, Math.ceil((end - first) / bins));
    const starts = [];
    for (let cell = first - first % size; cell < end; cell += size) starts.push(cell);
    return {size, starts};
  }

  reduce(window) {
    const {size, starts} = this.bins(window);
    const last = this.grid.count;
    const series = this.spec.series.map(({mean, min, max}, index) => {
      const banded = !this.spec.stacked && this.visible[index] && (size > 1 || max !== undefined);
      const over = (column, how) => Float64Array.from(starts, s => how(column, s, Math.min(s + size, last)));
      return {
        mean: over(mean, meanOf),
        low: banded ? over(min || mean, minOf) : null,
        high: banded ? over(max || mean, maxOf) : null,
      };
    });
    const peak = this.spec.stacked && this.spec.peak
      ? Float64Array.from(starts, s => maxOf(this.spec.peak, s, Math.min(s + size, last))) : null;
    const times = starts.map(s => this.grid.start + (s + Math.min(size, last - s) / 2) * this.grid.step);
    return {times, series, peak};
  }

  // Stacks grow from the last column of the library upwards; here the first series is the lowest.
  order(index) {
    return this.spec.stacked ? this.spec.series.length - 1 - index : index;
  }

  rows({times, series}) {
    return times.map((time, row) => {
      const line = [time];
      for (let i = 0; i < series.length; i++) {
        const value = series[this.order(i)].mean[row];
        line.push(value === value ? value : null);
      }
      return line;
    });
  }

  // A layer without height costs time and shows nothing.
  isDrawn(index) {
    return this.visible[index] && (!this.spec.stacked ||
      this.reduced.series[index].mean.some(value => value > 0));
  }

  // The highest value to be seen; 0 when there is none.
  top({times, series, peak}) {
    let top = 0;
    for (let row = 0; row < times.length; row++) {
      let sum = 0;
      series.forEach(({mean, high}, index) => {
        if (!this.visible[index]) return;
        if (mean[row] === mean[row]) sum += mean[row];
        if (!this.spec.stacked) {
          top = Math.max(top, sum, high && high[row] === high[row] ? high[row] : 0);
          sum = 0;
        }
      });
      top = Math.max(top, sum, peak && peak[row] === peak[row] ? peak[row] : 0);
    }
    return top;
  }

  draw(window) {
    this.reduced = this.reduce(window);
    this.drawnWindow = window;
    const empty = !this.reduced.series.some(({mean}) => mean.some(value => value === value));
    this.blank.hidden = !empty;
    const top = this.top(this.reduced);
    // The library takes a value at the very top of the range for none.
    this.valueTop = this.spec.top && top <= this.spec.top * 1.0001 ? this.spec.top * 1.005
      : top * 1.06 || 1;
    const options = {
      file: this.rows(this.reduced),
      dateWindow: [...window],
      valueRange: [0, this.valueTop],
      visibility: this.spec.series.map((_, i) => this.isDrawn(this.order(i))),
      colors: this.spec.series.map((_, i) => color(`c${this.spec.series[this.order(i)].color}`)),
      axisLineColor: color('line'),
      gridLineColor: color('grid'),
    };
    this.paintKeys();
    if (this.graph) {
      this.graph.resize();
      this.graph.updateOptions(options);
    } else {
      this.create(options);
    }
  }

  create({file, ...options}) {
    this.graph = new Dygraph(this.graphBox, file, {
      ...options,
      labels: ['time', ...this.spec.series.map((_, i) => `series ${this.order(i)}`)],
      stackedGraph: Boolean(this.spec.stacked),
      fillGraph: Boolean(this.spec.stacked),
      fillAlpha: 0.8,
      stackedGraphNaNFill: 'none',
      strokeWidth: this.spec.stacked ? 0.6 : 1.6,
      drawGapEdgePoints: true,
      legend: 'never',
      highlightCircleSize: 0,
      interactionModel: {},
      xAxisHeight: AXIS_HEIGHT,
      rightGap: GUTTER_RIGHT,
      axisLabelFontSize: 11,
      underlayCallback: (context, area, graph) => this.drawBands(context, area, graph),
      plotter: [Dygraph.Plotters.fillPlotter, Dygraph.Plotters.linePlotter, e => this.drawPeak(e)],
      axes: {
        x: {ticker: (from, to, pixels) => this.timeTicks(from, to, pixels), drawGrid: true},
        y: {ticker: () => valueTicks(this.valueTop, this.spec.unit, 5.5),
          axisLabelWidth: GUTTER_LEFT - 6},
      },
    });
  }

  // A label at the left end would run into the 0 of the value axis.
  timeTicks(from, to, pixels) {
    return timeTicks(from, to, pixels / 100).map(({v, label}) =>
      ({v, label: (v - from) / (to - from) * pixels < 20 ? '' : label}));
  }

  // Behind the mean of what is drawn lies a pale band from the least to the greatest reading.
  drawBands(context, area, graph) {
    const {times, series} = this.reduced;
    context.save();
    context.beginPath();
    context.rect(area.x, area.y, area.w, area.h);
    context.clip();
    context.globalAlpha = 0.28;
    series.forEach(({low, high}, index) => {
      if (!low) return;
      context.fillStyle = color(`c${this.spec.series[index].color}`);
      const half = times.length > 1 ? (times[1] - times[0]) / 2 : this.grid.step / 2;
      times.forEach((time, row) => {
        if (!(high[row] > low[row])) return;
        const [left, top] = graph.toDomCoords(time - half, high[row]);
        const [right, bottom] = graph.toDomCoords(time + half, low[row]);
        context.fillRect(left, top, Math.max(1, right - left), Math.max(1, bottom - top));
      });
    });
    context.restore();
  }

  // Above a stack of means a thin line shows the greatest sum.
  drawPeak(event) {
    const {times, peak} = this.reduced;
    if (!peak || event.seriesIndex !== 0) return;
    const context = event.drawingContext;
    context.save();
    context.strokeStyle = color('c11');
    context.lineWidth = 1;
    context.beginPath();
    let down = false;
    times.forEach((time, row) => {
      const [x, y] = event.dygraph.toDomCoords(time, peak[row]);
      if (peak[row] !== peak[row]) down = false;
      else if (down) context.lineTo(x, y);
      else context.moveTo(x, y);
      down = peak[row] === peak[row];
    });
    context.stroke();
    context.restore();
  }

  paintKeys() {
    this.keys.forEach(({swatch}, index) => {
      swatch.style.background = color(`c${this.spec.series[index].color}`);
    });
  }

  showCursor(time) {
    const [first, end] = time === null ? cellsIn(this.timeline.window, this.grid)
      : this.cellAt(time);
    this.when.textContent = time === null ? 'mean in view' : `at ${timeText(time, this.timeline.step)}`;
    this.spec.series.forEach(({mean}, index) => {
      this.keys[index].value.textContent = showValue(meanOf(mean, first, end), this.spec.unit);
    });
  }

  cellAt(time) {
    const cell = Math.min(this.grid.count - 1, Math.max(0, Math.floor((time - this.grid.start) / this.grid.step)));
    return [cell, cell + 1];
  }
}
