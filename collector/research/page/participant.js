// One participant: facts, problems and signals.

import { Chart, align } from "./chart.js";
import { ago, byId, counted, duration, element, moment, nameOf, number, secondsOfDay } from "./format.js";
import { mark } from "./problems.js";
import { exportAddress, get } from "./server.js";

const mostBuckets = 4000;
const hint = matchMedia("(pointer: coarse)").matches ? "" : "Drag across to zoom, double-click to see it all again.";
const week = 7 * secondsOfDay;

export class ParticipantView {
  /** `erase`: called with the identifier. `fail`: called with an Error. */
  constructor(erase, fail) {
    this.erase = erase;
    this.fail = fail;
    this.identifier = undefined;
  }

  /** `day`: the day to look at; without one, the last week. */
  open(study, identifier, day = undefined) {
    const isOther = identifier !== this.identifier;
    this.identifier = identifier;
    this.update(study);
    if (!this.participant) return;
    if (day !== undefined) this.choose("day", { from: day * secondsOfDay, until: (day + 1) * secondsOfDay });
    else if (isOther || !this.view) this.choose("week", this.endingNow(week));
    else this.load();
  }

  close() {
    this.charts?.forEach((chart) => chart.remove());
    this.charts = undefined;
    this.identifier = undefined;
    this.view = undefined;
    byId("participant-title").textContent = "One participant";
    byId("participant").replaceChildren(element("p", { className: "empty", textContent: "Choose a participant above to see what came from them." }));
  }

  endingNow(length) {
    const until = Math.min(this.participant.lastContact, this.study.now) + 60;
    return { from: until - length, until };
  }

  /** Everything that there may be, wrong clocks aside. */
  whole() {
    return { from: this.participant.firstContact - 60 * secondsOfDay, until: this.study.now + secondsOfDay };
  }

  update(study) {
    this.study = study;
    this.participant = [...study.participants, ...study.pen].find((one) => one.identifier === this.identifier);
    this.charts?.forEach((chart) => chart.remove());
    byId("participant-title").textContent = nameOf(this.identifier);
    if (!this.participant) {
      this.charts = undefined;
      byId("participant").replaceChildren(element("p", { className: "empty", textContent: "Nothing has come from this participant, or it was deleted." }));
      return;
    }
    byId("participant").replaceChildren(this.problems(), this.facts(), this.range(), this.plots(), this.foot());
  }

  problems() {
    const own = this.study.problems.filter((problem) => problem.participant === this.identifier);
    return element("ul", { className: "own-problems", role: "list" }, own.map((problem) =>
      element("li", {}, [mark(problem.severity), element("span", { textContent: problem.sentence })])));
  }

  facts() {
    const { participant, study } = this;
    const skew = participant.clockSkew;
    const when = (time) => `${moment(time)} (${ago(time, study.now).replaceAll(" ", "\u00a0")})`;
    const facts = [
      ["Application", participant.application || "not said"],
      ["Device", participant.device || "not said"],
      ["First contact", moment(participant.firstContact)],
      ["Last contact", when(participant.lastContact)],
      ["Documents", number(participant.documents)],
      ["Samples that came again", number(participant.repeats)],
      ["Unreadable records", number(participant.unreadable)],
      ["Newest sample, on receipt", skew > 1 ? `${duration(skew)} ahead` : `${duration(Math.abs(skew))} old`],
    ];
    return element("dl", { className: "facts" }, facts.map(([name, value]) =>
      element("div", {}, [element("dt", { textContent: name }), element("dd", { textContent: value })])));
  }

  range() {
    const button = (text, action, label = undefined, name = undefined) => {
      const made = element("button", { type: "button", textContent: text, onclick: action });
      if (label) made.setAttribute("aria-label", label);
      if (name) made.dataset.preset = name;
      return made;
    };
    this.rangeText = element("span", { className: "text", "aria-live": "polite" });
    return element("div", { className: "range", role: "group", "aria-label": "Time shown" }, [
      button("Day", () => this.choose("day", this.endingNow(secondsOfDay)), "The last day", "day"),
      button("Week", () => this.choose("week", this.endingNow(week)), "The last week", "week"),
      button("All", () => this.choose("all", this.whole()), "Everything", "all"),
      button("‹", () => this.move(-0.5), "Earlier"),
      button("›", () => this.move(0.5), "Later"),
      button("+", () => this.scale(0.5), "Zoom in"),
      button("−", () => this.scale(2), "Zoom out"),
      this.rangeText,
    ]);
  }

