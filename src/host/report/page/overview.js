// The whole run as a strip: what is shown below stands out, a drag chooses another part.

class Overview {
  // `mean` is a column of percentages, or absent when no CPU use was measured.
  constructor(plot, mean, grid, timeline) {
    this.plot = plot;
    this.mean = mean;
    this.grid = grid;
    this.timeline = timeline;
    this.range = timeline.full;
    this.canvas = element('canvas');
    plot.append(this.canvas);
    timeline.add(this);
  }

  draw(window) {
    const [width, height] = [this.plot.clientWidth, this.plot.clientHeight];
    const context = fitCanvas(this.canvas, width, height);
    const base = height - 14;
    context.font = '10.5px system-ui, "DejaVu Sans", sans-serif';
    context.fillStyle = color('panel');
    context.fillRect(GUTTER_LEFT, 0, plotWidth(this), base);
    if (this.mean) this.drawLoad(context, base);
    this.shade(context, window, base);
    context.textAlign = 'right';
    context.textBaseline = 'middle';
    context.fillStyle = color('quiet');
    context.fillText(this.mean ? 'CPU busy' : 'run', GUTTER_LEFT - 6, base / 2);
    drawTimeAxis(context, this, this.range, base - 2);
  }

  drawLoad(context, base) {
    context.fillStyle = color('c0');
    const columns = Math.round(plotWidth(this));
    for (let x = 0; x < columns; x++) {
      const cell = share => (this.range[0] + share / columns * (this.range[1] - this.range[0]) - this.grid.start) / this.grid.step;
      const first = Math.max(0, Math.min(this.grid.count - 1, Math.floor(cell(x))));
      const value = meanOf(this.mean, first, Math.max(first + 1, Math.min(this.grid.count, Math.floor(cell(x + 1)))));
      if (value !== value) continue;
      const high = Math.max(0.5, Math.min(1, value / 100) * (base - 2));
      context.fillRect(GUTTER_LEFT + x, base - high, 1, high);
    }
  }

  shade(context, [from, to], base) {
    const [left, right] = [xOfTime(this, this.range, from), xOfTime(this, this.range, to)];
    context.fillStyle = color('ground');
    context.globalAlpha = 0.7;
    context.fillRect(GUTTER_LEFT, 0, left - GUTTER_LEFT, base);
    context.fillRect(right, 0, GUTTER_LEFT + plotWidth(this) - right, base);
    context.globalAlpha = 1;
    context.strokeStyle = color(this.timeline.zoomed ? 'accent' : 'line');
    context.strokeRect(left + 0.5, 0.5, Math.max(1, right - left - 1), base - 1);
  }

  showCursor() {}
}
