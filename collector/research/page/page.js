// Puts the page together: asks the collector, shows the answers, follows the address.

import { askForDeletion, say } from "./dialogs.js";
import { byId, counted, dayOf, element, moment, nameOf, number, secondsOfDay } from "./format.js";
import { Grid, shownDays } from "./grid.js";
import { ParticipantView } from "./participant.js";
import { addressOf, showPen, showProblems, showRecords } from "./problems.js";
import { exportAddress, get, post } from "./server.js";

const staleAfter = 5 * 60;
let study;
let lastDay;
let openDay;

const fail = (error) => say(error.message, true);
const grid = new Grid(openParticipant);
const view = new ParticipantView(
  (identifier) => askForDeletion(identifier, () => erase(identifier)),
  fail);

async function refresh() {
  byId("refresh").disabled = true;
  try {
    const wasNow = study === undefined || lastDay === dayOf(study.now);
    study = await get("/api/study");
    if (wasNow) lastDay = dayOf(study.now);
    showTotals();
    showProblems(study);
    showPen(study, enrol);
    showRecords(study);
    await showDays();
    return true;
  } catch (error) {
    fail(error);
    return false;
  } finally {
    byId("refresh").disabled = false;
  }
}

async function showDays() {
  const days = await get("/api/days", { from: (lastDay - shownDays + 1) * secondsOfDay, until: (lastDay + 1) * secondsOfDay });
  grid.show(study, days, lastDay);
}

function showTotals() {
  const { totals } = study;
  const figure = (value, text) => element("li", {}, [element("b", { textContent: number(value) }), ` ${text}`]);
  const items = [
    figure(totals.enrolled, totals.enrolled === 1 ? "participant" : "participants"),
    figure(totals.inContactWithinADay, "in contact within a day"),
    figure(totals.recentSamples, "samples in three weeks"),
  ];
  if (totals.waiting > 0) items.push(figure(totals.waiting, totals.waiting === 1 ? "waits to be enrolled" : "wait to be enrolled"));
  byId("totals").replaceChildren(...items);
  byId("as-of").textContent = `As of ${moment(study.now)}`;
}

async function enrol(identifier) {
  try {
    await post("/api/enrol", { participant: identifier });
    await refresh();
    say(`${nameOf(identifier)} is enrolled.`);
  } catch (error) {
    fail(error);
  }
}

async function erase(identifier) {
  await post("/api/delete", { participant: identifier, confirm: identifier });
  history.replaceState(null, "", "/");
  view.close();
  grid.choose(undefined);
  if (await refresh()) say(`${nameOf(identifier)} is deleted.`);
}

function openParticipant(identifier, day) {
  openDay = day;
  const address = addressOf(identifier);
  if (location.hash === address) followAddress();
  else location.hash = address;
}

function followAddress() {
  const found = /^#participant=(.*)$/.exec(location.hash);
  if (!found || !study) return;
  const identifier = decodeURIComponent(found[1]);
  grid.choose(identifier);
  view.open(study, identifier, openDay);
  openDay = undefined;
  byId("participant-section").scrollIntoView({ block: "start" });
  byId("participant-section").focus({ preventScroll: true });
}

async function go(day) {
  lastDay = Math.min(day, dayOf(study.now));
  try {
    await showDays();
  } catch (error) {
    fail(error);
  }
}

function listen() {
  byId("refresh").onclick = async () => {
    if (!(await refresh())) return;
    say("");
    if (view.identifier !== undefined) view.open(study, view.identifier);
  };
  byId("earlier").onclick = () => go(lastDay - shownDays);
  byId("later").onclick = () => go(lastDay + shownDays);
  byId("today").onclick = () => go(Infinity);
  byId("filter").oninput = (event) => { grid.filter = event.target.value; grid.page = 0; grid.render(); };
  byId("order").onchange = (event) => { grid.order = event.target.value; grid.page = 0; grid.render(); };
  byId("previous-page").onclick = () => { grid.page -= 1; grid.render(); };
  byId("next-page").onclick = () => { grid.page += 1; grid.render(); };
  for (const choice of document.querySelectorAll("input[name=signal]"))
    choice.onchange = () => { grid.signal = choice.value; grid.render(); };
  addEventListener("hashchange", followAddress);
  // A page that was left open overnight shows the morning.
  document.addEventListener("visibilitychange", () => {
    if (!document.hidden && study && Date.now() / 1000 - loaded > staleAfter) load();
  });
}

function showExports() {
  const link = (file, text) => element("li", {}, [element("a", { href: exportAddress(file), textContent: text, download: "" })]);
  byId("exports").replaceChildren(
    link("light.csv", "Light, CSV"), link("distance.csv", "Distance, CSV"), link("other.csv", "Other samples, CSV"),
    link("light.jsonl", "Light, JSON Lines"), link("distance.jsonl", "Distance, JSON Lines"), link("other.jsonl", "Other samples, JSON Lines"),
    link("dictionary.csv", "What each column means"));
}

let loaded = 0;
async function load() {
  loaded = Date.now() / 1000;
  if (await refresh()) followAddress();
  document.documentElement.dataset.state = "loaded";
}

showExports();
listen();
load();
