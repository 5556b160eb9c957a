// Talks to the collector, and to nobody else.

async function answerOf(request) {
  let response;
  try {
    response = await request;
  } catch {
    throw new Error("The collector does not answer. Is it still running?");
  }
  const type = response.headers.get("Content-Type") ?? "";
  const answer = type.startsWith("application/json") ? await response.json() : {};
  if (!response.ok) throw new Error(answer.error ?? `The collector answered with status ${response.status}.`);
  return answer;
}

export function get(path, parameters = {}, signal = undefined) {
  const query = new URLSearchParams(parameters).toString();
  return answerOf(fetch(query ? `${path}?${query}` : path, { credentials: "same-origin", signal }));
}

export function post(path, change) {
  return answerOf(fetch(path, {
    method: "POST",
    credentials: "same-origin",
    headers: { "Content-Type": "application/json" },
    body: JSON.stringify(change),
  }));
}

export function exportAddress(file, participant = undefined) {
  return `/export/${file}` + (participant === undefined ? "" : `?${new URLSearchParams({ participant })}`);
}
