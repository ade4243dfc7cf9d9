// SPDX-License-Identifier: MIT
//
// usage: node check.mjs FOLDER
// Checks the built site: every link within it leads somewhere, nothing is loaded from elsewhere, and the
// Chinese pages have the sections of the English ones.
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import { dirname, join, normalize } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Parser } from 'htmlparser2';
import { headings } from './headings.mjs';
import { groups } from './pages.mjs';

const folder = process.argv[2];
const root = fileURLToPath(new URL('..', import.meta.url));
const faults = [];

/** Fragments and references of an HTML file. */
function parse(file) {
  const page = { ids: new Set(['']), links: [], resources: [] };
  const parser = new Parser({
    onopentag(name, { id, href, src, srcset, style }) {
      if (id !== undefined && page.ids.has(id))
        faults.push(`${file}: the id ${id} comes twice`);
      page.ids.add(id);
      if (href !== undefined)
        page[name === 'a' ? 'links' : 'resources'].push(href);
      page.resources.push(...[src, srcset].filter((each) => each !== undefined));
      if (/url\(/.test(style))
        faults.push(`${file}: a style loads something`);
    },
  });
  parser.end(readFileSync(join(folder, file), 'utf8'));
  return page;
}

const files = readdirSync(folder, { recursive: true });
const pages = new Map(files.filter((file) => file.endsWith('.html')).map((file) => [file, parse(file)]));

for (const [file, { links, resources }] of pages) {
  for (const link of [...links, ...resources]) {
    if (/^[a-z]+:|^\/\//.test(link)) {
      if (resources.includes(link))
        faults.push(`${file}: loads ${link}`);
      continue;
    }
    const [path, fragment = ''] = decodeURI(link).split('#');
    const to = path ? normalize(join(dirname(file), path)) : file;
    if (to.startsWith('..') || !existsSync(join(folder, to)))
      faults.push(`${file}: ${link} leads nowhere`);
    else if (fragment && !pages.get(to)?.ids.has(decodeURIComponent(fragment)))
      faults.push(`${file}: ${link}: there is no such heading`);
  }
}
for (const file of files.filter((each) => /\.css$/.test(each))) {
  if (/@import|url\(/.test(readFileSync(join(folder, file), 'utf8')))
    faults.push(`${file}: loads something`);
}

/** What a translation shares with its original: the levels of its headings, and the rows of tables below each. */
function shape(markdown) {
  const parts = markdown.replace(/^```[^]*?^```/gm, '').split(/^(?=#+ )/m);
  const levels = headings(markdown);
  return parts.filter((part) => part.startsWith('#')).map((part, index) =>
    ({ heading: levels[index].text, level: levels[index].level, rows: (part.match(/^\|/gm) ?? []).length }));
}

for (const english of groups.flatMap((group) => group.pages)) {
  const chinese = english.replace(/\.md$/, '.zh.md');
  if (!existsSync(join(root, chinese)))
    continue;
  const [one, other] = [english, chinese].map((file) => shape(readFileSync(join(root, file), 'utf8')));
  const at = one.findIndex(({ level, rows }, index) => level !== other[index]?.level || rows !== other[index].rows);
  if (at >= 0 || one.length !== other.length)
    faults.push(`${chinese}: differs from ${english} in its headings or rows, at "${(one[at] ?? other[one.length]).heading}"`);
}

for (const fault of faults)
  console.error(fault);
console.log(`${pages.size} pages, ${[...pages.values()].reduce((sum, { links }) => sum + links.length, 0)} links`);
process.exitCode = faults.length ? 1 : 0;
