// SPDX-License-Identifier: MIT
//
// The headings of a Markdown text, and the fragments that lead to them: those of the well-known hosts of
// source code, so that a link works there and in the site.

/** The fragment of a heading. */
export const slug = (text) => text.toLowerCase().replace(/[^\p{L}\p{M}\p{N}\-_ ]/gu, '').replaceAll(' ', '-');

/** All headings in their order: level, text, fragment. One that comes again has a number appended. */
export function headings(markdown) {
  const seen = new Map();
  return [...markdown.replace(/^```[^]*?^```/gm, '').matchAll(/^(#+) (.+)$/gm)].map(([, marks, source]) => {
    const text = source.replace(/\[([^\]]*)\]\([^)]*\)/g, '$1').replace(/[`*]/g, '').trim();
    const times = seen.get(slug(text)) ?? 0;
    seen.set(slug(text), times + 1);
    return { level: marks.length, text, fragment: times ? `${slug(text)}-${times}` : slug(text) };
  });
}
