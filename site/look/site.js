// SPDX-License-Identifier: MIT
'use strict';

const byId = (id) => document.getElementById(id);

// ---- Menu and theme -----------------------------------------------------------------------------

byId('menu-button').onclick = ({ currentTarget }) => {
  const open = document.body.classList.toggle('menu-open');
  currentTarget.setAttribute('aria-expanded', String(open));
};

byId('theme-button').onclick = () => {
  const { dataset } = document.documentElement;
  const isDark = dataset.theme ? dataset.theme === 'dark' : matchMedia('(prefers-color-scheme: dark)').matches;
  dataset.theme = isDark ? 'light' : 'dark';
  try {
    localStorage.setItem('theme', dataset.theme);
  } catch {
    // for this page only
  }
};

// ---- Search -------------------------------------------------------------------------------------

const field = byId('search');
const list = byId('results');
let index;

/** From file:// too, a page may load scripts. */
const load = (source) => new Promise((resolve, reject) => {
  const script = document.createElement('script');
  script.src = `../look/${source}`;
  script.onload = resolve;
  script.onerror = reject;
  document.head.append(script);
});

async function makeIndex() {
  await Promise.all([load('minisearch.js'), load(`search.${document.documentElement.lang}.js`)]);
  const { fields, tokens, index: json } = window.siteSearch;
  const isWord = (term) => /^[\w]{2,}$/.test(term);
  return window.MiniSearch.loadJSON(json, {
    ...fields,
    tokenize: tokens,
    processTerm: (term) => term,
    searchOptions: { prefix: isWord, fuzzy: (term) => isWord(term) && term.length > 4 && 0.2, boost: { heading: 5, words: 2 } },
  });
}

/** The text around the first of the words. */
function excerpt(text, terms) {
  const lower = text.toLowerCase();
  const places = terms.map((term) => lower.indexOf(term)).filter((place) => place >= 0);
  const start = Math.max(0, Math.min(...(places.length ? places : [0])) - 30);
  return (start > 0 ? '…' : '') + text.slice(start, start + 140);
}

function resultItem({ url, page, heading, text, terms }) {
  const item = document.createElement('li');
  item.setAttribute('role', 'option');
  const link = document.createElement('a');
  link.href = url;
  const title = document.createElement('b');
  title.textContent = heading;
  const where = document.createElement('small');
  where.textContent = heading === page ? '' : page;
  const about = document.createElement('span');
  about.textContent = excerpt(text, terms);
  link.append(title, where, about);
  item.append(link);
  return item;
}

function show(open) {
  list.hidden = !open;
  field.setAttribute('aria-expanded', String(open));
}

async function search() {
  const query = field.value.trim();
  if (!query) {
    show(false);
    return;
  }
  index ??= makeIndex();
  const ready = await index;
  if (query !== field.value.trim())
    return; // something else was typed meanwhile
  const all = ready.search(query, { combineWith: 'AND' });
  const found = (all.length ? all : ready.search(query)).slice(0, 20);
  list.replaceChildren(...found.map(resultItem));
  if (!found.length)
    list.textContent = document.body.dataset.none;
  show(true);
}

field.oninput = search;
field.onfocus = search;
document.addEventListener('keydown', (event) => {
  if (event.key === '/' && event.target === document.body) {
    event.preventDefault();
    field.focus();
  }
  if (event.key === 'Escape')
    show(false);
  const links = [...list.querySelectorAll('a')];
  const step = { ArrowDown: 1, ArrowUp: -1 }[event.key];
  if (list.hidden || !links.length)
    return;
  if (step) {
    event.preventDefault();
    const at = links.indexOf(document.activeElement) + step;
    (links[at] || field).focus();
  } else if (event.key === 'Enter' && event.target === field) {
    links[0].click();
  }
});
document.addEventListener('click', ({ target }) => {
  if (!target.closest('.search') || target.closest('#results a'))
    show(false);
});
