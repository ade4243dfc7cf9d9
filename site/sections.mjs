// SPDX-License-Identifier: MIT
//
// The search of the site: the texts below each heading, and an index of them for each language. It is a
// script, as pages from file:// may load no other data.
import { cpSync, mkdirSync, writeFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Parser } from 'htmlparser2';
import MiniSearch from 'minisearch';

/** Words of a text, parts of names such as bSaveJPG, and pairs of Chinese characters. Also runs in the page. */
export function tokens(text) {
  const found = [];
  for (const [run] of text.normalize('NFKC').matchAll(/\p{Script=Han}+|(?:(?!\p{Script=Han})[\p{L}\p{N}_])+/gu)) {
    if (/\p{Script=Han}/u.test(run)) {
      for (let i = 0; i < Math.max(1, run.length - 1); i++)
        found.push(run.slice(i, i + 2));
    } else {
      const parts = run.split(/_|(?<=[a-z0-9])(?=[A-Z])/).filter((part) => part.length > 1);
      found.push(run, ...(parts.length > 1 ? parts : []));
    }
  }
  return found.map((token) => token.toLowerCase());
}

const fields = { fields: ['heading', 'words', 'text'], storeFields: ['url', 'page', 'heading', 'text'] };

/** The sections of a page: fragment, heading and text. */
function sectionsOf(html) {
  const found = [{ fragment: '', heading: '', text: '' }];
  let depth = 0; // inside of <main>
  let inHeading = false;
  const parser = new Parser({
    onopentag(name, { id }) {
      depth += name === 'main' ? 1 : 0;
      if (depth > 0 && /^h[1-6]$/.test(name)) {
        found.push({ fragment: name === 'h1' ? '' : id, heading: '', text: '' });
        inHeading = true;
      }
    },
    ontext(text) {
      if (depth > 0)
        found.at(-1)[inHeading ? 'heading' : 'text'] += text;
    },
    onclosetag(name) {
      depth -= name === 'main' ? 1 : 0;
      inHeading &&= !/^h[1-6]$/.test(name);
      if (depth > 0 && !inHeading && /^(p|td|th|li|pre|h.)$/.test(name))
        found.at(-1).text += ' ';
    },
  });
  parser.end(html);
  return found.filter(({ heading }) => heading);
}

export class Sections {
  pages = new Map();

  add(page, html) {
    this.pages.set(page, sectionsOf(html));
  }

  /** @param words  gives the search words of a heading */
  write(output, files, root, words) {
    for (const language of ['en', 'zh']) {
      const index = new MiniSearch({ ...fields, tokenize: tokens, processTerm: (term) => term });
      let id = 0;
      for (const [page, sections] of this.pages) {
        if (page.language !== language)
          continue;
        for (const { fragment, heading, text } of sections) {
          index.add({
            id: id++, heading, page: page.title, words: words(heading), text: text.replace(/\s+/g, ' ').trim(),
            url: page.url.replace(`${language}/`, '') + (fragment ? `#${fragment}` : ''),
          });
        }
      }
      writeFileSync(join(output, `look/search.${language}.js`),
                    `window.siteSearch = { fields: ${JSON.stringify(fields)}, tokens: ${tokens}, index: ${JSON.stringify(JSON.stringify(index))} };\n`);
    }
    for (const file of files) {
      mkdirSync(join(output, 'files', dirname(file)), { recursive: true });
      cpSync(fileURLToPath(new URL(file, root)), join(output, 'files', file));
    }
  }
}
