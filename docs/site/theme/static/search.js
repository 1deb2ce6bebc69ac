// Finds the sections of all pages that contain every word of the query. sections.js has them: for each the
// title of its page, its heading, its address and its text.
"use strict";

const MOST = 60, AROUND = 90; // results; characters of text around a word
const query = (new URLSearchParams(location.search).get("q") || "").trim();
const words = query.toLowerCase().split(/\s+/).filter(word => word !== "");

// How well a section fits: a heading counts more than text; 0 if a word is missing.
function rank({ title, heading, text }) {
  const inText = text.toLowerCase(), inHeading = heading.toLowerCase(), inTitle = title.toLowerCase();
  let sum = inHeading === query.toLowerCase() ? 100 : 0;
  for (const word of words) {
    const count = Math.min(inText.split(word).length - 1, 5);
    const found = (inHeading.includes(word) ? 20 : 0) + (inTitle.includes(word) ? 5 : 0) + count;
    if (found === 0) return 0;
    sum += found;
  }
  return sum;
}

// The text around the first word that is in it, in which all words are marked.
function addExcerpt(parent, text) {
  const places = words.map(word => text.toLowerCase().indexOf(word)).filter(place => place >= 0);
  if (places.length === 0) return;
  const begin = Math.max(0, Math.min(...places) - AROUND), end = begin + 3 * AROUND;
  let rest = text.slice(begin, end);
  parent.append(begin > 0 ? "… " : "");
  while (rest !== "") {
    const hits = words.map(word => ({ word, place: rest.toLowerCase().indexOf(word) })).filter(hit => hit.place >= 0)
      .sort((a, b) => a.place - b.place);
    const { word, place } = hits[0] || { word: "", place: rest.length };
    parent.append(rest.slice(0, place));
    if (word !== "") parent.append(newElement("mark", rest.slice(place, place + word.length)));
    rest = rest.slice(place + word.length);
  }
  parent.append(end < text.length ? " …" : "");
}

function newElement(name, text) {
  const element = document.createElement(name);
  element.textContent = text;
  return element;
}

function show() {
  document.querySelector("input[name=q]").value = query;
  const summary = document.getElementById("summary");
  summary.textContent = "Type what you look for above.";
  if (words.length === 0) return;
  const found = SECTIONS.map(section => ({ section, rank: rank(section) })).filter(result => result.rank > 0)
    .sort((a, b) => b.rank - a.rank);
  summary.textContent = `${found.length} ${found.length === 1 ? "section contains" : "sections contain"} “${query}”` +
    (found.length > MOST ? `; these are the best ${MOST}.` : ".");
  for (const { section } of found.slice(0, MOST)) {
    const result = document.createElement("li"), link = newElement("a", section.heading);
    link.href = section.address;
    result.append(link);
    if (section.title !== section.heading) result.append(newElement("span", section.title));
    const excerpt = document.createElement("p");
    addExcerpt(excerpt, section.text);
    result.append(excerpt);
    document.getElementById("results").append(result);
  }
}

show();
