// Who sends: participants by days.

import { ago, byId, counted, date, dayAndMonth, dayOf, element, longDate, moment, nameOf, number, secondsOfDay, short } from "./format.js";
import { mark } from "./problems.js";

export const shownDays = 21;
const rowsOfPage = 50;
const collator = new Intl.Collator("en");
const numberedCollator = new Intl.Collator("en", { numeric: true });
const columns = { day: 0, samples: 1, least: 2, greatest: 3, seconds: 4 };
const units = { light: "lux", distance: "cm" };

/** Names that people gave come first, "P2" before "P10"; then those that hosts make, whose digits are no numbers. */
function compareNames(one, other) {
  const [isMade, isOtherMade] = [one, other].map((name) => /^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$/i.test(name));
  if (isMade !== isOtherMade) return isMade ? 1 : -1;
  return (isMade ? collator : numberedCollator).compare(one, other);
}

/** The samples that a day should bring; null when nobody knows. */
function expectedOn(day, interval, now) {
  if (!(interval > 0)) return null;
  const elapsed = Math.min(Math.max(now - day * secondsOfDay, 0), secondsOfDay);
  return Math.floor(elapsed / interval);
}

function levelOf(samples, expected) {
  if (samples === 0) return 0;
  if (expected === null) return 3;
  const part = samples / Math.max(expected, 1);
  return [0.25, 0.5, 0.75, 0.95].filter((limit) => part >= limit).length + 1;
}

function describe(cell) {
  const start = `${nameOf(cell.participant)}, ${longDate(cell.day * secondsOfDay)}, ${cell.signal}: `;
  if (cell.level === "") return start + "not in the study yet";
  const of = cell.expected === null ? "" : ` of ${number(cell.expected)} expected`;
  const percent = cell.expected > 0 ? ` (${Math.round((100 * cell.samples) / cell.expected)} %)` : "";
  const values = cell.summary === undefined ? ""
    : `, ${short(cell.summary[columns.least])} to ${short(cell.summary[columns.greatest])} ${units[cell.signal]}`;
  return `${start}${cell.samples === 0 ? "nothing" : counted(cell.samples, "sample")}${of}${percent}${values}`;
}

export class Grid {
  /** `open`: called with an identifier, and the day when one is meant. */
  constructor(open) {
    this.open = open;
    this.signal = "light";
    this.page = 0;
    this.filter = "";
    this.order = "name";
    this.chosen = undefined;
  }

  show(study, days, lastDay) {
    Object.assign(this, { study, days, lastDay });
    this.render();
  }

  rows() {
    const problems = new Map();
    for (const problem of this.study.problems) {
      if (problem.severity === "information") continue;
      problems.set(problem.participant, [...(problems.get(problem.participant) ?? []), problem]);
    }
    const text = this.filter.trim().toLowerCase();
    const rows = this.study.participants
      .filter((participant) => nameOf(participant.identifier).toLowerCase().includes(text))
      .map((participant) => ({ participant, problems: problems.get(participant.identifier) ?? [] }));
    const byName = (one, other) => compareNames(one.participant.identifier, other.participant.identifier);
    const orders = {
      name: byName,
      silent: (one, other) => one.participant.lastContact - other.participant.lastContact || byName(one, other),
      problems: (one, other) => other.problems.length - one.problems.length || byName(one, other),
    };
    return rows.sort(orders[this.order]);
  }

  render() {
    const firstDay = this.lastDay - shownDays + 1;
    byId("span").textContent = `${dayAndMonth(firstDay * secondsOfDay)} – ${date(this.lastDay * secondsOfDay)}`;
    const isNow = this.lastDay >= dayOf(this.study.now);
    byId("later").disabled = isNow;
    byId("today").disabled = isNow;
    this.showLegend();
    const rows = this.rows();
    const pages = Math.max(1, Math.ceil(rows.length / rowsOfPage));
    this.page = Math.min(this.page, pages - 1);
    byId("pages").hidden = pages === 1;
    byId("page-number").textContent = `Page ${this.page + 1} of ${pages}, ${counted(rows.length, "participant")}`;
    byId("previous-page").disabled = this.page === 0;
    byId("next-page").disabled = this.page === pages - 1;
    for (const id of ["detail", "legend"])
      byId(id).hidden = rows.length === 0;
    if (rows.length === 0) return byId("grid").replaceChildren(this.emptyState());
    const shown = rows.slice(this.page * rowsOfPage, (this.page + 1) * rowsOfPage);
    const days = Array.from({ length: shownDays }, (_, place) => firstDay + place);
    const table = element("table", { className: "days", role: "grid", "aria-labelledby": "senders-title" }, [
      this.head(days),
      element("tbody", {}, shown.map((row) => this.row(row, days))),
    ]);
    table.addEventListener("keydown", (event) => this.walk(event));
    const cells = [...table.querySelectorAll("td.day")];
    (cells.find((cell) => cell.dataset.key === this.visited) ?? cells[0]).tabIndex = 0;
    byId("grid").replaceChildren(table);
  }

