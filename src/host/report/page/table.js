// A table that sorts by a click on a heading and filters by a text.

const ROWS_AT_FIRST = 15;

class Table {
  // `spec.columns` have a name and a unit; `spec.rows` hold a value per column, null where nothing
  // was measured. `spec.sort` is the column that orders the rows at first, greatest first.
  constructor(spec) {
    this.spec = spec;
    this.sort = spec.sort || 0;
    this.descending = !this.isText(this.sort);
    this.limit = ROWS_AT_FIRST;
    this.panel = makePanel(spec);
    this.makeTools();
    this.table = element('table');
    this.head = element('thead');
    this.body = element('tbody');
    this.table.append(this.head, this.body);
    const scroll = element('div', 'scroll');
    scroll.append(this.table);
    this.more = element('button', '', 'show all');
    this.more.type = 'button';
    this.more.addEventListener('click', () => {
      this.limit = Infinity;
      this.fill();
    });
    this.panel.append(scroll, this.more);
    addNote(this.panel, spec.note);
    this.makeHead();
    this.fill();
  }

  isText(column) {
    return this.spec.columns[column].unit === 'text';
  }

  makeTools() {
    this.filter = element('input');
    this.filter.type = 'search';
    this.filter.placeholder = 'filter';
    this.filter.setAttribute('aria-label', `Filter ${this.spec.title}`);
    this.filter.addEventListener('input', () => this.fill());
    this.count = element('span', 'count');
    this.panel.bar.append(element('span', 'spacer'), this.count, this.filter);
  }

  makeHead() {
    const line = element('tr');
    this.headings = this.spec.columns.map((column, index) => {
      const heading = element('th', this.isText(index) ? 'text' : '');
      heading.scope = 'col';
      const button = element('button', '', column.name);
      button.type = 'button';
      if (column.hint) button.title = column.hint;
      button.addEventListener('click', () => this.sortBy(index));
      heading.append(button);
      line.append(heading);
      return heading;
    });
    this.head.append(line);
  }

  sortBy(index) {
    this.descending = this.sort === index ? !this.descending : !this.isText(index);
    this.sort = index;
    this.fill();
  }

  shown(value, column) {
    return this.isText(column) ? String(value === null ? DASH : value)
      : showValue(value, this.spec.columns[column].unit);
  }

  // Absent values stand last whichever way the rest is ordered.
  compare(a, b) {
    const [x, y] = [a[this.sort], b[this.sort]];
    if (x === null || y === null) return (x === null) - (y === null);
    const order = this.isText(this.sort) ? (x < y ? -1 : x > y ? 1 : 0) : x - y;
    return this.descending ? -order : order;
  }

  fill() {
    const wanted = this.filter.value.trim().toLowerCase();
    const rows = this.spec.rows.filter(row => wanted === '' ||
      row.some((value, column) => this.shown(value, column).toLowerCase().includes(wanted)));
    rows.sort((a, b) => this.compare(a, b));
    this.body.replaceChildren(...rows.slice(0, this.limit).map(row => this.line(row)));
    this.headings.forEach((heading, index) => {
      if (index === this.sort) heading.setAttribute('aria-sort', this.descending ? 'descending' : 'ascending');
      else heading.removeAttribute('aria-sort');
    });
    this.count.textContent = rows.length === this.spec.rows.length ? `${grouped(rows.length)} rows`
      : `${grouped(rows.length)} of ${grouped(this.spec.rows.length)} rows`;
    this.more.hidden = rows.length <= this.limit;
    this.more.textContent = `show all ${grouped(rows.length)}`;
  }

  line(row) {
    const line = element('tr');
    row.forEach((value, column) => {
      const cell = element('td', this.isText(column) ? 'text' : '', this.shown(value, column));
      if (value === null) cell.classList.add('absent');
      line.append(cell);
    });
    return line;
  }
}
