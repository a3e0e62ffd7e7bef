const $ = (id) => document.getElementById(id);
const list = $("apps"), search = $("search"), order = $("order"), count = $("count"), details = $("details");
const filters = ["author", "product", "release"].map($);
const collator = new Intl.Collator(undefined, { numeric: true, sensitivity: "base" });

// Pieces: each has some apps, in the order of their names, and is a script that calls galleryPiece().

const pieces = JSON.parse($("pieces").textContent);  // [number of apps, hash, name] each
const starts = [0];
for (const [size] of pieces) starts.push(starts.at(-1) + size);
const total = starts.at(-1);
const apps = new Array(total).fill(null);
const state = pieces.map(() => "waiting");
const urgent = [];
let loading = 0, loaded = 0, next = 0;

function load(piece) {
  state[piece] = "loading";
  ++loading;
  const script = document.createElement("script");
  script.src = `data/${pieces[piece][2]}.js`;
  // From a file, browsers refuse a script with a hash, because they take each file for a site of its own.
  if (location.protocol !== "file:") script.integrity = pieces[piece][1];
  script.onload = script.onerror = () => {
    --loading;
    script.remove();
    if (state[piece] !== "there") state[piece] = "failed";
    loadMore();
    later();
  };
  document.body.append(script);
}

function loadMore() {
  while (loading < 4) {
    let piece = urgent.shift();
    if (piece === undefined) {
      while (next < pieces.length && state[next] !== "waiting") ++next;
      if (next === pieces.length) return;
      piece = next;
    }
    if (state[piece] === "waiting") load(piece);
  }
}

globalThis.galleryPiece = (number, rows) => {
  const piece = number - 1;
  rows.forEach((row, at) => { apps[starts[piece] + at] = appOf(row); });
  state[piece] = "there";
  ++loaded;
};

// The piece of an app that is to be shown now.
function need(at) {
  let low = 0, high = pieces.length - 1;
  while (low < high) {
    const middle = (low + high + 1) >> 1;
    if (starts[middle] <= at) low = middle; else high = middle - 1;
  }
  if (state[low] === "waiting" && !urgent.includes(low)) urgent.unshift(low);
}

// What is shown: the numbers of apps, or null for all of them in their order.
let shown = null, words = [];
const shownCount = () => shown ? shown.length : total;
const shownAt = (place) => shown ? shown[place] : place;

// An order by another column than the name: the place of each value among all values.
function compareBy(column) {
  const failed = (app) => app.failure !== "" ? 2 : app[column] === "" ? 1 : 0;
  let less = (a, b) => a < b ? -1 : a > b ? 1 : 0;
  if (column !== "file") {
    const values = [...new Set(apps.filter(Boolean).map((app) => app[column]))].sort(collator.compare);
    const places = new Map(values.map((value, place) => [value, place]));
    less = (a, b) => places.get(a) - places.get(b);
  }
  return (a, b) => failed(apps[a]) - failed(apps[b]) || less(apps[a][column], apps[b][column]) || a - b;
}

const filter = () => Object.fromEntries(filters.map((select) => [select.id, select.value]));

function update() {
  performance.mark("search-begins");
  words = wordsOf(search.value);
  const isAll = words.length === 0 && filters.every((select) => select.value === "");
  if (isAll && order.value === "name") {
    shown = null;
  } else {
    shown = find(apps, words, filter());
    if (order.value !== "name") shown.sort(compareBy(order.value));
  }
  const number = (value) => value.toLocaleString("en");
  const isWhole = loaded === pieces.length;
  const failed = state.filter((each) => each === "failed").length;
  count.textContent = (isAll ? "" : `${number(shownCount())} of `) +
    `${number(total)} ${total === 1 ? "app" : "apps"}` +
    (failed ? `; ${number(failed)} of the files in "data" cannot be loaded` :
      isWhole ? "" : `; ${Math.round(100 * loaded / pieces.length)}% loaded`);
  $("nothing").hidden = shownCount() > 0 || !isWhole;
  document.body.classList.toggle("loaded", isWhole);
  active = Math.min(active, Math.max(0, shownCount() - 1));
  layOut();
  performance.measure("search", "search-begins");
}

// A search that is typed while pieces come is done again, but not for each of them.
let timer = 0;
function later() {
  const isWhole = state.every((each) => each === "there" || each === "failed");
  if (isWhole) fillFilters();
  if (timer && !isWhole) return;
  clearTimeout(timer);
  timer = setTimeout(() => { timer = 0; update(); }, isWhole ? 0 : 200);
}