  emptyState() {
    const none = "Nothing has arrived yet: what the first host posts to this collector will appear here.";
    const waiting = "Nobody is enrolled yet: enrol those who wait, and their days appear here.";
    const text = this.study.participants.length > 0 ? "No participant's name holds this text."
      : this.study.pen.length > 0 ? waiting : none;
    return element("p", { className: "empty", textContent: text });
  }

  head(days) {
    const months = [];
    for (const day of days) {
      const name = dayAndMonth(day * secondsOfDay).split(" ")[1];
      if (months.at(-1)?.name === name) months.at(-1).days += 1;
      else months.push({ name, days: 1 });
    }
    const dayHead = (day) => {
      const weekday = (day + 4) % 7;  // 1970-01-01 was a Thursday
      return element("th", {
        scope: "col",
        className: `day${weekday === 1 ? " monday" : ""}${weekday === 0 || weekday === 6 ? " weekend" : ""}`,
        title: longDate(day * secondsOfDay),
        textContent: String(new Date(day * secondsOfDay * 1000).getUTCDate()),
      });
    };
    return element("thead", {}, [
      element("tr", { "aria-hidden": "true" }, [
        element("td", { className: "name" }),
        ...months.map((month) => element("th", { className: "month", colSpan: month.days, textContent: month.name })),
        element("td", { className: "last" }),
      ]),
      element("tr", {}, [
        element("th", { scope: "col", className: "name", textContent: "Participant" }),
        ...days.map(dayHead),
        element("th", { scope: "col", className: "last", textContent: "Last contact" }),
      ]),
    ]);
  }

  row({ participant, problems }, days) {
    const summaries = new Map((this.days.participants[participant.identifier]?.[this.signal] ?? []).map((day) => [day[columns.day], day]));
    const worst = problems.some((problem) => problem.severity === "error") ? "error" : "warning";
    const name = element("button", {
      type: "button",
      title: [nameOf(participant.identifier), ...problems.map((problem) => problem.sentence)].join("\n"),
      onclick: () => this.open(participant.identifier),
    }, [element("span", { className: "label", textContent: nameOf(participant.identifier) })]);
    if (problems.length > 0) {
      name.append(mark(worst));
      name.setAttribute("aria-label", `${nameOf(participant.identifier)}, ${counted(problems.length, "problem")}`);
    }
    const isChosen = participant.identifier === this.chosen;
    return element("tr", { className: isChosen ? "chosen" : "" }, [
      element("th", { scope: "row", className: "name" }, [name]),
      ...days.map((day) => this.cell(participant, day, summaries.get(day))),
      element("td", { className: "last", title: moment(participant.lastContact), textContent: ago(participant.lastContact, this.study.now) }),
    ]);
  }

  cell(participant, day, summary) {
    const samples = summary?.[columns.samples] ?? 0;
    const expected = expectedOn(day, this.study.expectedIntervals[this.signal], this.study.now);
    const isBefore = samples === 0 && day < dayOf(participant.firstContact);
    const level = isBefore ? "" : String(levelOf(samples, expected));
    const text = describe({ participant: participant.identifier, signal: this.signal, day, samples, expected, level, summary });
    const show = () => { byId("detail").textContent = text; };
    const key = `${day} ${participant.identifier}`;
    return element("td", {
      className: "day",
      tabIndex: -1,
      "aria-label": text,
      "data-level": level,
      textContent: expected === null && samples > 0 ? short(samples) : "",
      "data-key": key,
      onfocus: () => { this.visited = key; show(); },
      onmouseenter: show,
      onclick: () => this.open(participant.identifier, day),
    });
  }

  /** The arrow keys go from cell to cell, Enter opens one. */
  walk(event) {
    const cell = event.target.closest("td.day");
    if (!cell) return;
    const cells = (row) => (row ? [...row.querySelectorAll("td.day")] : []);
    const row = cells(cell.parentElement);
    const place = row.indexOf(cell);
    const goals = {
      ArrowLeft: () => row[place - 1],
      ArrowRight: () => row[place + 1],
      ArrowUp: () => cells(cell.parentElement.previousElementSibling)[place],
      ArrowDown: () => cells(cell.parentElement.nextElementSibling)[place],
      Home: () => row[0],
      End: () => row.at(-1),
      Enter: () => (cell.click(), undefined),
    };
    if (!(event.key in goals)) return;
    event.preventDefault();
    const goal = goals[event.key]();
    if (!goal) return;
    cell.tabIndex = -1;
    goal.tabIndex = 0;
    goal.focus();
  }

  showLegend() {
    const interval = this.study.expectedIntervals[this.signal];
    const levels = interval > 0 ? [0, 1, 2, 3, 4, 5] : [0, 3];
    byId("legend").replaceChildren(
      element("span", { textContent: "nothing" }),
      ...levels.map((level) => element("i", { "data-level": String(level) })),
      element("span", { textContent: interval > 0 ? `all expected: one every ${measureOf(interval)}` : "something; the figure is the count" }));
  }

  choose(identifier) {
    this.chosen = identifier;
    if (this.study) this.render();
  }

}

const measureOf = (seconds) => (seconds >= 60 && seconds % 60 === 0 ? `${seconds / 60} min` : `${seconds} s`);
