// Texts, all times of which are UTC, and elements, all texts of which are texts.

export const secondsOfDay = 86400;

const count = new Intl.NumberFormat("en");
const decimals = new Intl.NumberFormat("en", { maximumSignificantDigits: 4 });
const compact = new Intl.NumberFormat("en", { notation: "compact", maximumSignificantDigits: 2 });
const dateFormat = new Intl.DateTimeFormat("en-GB", { timeZone: "UTC", day: "numeric", month: "short", year: "numeric" });
const dayFormat = new Intl.DateTimeFormat("en-GB", { timeZone: "UTC", day: "numeric", month: "short" });
const longFormat = new Intl.DateTimeFormat("en-GB", { timeZone: "UTC", weekday: "long", day: "numeric", month: "short", year: "numeric" });
const timeFormat = new Intl.DateTimeFormat("en-GB", { timeZone: "UTC", hour: "2-digit", minute: "2-digit" });

const dateOf = (seconds) => new Date(seconds * 1000);

export const number = (value) => count.format(value);
export const measure = (value) => decimals.format(value);
export const short = (value) => compact.format(value).toLowerCase();
export const counted = (value, noun) => `${number(value)} ${noun}${value === 1 ? "" : "s"}`;
export const date = (seconds) => dateFormat.format(dateOf(seconds));
export const dayAndMonth = (seconds) => dayFormat.format(dateOf(seconds));
export const longDate = (seconds) => longFormat.format(dateOf(seconds));
export const moment = (seconds) => `${date(seconds)}, ${timeFormat.format(dateOf(seconds))} UTC`;
export const dayOf = (seconds) => Math.floor(seconds / secondsOfDay);

/** How long a span is, roughly. */
export function duration(seconds) {
  if (seconds < 90) return counted(Math.round(seconds), "second");
  if (seconds < 5400) return `${Math.round(seconds / 60)} min`;
  if (seconds < 1.5 * secondsOfDay) return `${Math.round(seconds / 3600)} h`;
  return counted(Math.round(seconds / secondsOfDay), "day");
}

export function ago(seconds, now) {
  const past = now - seconds;
  if (past < -60) return `in ${duration(-past)}`;
  return past < 60 ? "just now" : `${duration(past)} ago`;
}

/** The name of a participant, who may have sent an empty identifier. */
export const nameOf = (identifier) => (identifier === "" ? "(no identifier)" : identifier);

/** Attributes whose names are those of properties are set as such: textContent, className, href, onclick... */
export function element(tag, properties = {}, children = []) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (name in made) made[name] = value;
    else made.setAttribute(name, value);
  }
  made.append(...children);
  return made;
}

export const byId = (id) => document.getElementById(id);
export const style = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