function fillFilters() {
  const values = { author: new Map(), product: new Map(), release: new Map() };
  const add = (map, value) => { if (value) map.set(value, (map.get(value) ?? 0) + 1); };
  for (const app of apps) {
    if (!app) continue;
    add(values.author, app.author);
    add(values.release, app.release);
    for (const product of new Set(app.products)) add(values.product, product);
  }
  for (const select of filters) {
    const chosen = select.value;
    // The most used ones: a list of more helps nobody, and takes seconds.
    const options = [...values[select.id]].sort((a, b) => b[1] - a[1]).slice(0, 2000);
    options.sort((a, b) => collator.compare(a[0], b[0]));
    const list = document.createDocumentFragment();
    list.append(new Option("all", ""));
    for (const [value, uses] of options) list.append(new Option(`${value} (${uses})`, value));
    select.replaceChildren(list);
    if (chosen && !values[select.id].has(chosen)) select.append(new Option(chosen, chosen));
    select.value = chosen;
  }
}

// The list: only the cards in and near the window are in the document.

const GAP = 16, WIDTH = 260, NEAR = 600;
let columns = 1, cardWidth = WIDTH, rowHeight = 1, active = 0;
const cards = new Map();  // by place

function element(name, className, text) {
  const made = document.createElement(name);
  if (className) made.className = className;
  if (text !== undefined) made.textContent = text;
  return made;
}

function write(parent, text) {
  parent.dir = "auto";
  for (const [part, isHit] of marked(text, words)) parent.append(isHit ? element("mark", "", part) : part);
  return parent;
}

function pictureOf(app) {
  if (!/^pictures\/[0-9a-f]{2}\/[0-9a-f]+\.(png|jpg)$/.test(app.picture))
    return element("div", "picture", app.failure ? "Cannot be read" : app.picture || "No screenshot");
  const image = element("img", "picture");
  image.decoding = "async";
  image.alt = `Screenshot of ${app.name}`;
  image.width = app.width;
  image.height = app.height;
  image.src = app.picture;
  return image;
}

function fileOf(app) {
  const line = element("p", "file");
  if (!isLink(app.link)) return write(line, app.file);
  const link = write(element("a"), app.file);
  link.href = app.link;
  line.append(link);
  return line;
}

function cardOf(place) {
  const app = apps[shownAt(place)];
  const card = element("li", "app");
  card.place = place;
  card.setAttribute("aria-posinset", place + 1);
  card.setAttribute("aria-setsize", shownCount());
  if (!app) {
    card.append(element("div", "picture", "…"));
    card.pending = true;
    return card;
  }
  card.classList.toggle("failed", app.failure !== "");
  const name = element("h2"), open = write(element("button", "open"), app.name);
  open.tabIndex = place === active ? 0 : -1;
  name.append(open);
  const by = element("p", "by");
  by.append(write(element("span"), app.author), app.author && app.version ? " · " : "",
    write(element("span"), app.version));
  const file = fileOf(app);
  file.querySelector("a")?.setAttribute("tabindex", "-1");  // it is in the details, too
  card.append(pictureOf(app), name, by, write(element("p", "summary"), app.failure || app.summary), file);
  return card;
}

function layOut() {
  for (const card of cards.values()) card.remove();
  cards.clear();
  const width = list.clientWidth;
  const probe = element("li", "app");
  list.append(probe);
  const height = probe.offsetHeight;
  probe.remove();
  const isNarrow = matchMedia("(max-width: 40rem)").matches;
  columns = isNarrow ? 1 : Math.max(1, Math.floor((width + GAP) / (WIDTH + GAP)));
  cardWidth = Math.floor((width - GAP * (columns - 1)) / columns);
  rowHeight = height + (isNarrow ? 8 : GAP);
  list.style.height = `${Math.ceil(shownCount() / columns) * rowHeight}px`;
  draw();
}

function draw() {
  const top = -list.getBoundingClientRect().top;
  const first = Math.max(0, Math.floor((top - NEAR) / rowHeight)) * columns;
  const last = Math.min(shownCount(), Math.ceil((top + innerHeight + NEAR) / rowHeight) * columns);
  for (const [place, card] of cards) {
    const isFocused = card.contains(document.activeElement);
    if ((place >= first && place < last || isFocused) && !(card.pending && apps[shownAt(place)])) continue;
    card.remove();
    cards.delete(place);
  }
  for (let place = first; place < last; ++place) {
    if (!apps[shownAt(place)]) need(shownAt(place));
    if (cards.has(place)) continue;
    const card = cardOf(place);
    card.style.width = `${cardWidth}px`;
    card.style.transform = `translate(${(place % columns) * (cardWidth + GAP)}px, ` +
      `${Math.floor(place / columns) * rowHeight}px)`;
    cards.set(place, card);
    // In the order in which they are read out.
    let after = list.lastElementChild;
    while (after && after.place > place) after = after.previousElementSibling;
    if (after) after.after(card); else list.prepend(card);
  }
  loadMore();
}

let isDrawing = false;
function drawSoon() {
  if (isDrawing) return;
  isDrawing = true;
  requestAnimationFrame(() => { isDrawing = false; draw(); });
}

