"use strict";

// What the page of a gallery folder does without a document: texts, pieces and search.

// Drops accents and case, so that "warme" finds "Wärme".
const isAscii = /^[\x00-\x7f]*$/;
const plain = (text) => isAscii.test(text)
  ? text.toLowerCase()
  : text.normalize("NFKD").replace(/\p{M}/gu, "").toLowerCase();

// The columns of a row in a piece.
const COLUMNS = ["name", "author", "version", "summary", "file", "link", "picture", "width", "height",
  "original", "release", "description", "products", "created", "type", "uuid", "failure"];

function appOf(row) {
  const app = Object.fromEntries(COLUMNS.map((column, at) => [column, row[at] ?? ""]));
  app.products ||= [];
  app.nameText = plain(app.name);
  app.summaryText = plain(app.summary);
  app.text = plain([app.name, app.author, app.summary, app.version, app.description, app.file,
    app.products.join("\n"), app.release, app.type, app.uuid, app.failure].join("\n"));
  return app;
}

const wordsOf = (query) => plain(query).split(/\s+/).filter(Boolean);

// 0 if all words are in the name, 1 if all are in name and summary, 2 if elsewhere, -1 if one is nowhere.
function rankOf(app, words) {
  let rank = 0;
  for (const word of words) {
    if (app.nameText.includes(word)) continue;
    if (!app.text.includes(word)) return -1;
    rank = Math.max(rank, app.summaryText.includes(word) ? 1 : 2);
  }
  return rank;
}

const fits = (app, { author, product, release }) =>
  (!author || app.author === author) && (!product || app.products.includes(product)) &&
  (!release || app.release === release);

// The numbers of the apps that match, those with hits in their names first; otherwise in the order of the
// numbers. Apps that are not there yet are left out.
function find(apps, words, filter) {
  const ranks = [[], [], []];
  for (let at = 0; at < apps.length; ++at) {
    const app = apps[at];
    if (!app || !fits(app, filter)) continue;
    const rank = rankOf(app, words);
    if (rank >= 0) ranks[rank].push(at);
  }
  return ranks.flat();
}

// The parts of a text, each with whether it is a hit of a word.
function marked(text, words) {
  if (words.length === 0) return [[text, false]];
  const origins = [];  // of each unit of the plain text: where its character begins
  let folded = "", at = 0;
  for (const character of text) {
    const part = plain(character);
    for (let i = 0; i < part.length; ++i) origins.push(at);
    folded += part;
    at += character.length;
  }
  origins.push(text.length);
  const hits = new Uint8Array(text.length + 1);
  for (const word of words) {
    for (let from = folded.indexOf(word); from >= 0; from = folded.indexOf(word, from + word.length))
      hits.fill(1, origins[from], Math.max(origins[from + word.length], origins[from] + 1));
  }
  const parts = [];
  for (let begin = 0, end = 0; begin < text.length; begin = end) {
    while (end < text.length && hits[end] === hits[begin]) ++end;
    parts.push([text.slice(begin, end), hits[begin] === 1]);
  }
  return parts;
}

// Only what the tool makes: a relative path of plain and percent-encoded characters.
const isLink = (link) => /^(?!\/)[\w.~%\/-]+$/.test(link);

if (typeof module !== "undefined") module.exports = { appOf, find, isLink, marked, plain, wordsOf };
