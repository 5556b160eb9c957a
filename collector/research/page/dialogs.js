// Asks before anything is deleted, and says what has happened.

import { byId, nameOf } from "./format.js";

const secondsOfMessage = 8;
let going;

/** A failure stays until something else is said. */
export function say(text, isFailure = false) {
  clearTimeout(going);
  if (!isFailure && text !== "") going = setTimeout(() => say(""), secondsOfMessage * 1000);
  const message = byId("message");
  message.hidden = text === "";
  message.textContent = text;
  message.classList.toggle("failure", isFailure);
}

/** Opens the dialogue; `erase` is called once the identifier has been typed, and may reject with an Error. */
export function askForDeletion(identifier, erase) {
  const dialog = byId("deletion");
  const typed = byId("deletion-confirm");
  const button = byId("deletion-delete");
  const word = nameOf(identifier);
  byId("deletion-name").textContent = word;
  byId("deletion-word").textContent = word;
  byId("deletion-error").textContent = "";
  typed.value = "";
  button.disabled = true;
  typed.oninput = () => { button.disabled = typed.value !== word; };
  typed.onkeydown = (event) => { if (event.key === "Enter" && !button.disabled) button.click(); };
  byId("deletion-cancel").onclick = () => dialog.close();
  button.onclick = async () => {
    button.disabled = true;
    try {
      await erase();
      dialog.close();
    } catch (error) {
      byId("deletion-error").textContent = error.message;
      button.disabled = false;
    }
  };
  dialog.showModal();
  typed.focus();
}
