"use strict";

const list = document.getElementById("apps");
const search = document.getElementById("search");
const order = document.getElementById("order");
const count = document.getElementById("count");
const collator = new Intl.Collator(undefined, { numeric: true, sensitivity: "base" });

// Drops accents and case, so that "warme" finds "Wärme".
const plain = (text) => text.normalize("NFKD").replace(/\p{M}/gu, "").toLowerCase();

const textIn = (card, part) => card.querySelector("." + part)?.textContent.trim() ?? "";
const apps = Array.from(list.children, (card) => ({
  card,
  failed: card.classList.contains("failed"),
  name: textIn(card, "name"),
  author: textIn(card, "author"),
  version: textIn(card, "version"),
  file: textIn(card, "file") || textIn(card, "name"),
  words: plain(card.textContent),
}));
let shown = apps;

// All cards together are one stop of the Tab key; arrow keys move between them.
function makeStop(card) {
  list.querySelector('[tabindex="0"]')?.setAttribute("tabindex", "-1");
  card?.setAttribute("tabindex", "0");
}

function update() {
  const words = plain(search.value).split(/\s+/).filter(Boolean);
  for (const app of apps) app.card.hidden = !words.every((word) => app.words.includes(word));
  shown = apps.filter((app) => !app.card.hidden);
  count.textContent = words.length
    ? `${shown.length} of ${apps.length} apps`
    : `${apps.length} ${apps.length === 1 ? "app" : "apps"}`;
  makeStop(shown[0]?.card);
}

// Apps without a value go last, and after them those that cannot be read.
function sort() {
  const key = order.value;
  apps.sort((a, b) => a.failed - b.failed || (a[key] === "") - (b[key] === "") ||
    collator.compare(a[key], b[key]) || collator.compare(a.file, b.file));
  list.append(...apps.map((app) => app.card));
  update();
}

// The index of the card in the row above (-1) or below (1) that is nearest to this one.
function cardInNextRow(from, direction) {
  const here = shown[from].card;
  const step = (index) => shown[index]?.card;
  let index = from + direction;
  while (step(index) && step(index).offsetTop === here.offsetTop) index += direction;
  const row = step(index)?.offsetTop;
  let best = index;
  const distance = (at) => Math.abs(step(at).offsetLeft - here.offsetLeft);
  for (; step(index) && step(index).offsetTop === row; index += direction) {
    if (distance(index) < distance(best)) best = index;
  }
  return best;
}

function target(key, from) {
  switch (key) {
    case "ArrowRight": return from + 1;
    case "ArrowLeft": return from - 1;
    case "ArrowDown": return cardInNextRow(from, 1);
    case "ArrowUp": return cardInNextRow(from, -1);
    case "Home": return 0;
    case "End": return shown.length - 1;
    default: return undefined;
  }
}

list.addEventListener("keydown", (event) => {
  const from = shown.findIndex((app) => app.card === event.target);
  if (from < 0 || event.ctrlKey || event.altKey || event.metaKey) return;
  if (event.key === "Enter") {
    const details = event.target.querySelector("details");
    if (details) details.open = !details.open;
    return;
  }
  const next = shown[target(event.key, from)]?.card;
  if (!next) return;
  event.preventDefault();
  makeStop(next);
  next.focus();
});

document.addEventListener("keydown", (event) => {
  if (event.key === "/" && event.target !== search) {
    event.preventDefault();
    search.focus();
    search.select();
  } else if (event.key === "Escape" && search.value) {
    search.value = "";
    update();
  }
});

for (const app of apps) app.card.setAttribute("tabindex", "-1");
document.getElementById("controls").addEventListener("submit", (event) => event.preventDefault());
search.addEventListener("input", update);
order.addEventListener("change", sort);
document.getElementById("controls").hidden = false;
sort();
