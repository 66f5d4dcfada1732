// How numbers, times and names are written.

const DASH = '–';

// Digits such that three to four of them say something.
function digits(value) {
  const size = Math.abs(value);
  if (size === 0) return '0';
  if (size >= 100) return value.toFixed(0);
  if (size >= 10) return value.toFixed(1);
  if (size >= 1) return value.toFixed(2);
  if (size >= 0.01) return value.toFixed(3);
  return value.toPrecision(2);
}

function grouped(value) {
  return Math.round(value).toString().replace(/\B(?=(\d{3})+$)/g, '\u202f');
}

const BINARY = ['B', 'KiB', 'MiB', 'GiB', 'TiB'];
const DECIMAL = ['', 'k', 'M', 'G', 'T'];

// The power that fits `size`: [divisor, name].
function scaleOf(size, base, names) {
  let power = 0;
  while (size >= base ** (power + 1) && power < names.length - 1) power++;
  return [base ** power, names[power]];
}

function scaled(value, base, names, unit) {
  const [divisor, name] = scaleOf(Math.abs(value), base, names);
  const text = divisor === 1 && Number.isInteger(value) ? String(value) : digits(value / divisor);
  return `${text} ${name}${unit}`.trim();
}

// Seconds since the start of the run; `step` is the finest difference that matters.
function timeText(seconds, step) {
  const places = step >= 1 ? 0 : Math.min(6, Math.ceil(-Math.log10(step) - 1e-9));
  const sign = seconds < 0 ? '−' : '';
  const rest = Number(Math.abs(seconds).toFixed(places));
  if (rest < 60) return `${sign}${rest.toFixed(places)} s`;
  const pad = (value, width) => value.toString().padStart(width, '0');
  const whole = Math.floor(rest);
  const tail = places > 0 ? (rest - whole).toFixed(places).slice(1) : '';
  const [hours, minutes] = [Math.floor(whole / 3600), Math.floor(whole / 60) % 60];
  const clock = `${pad(minutes, hours > 0 ? 2 : 1)}:${pad(whole % 60, 2)}${tail}`;
  return sign + (hours > 0 ? `${hours}:${clock}` : clock);
}

function percentText(value) {
  if (value > 0 && value < 0.05) return '<0.1 %';
  return `${value >= 99.95 || value === 0 ? value.toFixed(0) : value.toFixed(1)} %`;
}

// One entry per unit: how a value is written, and how an axis is divided.
const UNITS = {
  percent: {show: percentText, base: 1000, names: [''], suffix: ' %'},
  bytes: {show: value => scaled(value, 1024, BINARY, ''), base: 1024, names: BINARY, suffix: ''},
  bytesPerSecond: {show: value => scaled(value, 1024, BINARY, '/s'), base: 1024, names: BINARY,
    suffix: '/s'},
  perSecond: {show: value => scaled(value, 1000, DECIMAL, '/s'), base: 1000, names: DECIMAL,
    suffix: '/s'},
  count: {show: grouped, base: 1000, names: DECIMAL, suffix: ''},
  seconds: {show: value => `${value.toFixed(value >= 100 ? 1 : 2)} s`, base: 1000, names: [''],
    suffix: ' s'},
  time: {show: value => timeText(value, 0.001), base: 1000, names: [''], suffix: ''},
  plain: {show: value => String(value), base: 1000, names: [''], suffix: ''},
};

function unitOf(name) {
  return UNITS[name] || UNITS.plain;
}

function showValue(value, unit) {
  return value === null || value === undefined || Number.isNaN(value) ? DASH : unitOf(unit).show(value);
}

// A round step: 1, 2 or 5 times a power of ten.
function roundStep(rough) {
  const power = 10 ** Math.floor(Math.log10(rough));
  const factor = [1, 2, 5, 10].find(candidate => candidate * power >= rough * 0.999);
  return factor * power;
}

// Ticks of a value axis from 0 to `top`.
function valueTicks(top, unit, wanted) {
  const {base, names, suffix} = unitOf(unit);
  const [divisor, name] = scaleOf(top, base, names);
  const step = roundStep(top / divisor / wanted);
  const places = Math.max(0, -Math.floor(Math.log10(step) + 1e-9));
  const ticks = [];
  for (let i = 0; i * step * divisor <= top * 1.0001; i++) {
    const label = i === 0 && unit !== 'percent' ? '0' : `${(i * step).toFixed(places)} ${name}${suffix}`;
    ticks.push({v: i * step * divisor, label: label.replace(/\s+/g, '\u00a0')});
  }
  return ticks;
}

const TIME_STEPS = [60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, 86400];

// Ticks of the time axis: seconds since the start.
function timeTicks(from, to, wanted) {
  const rough = (to - from) / Math.max(1, wanted);
  let step = rough < 60 ? [15, 30, 60].find(s => rough > 10 && s >= rough) || roundStep(rough)
    : TIME_STEPS.find(s => s >= rough) || Math.ceil(rough / 86400) * 86400;
  const ticks = [];
  for (let i = Math.ceil(from / step - 1e-9); i * step <= to + step * 1e-9; i++) {
    ticks.push({v: i * step, label: timeText(i * step, step).replace(' ', '\u00a0')});
  }
  return ticks;
}