// All cards together are one stop of the Tab key; arrow keys move between them.
function moveTo(place) {
  const button = () => cards.get(active)?.querySelector(".open");
  if (button()) button().tabIndex = -1;
  active = Math.max(0, Math.min(place, shownCount() - 1));
  const y = list.getBoundingClientRect().top + Math.floor(active / columns) * rowHeight;
  const head = getComputedStyle($("controls").parentElement).position === "sticky"
    ? $("controls").parentElement.offsetHeight : 0;
  if (y < head + GAP) scrollBy(0, y - head - GAP);
  else if (y + rowHeight > innerHeight) scrollBy(0, y + rowHeight - innerHeight);
  draw();
  if (!button()) return;
  button().tabIndex = 0;
  button().focus({ preventScroll: true });
}

function placeAfter(key) {
  const page = columns * Math.max(1, Math.floor(innerHeight / rowHeight) - 1);
  switch (key) {
    case "ArrowRight": return active + 1;
    case "ArrowLeft": return active - 1;
    case "ArrowDown": return active + columns < shownCount() ? active + columns : active;
    case "ArrowUp": return active >= columns ? active - columns : active;
    case "PageDown": return active + page;
    case "PageUp": return active - page;
    case "Home": return 0;
    case "End": return shownCount() - 1;
    default: return undefined;
  }
}

function showDetails(app) {
  const close = element("button", "close", "Close");
  close.addEventListener("click", () => details.close());
  const name = write(element("h2"), app.name);
  name.id = "details-name";
  details.replaceChildren(close, name);
  const picture = pictureOf(app);
  if (picture.src) {
    const enlarge = element("button", "enlarge");
    enlarge.title = "Enlarge";
    enlarge.setAttribute("aria-pressed", "false");
    enlarge.addEventListener("click", () =>
      enlarge.setAttribute("aria-pressed", enlarge.getAttribute("aria-pressed") !== "true"));
    picture.className = "";
    enlarge.append(picture);
    details.append(enlarge);
  } else if (app.picture) {
    details.append(element("p", "by", app.picture));
  }
  const facts = element("dl");
  const add = (title, value) => {
    if (!value) return;
    facts.append(element("dt", "", title), typeof value === "string" ? write(element("dd"), value) : value);
  };
  add("Cannot be read", app.failure);
  add("Author", app.author);
  add("Version", app.version);
  add("Summary", app.summary);
  add("Description", app.description);
  add("Products", app.products.join("\n"));
  add("Runs on releases since", app.release);
  add("Made with release", app.created);
  add("Type", app.type);
  add("UUID", app.uuid);
  add("Screenshot", app.original);
  const file = element("dd");
  file.append(...fileOf(app).childNodes);
  add("File", file);
  details.append(facts);
  details.showModal();
}

// The search is in the address, so that it can be kept and passed on.

const fields = [["q", search], ...filters.map((select) => [select.id, select]), ["sort", order]];

function readAddress() {
  const given = new URLSearchParams(location.hash.slice(1));
  for (const [key, field] of fields) {
    const value = given.get(key) ?? (field === order ? "name" : "");
    if (field.options && value && ![...field.options].some((option) => option.value === value)) {
      if (field === order) continue;
      field.append(new Option(value, value));
    }
    field.value = value;
  }
  update();
}

function writeAddress() {
  const given = new URLSearchParams();
  for (const [key, field] of fields) {
    if (field.value && !(field === order && field.value === "name")) given.set(key, field.value);
  }
  const hash = given.toString();
  history.replaceState(null, "", hash ? "#" + hash : location.pathname + location.search);
}

function changed() {
  active = 0;
  writeAddress();
  const top = list.getBoundingClientRect().top + scrollY;
  if (scrollY > top) scrollTo(0, 0);
  update();
}

list.addEventListener("click", (event) => {
  const card = event.target.closest(".app");
  if (!card || event.target.closest("a") || !apps[shownAt(card.place)]) return;
  const old = cards.get(active)?.querySelector(".open");
  if (old) old.tabIndex = -1;
  active = card.place;
  const open = card.querySelector(".open");
  open.tabIndex = 0;
  open.focus({ preventScroll: true });
  showDetails(apps[shownAt(card.place)]);
});
list.addEventListener("keydown", (event) => {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  const place = placeAfter(event.key);
  if (place === undefined) return;
  event.preventDefault();
  moveTo(place);
});
details.addEventListener("click", (event) => { if (event.target === details) details.close(); });
document.addEventListener("keydown", (event) => {
  if (details.open) return;
  if (event.key === "/" && event.target !== search) {
    event.preventDefault();
    search.focus();
    search.select();
  } else if (event.key === "Escape" && search.value) {
    search.value = "";
    changed();
  }
});
$("controls").addEventListener("submit", (event) => event.preventDefault());
search.addEventListener("input", changed);
for (const select of [...filters, order]) select.addEventListener("change", changed);
addEventListener("scroll", drawSoon, { passive: true });
addEventListener("resize", layOut);
addEventListener("hashchange", readAddress);

readAddress();
loadMore();
later();
