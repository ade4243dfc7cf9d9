// SPDX-License-Identifier: MIT
//
// Makes the site of the documents. Each page is a Markdown file of the tree, wherever it is, and its links
// are those of the tree: to another page, to a file, which is copied, or to a source, of which the site
// shows only the name.
import { existsSync, readFileSync, statSync } from 'node:fs';
import { posix } from 'node:path';
import anchor from 'markdown-it-anchor';
import { headings, slug } from './headings.mjs';
import { groups, words } from './pages.mjs';
import { Sections } from './sections.mjs';

const root = new URL('..', import.meta.url);
const read = (path) => readFileSync(new URL(path, root), 'utf8');
const exists = (path) => existsSync(new URL(path, root));
const facts = JSON.parse(read('docs/commands.json'));
const languages = ['en', 'zh'];
/** Files that pages link to and that a reader may want; of all others only the name is shown. */
const isForReaders = (path) => /^docs\/(images|examples)\//.test(path) || path.endsWith('.sample');

/** Characters of a name that is not broken at the end of a line. */
const longestWhole = 12;

const isChinese = (character) => /[\u3000-\u303f\u4e00-\u9fff\uff00-\uffef]/.test(character);

const nameOf = (source) => (source.endsWith('README.md') ? posix.dirname(source) : posix.basename(source, '.md')).toLowerCase();
const titleOf = (source) => headings(read(source))[0].text;

/** Every page in each language: where it comes from, where it goes. */
function allPages() {
  const pages = [];
  for (const { pages: sources } of groups) {
    for (const source of sources) {
      const chinese = source.replace(/\.md$/, '.zh.md');
      for (const language of languages) {
        const own = language === 'zh' && exists(chinese) ? chinese : source;
        pages.push({ language, english: source, source: own, url: `${language}/${nameOf(source)}.html`, title: titleOf(own) });
      }
    }
  }
  return pages;
}

/** What else a command may be looked for by. */
function searchWords(heading) {
  const command = facts.commands.find(({ name }) => name === heading);
  return command ? [facts.words?.[heading], facts.words?.[command.family]].join(' ') : '';
}

const pages = allPages();
const menuOf = (language) => groups.map(({ title, pages: sources }) => ({
  title: title[language],
  entries: sources.map((source) => pages.find((page) => page.language === language && page.english === source)),
}));

/** Where a link of a page leads in the site; null if it leads out of the documents. */
function target(page, link, files) {
  const [path, fragment] = link.split('#');
  const wanted = posix.join(posix.dirname(page.source), path);
  // A fragment is one of the page that is named; a link to a whole page goes to the same language.
  const isTranslated = page.language === 'zh' && page.source === page.english && fragment === undefined;
  const to = pages.find(({ language, source, english }) => language === page.language && (isTranslated ? english : source) === wanted)
      ?? pages.find(({ source }) => source === wanted);
  const up = posix.relative(posix.dirname(page.url), '.') || '.';
  if (to)
    return `${up}/${to.url}${fragment === undefined ? '' : `#${fragment}`}`;
  if (!exists(wanted))
    throw new Error(`${page.source}: ${link} leads nowhere`);
  if (!isForReaders(wanted) || statSync(new URL(wanted, root)).isDirectory())
    return null;
  files.add(wanted);
  return `${up}/files/${wanted}`;
}

export default function configure(site) {
  const files = new Set();
  const sections = new Sections();

  site.amendLibrary('md', (markdown) => {
    markdown.set({ html: true }).enable('code'); // by indentation, which Eleventy turns off
    markdown.use(anchor, { slugify: slug, tabIndex: false, uniqueSlugStartIndex: 1 });
    markdown.core.ruler.push('tree links', ({ tokens, env }) => {
      for (const { children } of tokens.filter(({ type }) => type === 'inline')) {
        let dropped = false;
        for (const token of children) {
          const name = token.type === 'image' ? 'src' : 'href';
          const link = token.attrGet(name);
          if (token.type === 'link_close' && dropped) {
            token.type = 'text';
            dropped = false;
          }
          if (!link || /^(#|[a-z]+:)/.test(link))
            continue;
          const to = target(env.entry, decodeURI(link), files);
          dropped = to === null;
          if (dropped)
            token.type = 'text'; // empty
          else
            token.attrSet(name, encodeURI(to));
        }
      }
    });
    // Where a line of Chinese text breaks in the source there is no blank.
    markdown.renderer.rules.softbreak = (tokens, at) => {
      const before = tokens.slice(0, at).findLast(({ content }) => content)?.content ?? '';
      const next = tokens.slice(at).find(({ content }) => content)?.content ?? '';
      return isChinese(before.slice(-1)) && isChinese(next[0]) ? '' : '\n';
    };
    // A short name is not broken, however narrow its column.
    markdown.renderer.rules.code_inline = (tokens, at) => {
      const text = markdown.utils.escapeHtml(tokens[at].content);
      return tokens[at].content.length <= longestWhole ? `<code class="whole">${text}</code>` : `<code>${text}</code>`;
    };
    // So that a wide table scrolls, not the page.
    markdown.renderer.rules.table_open = () => '<div class="wide"><table>\n';
    markdown.renderer.rules.table_close = () => '</table></div>\n';
  });

  for (const page of pages) {
    const { language, source } = page;
    const other = pages.find((each) => each.english === page.english && each.language !== language);
    site.addTemplate(`${page.url}.md`, read(source).replace(/^<!--.*-->\n/, ''), {
      layout: 'page.njk',
      permalink: page.url,
      templateEngineOverride: 'md',
      entry: page,
      language,
      contentLanguage: source.endsWith('.zh.md') ? 'zh' : 'en',
      title: page.title,
      menu: menuOf(language),
      word: words[language],
      other: posix.relative(language, other.url),
      onPage: headings(read(source)).filter(({ level }) => level === 2),
    });
  }
  site.addTransform('sections', function collect(html) {
    const page = pages.find(({ url }) => this.page.url === `/${url}`);
    if (page)
      sections.add(page, html);
    return html;
  });
  site.on('eleventy.after', ({ directories }) => sections.write(directories.output, files, root, searchWords));

  site.addPassthroughCopy({ 'site/look': 'look' });
  site.addPassthroughCopy({ 'site/node_modules/minisearch/dist/umd/index.js': 'look/minisearch.js' });
  return { dir: { input: 'site/pages', includes: '../layout', output: 'build/site' }, markdownTemplateEngine: false };
}
