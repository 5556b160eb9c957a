// What is wrong, and who waits.

import { ago, byId, counted, element, moment, nameOf, number } from "./format.js";

const words = { error: "Error", warning: "Warning", information: "For information" };

export const addressOf = (identifier) => `#participant=${encodeURIComponent(identifier)}`;

export function mark(severity) {
  return element("span", { className: `mark ${severity}`, "aria-hidden": "true" });
}

const shownAtFirst = 100;

export function showProblems(study, most = shownAtFirst) {
  const list = byId("problems");
  const errors = study.problems.filter((problem) => problem.severity === "error").length;
  const warnings = study.problems.filter((problem) => problem.severity === "warning").length;
  byId("problems-count").textContent =
    study.problems.length === 0 ? "" : `${counted(errors, "error")}, ${counted(warnings, "warning")}`;
  list.replaceChildren(...study.problems.slice(0, most).map((problem) =>
    element("li", {}, [
      element("a", { href: addressOf(problem.participant) }, [
        mark(problem.severity),
        element("span", {}, [
          element("b", { textContent: nameOf(problem.participant) }),
          element("span", { className: `severity ${problem.severity}`, textContent: words[problem.severity] }),
        ]),
        element("p", { textContent: problem.sentence }),
      ]),
    ])));
  if (study.problems.length > most) {
    list.append(element("li", {}, [element("button", {
      type: "button",
      textContent: `Show all ${number(study.problems.length)}`,
      onclick: () => showProblems(study, Infinity),
    })]));
  }
  if (study.problems.length === 0) {
    list.append(element("li", {
      className: "empty",
      textContent: study.participants.length === 0 ? "Nothing yet." : "Nothing: everyone sends, and what they send is plausible.",
    }));
  }
}

/** `enrol` is called with the identifier. */
export function showPen(study, enrol) {
  byId("pen-section").hidden = study.pen.length === 0;
  byId("pen").replaceChildren(...study.pen.map((participant) =>
    element("li", {}, [
      element("div", {}, [
        element("b", { textContent: nameOf(participant.identifier) }),
        element("p", {
          className: "quiet",
          title: moment(participant.lastContact),
          textContent: `${counted(participant.documents, "document")}, the last ${ago(participant.lastContact, study.now)}`,
        }),
      ]),
      element("button", {
        type: "button",
        textContent: "Enrol",
        "aria-label": `Enrol ${nameOf(participant.identifier)}`,
        onclick: () => enrol(participant.identifier),
      }),
    ])));
}

function table(heads, rows) {
  return element("div", { className: "table" }, [
    element("table", {}, [
      element("thead", {}, [element("tr", {}, heads.map((head) => element("th", { scope: "col", textContent: head })))]),
      element("tbody", {}, rows.map((row) => element("tr", {}, row))),
    ]),
  ]);
}

const cell = (text, className = "") => element("td", { className, textContent: text });

export function showRecords(study) {
  byId("unreadable-count").textContent = number(study.totals.unreadable);
  byId("unreadable").replaceChildren(study.unreadable.length === 0
    ? element("p", { className: "empty", textContent: "Every record that came could be read." })
    : table(["Received", "Participant", "Why", "The record"], study.unreadable.map((record) => [
        cell(moment(record.received), "nowrap"),
        cell(nameOf(record.participant)),
        cell(record.reason),
        element("td", {}, [element("code", { textContent: record.excerpt })]),
      ])));
  byId("audit-count").textContent = study.audit.length === 0 ? "" : "the newest entries";
  byId("audit").replaceChildren(study.audit.length === 0
    ? element("p", { className: "empty", textContent: "Nobody has looked at a participant, exported or deleted anything yet." })
    : table(["Time", "What"], study.audit.map((entry) => [cell(moment(entry.time), "nowrap"), cell(sentenceOf(entry))])));
}

function sentenceOf(entry) {
  const [start] = entry.what.split("#");
  if (entry.participant !== undefined) return start + nameOf(entry.participant);
  return start === entry.what ? entry.what : `${entry.what} (a participant that is no longer here)`;
}
