// Charts of buckets, each drawn as the span between its least and its greatest value.

/* global uPlot */
import { measure, moment, style } from "./format.js";

const leastLux = 0.1; // a logarithmic scale has no 0
const bucketColumns = { time: 0, least: 1, greatest: 2, samples: 3 };

/** Times of all series, and for each series its greatest and least values; a pause of the sensor is a gap. */
export function align(series, bucketWidth, interval) {
  const times = [...new Set(series.flatMap((buckets) => buckets.map((bucket) => bucket[bucketColumns.time])))].sort((one, other) => one - other);
  const steps = times.slice(1).map((time, place) => time - times[place]).sort((one, other) => one - other);
  const usual = steps[Math.floor(steps.length / 2)] ?? 0;
  const pause = 3 * Math.max(bucketWidth, usual, interval);
  const withGaps = [];
  times.forEach((time, place) => {
    if (place > 0 && time - times[place - 1] > pause) withGaps.push((time + times[place - 1]) / 2);
    withGaps.push(time);
  });
  const byTime = series.map((buckets) => new Map(buckets.map((bucket) => [bucket[bucketColumns.time], bucket])));
  const column = (buckets, name) => withGaps.map((time) => buckets.get(time)?.[bucketColumns[name]] ?? null);
  return { times: withGaps, series: byTime.map((buckets) => ({ greatest: column(buckets, "greatest"), least: column(buckets, "least") })) };
}

function textOf(least, greatest, unit) {
  return least === greatest ? `${measure(least)} ${unit}` : `${measure(least)} to ${measure(greatest)} ${unit}`;
}

export class Chart {
  /**
   * place: an element; readout: an element for what is under the pointer; unit: of the values; names: of the series;
   * colours: names of style variables, one for each series; isLogarithmic; zoom(from, until); reset().
   */
  constructor(options) {
    this.options = options;
    this.observer = new ResizeObserver(() => this.fit());
    this.observer.observe(options.place);
    this.scheme = matchMedia("(prefers-color-scheme: dark)");
    this.redraw = () => this.draw();
    this.scheme.addEventListener("change", this.redraw);
  }

  remove() {
    this.observer.disconnect();
    this.scheme.removeEventListener("change", this.redraw);
    this.plot?.destroy();
  }

  /** span: { from, until } of the axis. */
  show(data, span) {
    Object.assign(this, { data, span });
    this.draw();
  }

  clear() {
    this.plot?.destroy();
    this.plot = undefined;
    this.data = undefined;
    this.options.readout.textContent = "";
  }

  draw() {
    if (!this.data) return;
    this.options.readout.textContent = this.options.hint;
    this.plot?.destroy();
    const { isLogarithmic, place } = this.options;
    const floor = (values) => (isLogarithmic ? values.map((value) => (value === null ? null : Math.max(value, leastLux))) : values);
    const columns = this.data.series.flatMap((one) => [floor(one.greatest), floor(one.least)]);
    place.replaceChildren();
    this.plot = new uPlot(this.uplotOptions(), [this.data.times, ...columns], place);
  }

  fit() {
    const width = this.options.place.clientWidth;
    if (this.plot && width > 0 && Math.abs(width - this.plot.width) > 1) this.plot.setSize({ width, height: this.plot.height });
  }

  uplotOptions() {
    const { place, colours, isLogarithmic } = this.options;
    const font = `11px ${getComputedStyle(document.body).fontFamily}`;
    const axis = { stroke: style("--quiet"), font, grid: { stroke: style("--line"), width: 1 }, ticks: { show: false } };
    const band = style("--band");
    return {
      width: Math.max(place.clientWidth, 200),
      height: isLogarithmic ? 230 : 190,
      padding: [10, 12, 0, 0],
      tzDate: (seconds) => uPlot.tzDate(new Date(seconds * 1000), "Etc/UTC"),
      legend: { show: false },
      cursor: {
        y: false,
        sync: { key: "participant", setSeries: false },
        drag: { x: true, y: false, setScale: false },
        points: { show: false },
        bind: { dblclick: () => () => this.options.reset() },
      },
      scales: { x: { time: true, range: () => [this.span.from, this.span.until] }, y: isLogarithmic ? { distr: 3, log: 10, range: wholePowers } : {} },
      axes: [
        { ...axis, size: 34, values: timeTexts },
        isLogarithmic ? { ...axis, size: 52, filter: powersOnly, grid: { ...axis.grid, filter: powersOnly }, values: (_, splits) => splits.map(luxText) } : { ...axis, size: 52, values: (_, splits) => splits.map(measure) },
      ],
      series: [{}, ...colours.flatMap((colour) => {
        const line = { stroke: style(colour), width: 1.25, spanGaps: false, points: { size: 4, fill: style(colour), width: 0 } };
        return [line, line];
      })],
      bands: colours.map((colour, place) => ({
        series: [2 * place + 1, 2 * place + 2],
        fill: `color-mix(in srgb, ${style(colour)} ${band}, transparent)`,
      })),
      hooks: {
        setCursor: [(plot) => this.read(plot.cursor.idx)],
        setSelect: [(plot) => {
          if (plot.select.width < 4) return;
          const from = plot.posToVal(plot.select.left, "x");
          const until = plot.posToVal(plot.select.left + plot.select.width, "x");
          plot.setSelect({ left: 0, top: 0, width: 0, height: 0 }, false);
          this.options.zoom(from, until);
        }],
      },
    };
  }

  read(place) {
    const { readout, names, unit, hint } = this.options;
    const texts = place === null || place === undefined ? [] : this.data.series.flatMap((one, series) =>
      one.least[place] === null ? [] : [`${names[series]} ${textOf(one.least[place], one.greatest[place], unit)}`.trim()]);
    readout.textContent = texts.length === 0 ? hint : `${moment(this.data.times[place])}: ${texts.join(", ")}`;
  }
}

const isPower = (value) => Math.abs(Math.log10(value) - Math.round(Math.log10(value))) < 1e-6;
const powersOnly = (_, splits) => splits.map((value) => (isPower(value) ? value : null));

function wholePowers(_, least, greatest) {
  const start = Math.floor(Math.log10(Math.max(least ?? 1, leastLux)) + 1e-9);
  const end = Math.ceil(Math.log10(Math.max(greatest ?? 1, leastLux)) - 1e-9);
  return [10 ** start, 10 ** Math.max(end, start + 1)];
}

function luxText(value) {
  if (value === null) return null;
  const power = Number(value.toPrecision(3));
  if (power <= leastLux) return `≤ ${leastLux}`;
  return power >= 1000 ? `${power / 1000}k` : String(power);
}

const clock = new Intl.DateTimeFormat("en-GB", { timeZone: "UTC", hour: "2-digit", minute: "2-digit" });
const clockWithSeconds = new Intl.DateTimeFormat("en-GB", { timeZone: "UTC", hour: "2-digit", minute: "2-digit", second: "2-digit" });
const calendar = new Intl.DateTimeFormat("en-GB", { timeZone: "UTC", day: "numeric", month: "short" });

/** Clock times, and below the first of each day its date. */
function timeTexts(_, splits, axis, space, step) {
  let lastDate = "";
  return splits.map((seconds) => {
    const time = new Date(seconds * 1000);
    const date = calendar.format(time);
    const isNew = date !== lastDate;
    lastDate = date;
    if (step >= 86400) return date;
    const text = (step < 60 ? clockWithSeconds : clock).format(time);
    return isNew ? `${text}\n${date}` : text;
  });
}