  plots() {
    const chart = (title, keys, options) => {
      const place = element("div", { className: "plot", role: "img" });
      const readout = element("span", { className: "readout" });
      const heading = element("h3", { textContent: title });
      for (const [name, className] of keys)
        heading.append(element("span", { className: `key ${className}` }), name);
      const box = element("div", { className: "chart" }, [element("div", { className: "caption" }, [heading, readout]), place]);
      const made = new Chart({ ...options, place, readout, zoom: (from, until) => this.zoom(from, until), reset: () => this.reset() });
      return [box, made];
    };
    const [lightBox, light] = chart("Light in lux, logarithmic", [], { unit: "lux", names: [""], colours: ["--accent"], isLogarithmic: true, hint });
    const [eyesBox, eyes] = chart("Distance of the eyes in cm", [["left", "first"], ["right", "second"]],
      { unit: "cm", names: ["left", "right"], colours: ["--accent", "--second"], isLogarithmic: false, hint: "" });
    this.charts = [light, eyes];
    this.box = element("div", {}, [lightBox, eyesBox]);
    return this.box;
  }

  foot() {
    const link = (file, text) => element("a", { href: exportAddress(file, this.identifier), textContent: text, download: "" });
    return element("div", { className: "foot" }, [
      element("div", { className: "links" }, [
        link("light.csv", "Light as CSV"),
        link("distance.csv", "Distance as CSV"),
        link("other.csv", "Other samples as CSV"),
        link("participant.zip", "Everything as ZIP"),
      ]),
      element("button", { type: "button", className: "danger", textContent: "Delete this participant…", onclick: () => this.erase(this.identifier) }),
    ]);
  }

  choose(preset, view) {
    this.preset = preset;
    this.home = view;
    this.load(view);
  }

  reset() {
    this.load(this.home);
  }

  zoom(from, until) {
    if (until - from < 10 || (from === this.view.from && until === this.view.until)) return;
    this.load({ from, until });
  }

  move(part) {
    const length = this.view.until - this.view.from;
    this.load({ from: this.view.from + part * length, until: this.view.until + part * length });
  }

  scale(factor) {
    const middle = (this.view.from + this.view.until) / 2;
    const half = Math.max(((this.view.until - this.view.from) * factor) / 2, 30);
    this.load({ from: middle - half, until: middle + half });
  }

  async load(view = this.view) {
    this.view = view;
    this.pending?.abort();
    this.pending = new AbortController();
    const { signal } = this.pending;
    this.box.classList.add("loading");
    try {
      const series = await this.fetchSeries(view, signal);
      const seen = series.flat().map((bucket) => bucket[0]);
      if (this.preset === "all" && view === this.home && seen.length > 1) return await this.loadNearer(view, seen, signal);
      this.draw(view, series);
    } catch (error) {
      if (error.name !== "AbortError") this.fail(error);
    }
  }

  /** What lies in a small part of the span is asked for again, as finely as it can be drawn. */
  async loadNearer(view, seen, signal) {
    const first = seen.reduce((one, other) => Math.min(one, other));
    const last = seen.reduce((one, other) => Math.max(one, other));
    const margin = Math.max((last - first) * 0.01, (view.until - view.from) / this.bucketCount());
    this.home = { from: first - margin, until: last + 2 * margin };
    this.view = this.home;
    this.draw(this.view, await this.fetchSeries(this.view, signal));
  }

  bucketCount() {
    return Math.min(Math.max(Math.round(2 * this.box.clientWidth * devicePixelRatio), 400), mostBuckets);
  }

  fetchSeries({ from, until }, signal) {
    const parameters = { participant: this.identifier, from, until, buckets: this.bucketCount() };
    const fetchOne = async (column) => (await get("/api/series", { ...parameters, column }, signal)).buckets;
    return Promise.all(["lux", "leftEye", "rightEye"].map(fetchOne));
  }

  draw(view, [lux, left, right]) {
    const { light, distance } = this.study.expectedIntervals;
    const width = (view.until - view.from) / this.bucketCount();
    this.show(this.charts[0], [lux], "light", view, width, light);
    this.show(this.charts[1], [left, right], "distance", view, width, distance);
    this.rangeText.textContent = `${moment(view.from)} – ${moment(view.until)}`;
    for (const button of byId("participant").querySelectorAll("[data-preset]"))
      button.setAttribute("aria-pressed", String(view === this.home && button.dataset.preset === this.preset));
    this.box.classList.remove("loading");
  }

  show(chart, series, signal, view, width, interval) {
    const { place } = chart.options;
    const buckets = series.flat();
    if (buckets.length === 0) {
      chart.clear();
      place.replaceChildren(element("p", { className: "empty", textContent: `No ${signal} came in this time.` }));
      place.setAttribute("aria-label", `No ${signal} in the time shown.`);
      return;
    }
    chart.show(align(series, width, interval), view);
    const samples = series[0].reduce((sum, bucket) => sum + bucket[3], 0);
    const least = buckets.reduce((value, bucket) => Math.min(value, bucket[1]), Infinity);
    const greatest = buckets.reduce((value, bucket) => Math.max(value, bucket[2]), -Infinity);
    place.setAttribute("aria-label",
      `Chart of the ${signal} of ${nameOf(this.identifier)}: ${counted(samples, "sample")} between ${least} and ${greatest} ${chart.options.unit}.`);
  }
}
