// SPDX-License-Identifier: MIT
//
// Finds commands by everyday words, English or Chinese: "take photo", "qr", "怎么读身份证".

'use strict';

/** Words that say nothing about a command. */
const FILLERS = new Set(('a an and are can could do does for from get give how i in is it me my of on please '
  + 'should the this to want we what which with you').split(' '));
const CHINESE_FILLERS = /怎么样|怎么|怎样|如何|请问|我要|我想|能否|可以|一下|哪个|什么|[请想把将被的了吗呢在给我]/g;

/** What a word found there counts. */
const WEIGHTS = { name: 6, words: 4, summary: 3, family: 1.5, argument: 1 };

const isChinese = (text) => /[\u3400-\u9fff]/.test(text);

/** The part that all forms of an English word share: "scanning", "scans" and "scan" are the same. */
function stem(word) {
  const bare = word.length > 3 ? word.replace(/(?:ings?|ed|er|es|s)$/, '') : word;
  const start = bare.length > 2 ? bare : word;
  return start.replace(/([^aeiou])\1$/, '$1').replace(/(..)e$/, '$1');
}

/** The words of a name: "bSavePDFColorPage" has b, save, pdf, color and page. */
function nameWords(name) {
  return name.replace(/([a-z\d])([A-Z])/g, '$1 $2').replace(/([A-Z]+)([A-Z][a-z])/g, '$1 $2').toLowerCase();
}

function englishWords(text) {
  return text.toLowerCase().match(/[a-z\d]+/g) || [];
}

/** One place of a command where words are looked for. */
function placeOf(kind, text) {
  const words = englishWords(text);
  return { weight: WEIGHTS[kind], text: text.toLowerCase(), words: new Set(words), stems: new Set(words.map(stem)) };
}

function placesOf(command) {
  const family = facts.families.find((each) => each.id === command.family);
  const both = ({ en, zh }) => `${en} ${zh}`;
  const words = (window.deviceCommands && window.deviceCommands.words) || {};
  return [
    placeOf('name', `${command.name} ${nameWords(command.name)}`),
    placeOf('words', words[command.name] || ''),
    placeOf('summary', both(command.summary)),
    placeOf('family', `${both(family.title)} ${words[family.id] || ''}`),
    placeOf('argument', command.arguments.map((each) => `${each.name} ${both(each.about)}`).join(' ')),
  ];
}

/** @returns how well a word fits a place, from 0 to 1 */
function fitOf(place, word) {
  if (isChinese(word))
    return chineseFit(place.text, word);
  if (place.words.has(word))
    return 1;
  if (place.stems.has(stem(word)))
    return 0.9;
  if (word.length < 2)
    return 0;
  if ([...place.words].some((each) => each.startsWith(word)))
    return 0.7;
  return word.length > 2 && place.text.includes(word) ? 0.4 : 0;
}

/** Chinese has no blanks: a run of characters that isn't there as a whole counts by its pairs. */
function chineseFit(text, run) {
  if (text.includes(run))
    return run.length > 1 ? 1 : 0.5;
  const pairs = Array.from({ length: run.length - 1 }, (_, i) => run.slice(i, i + 2));
  const found = pairs.filter((pair) => text.includes(pair)).length;
  return found >= pairs.length / 2 && found > 0 ? 0.8 * found / pairs.length : 0;
}

/** Chinese words of a run of characters without blanks, the longest first that the facts know. */
function chineseWords(run) {
  const found = [];
  let rest = '';
  for (let i = 0; i < run.length;) {
    const length = [5, 4, 3, 2].find((each) => searchIndex.vocabulary.has(run.slice(i, i + each)));
    if (length)
      found.push(run.slice(i, i + length));
    else
      rest += run[i];
    i += length || 1;
  }
  return found.length ? found.concat(rest.length > 1 ? rest : []) : [run];
}

/** The words of a query that say something. */
function queryWords(query) {
  const words = query.toLowerCase().replace(CHINESE_FILLERS, ' ').match(/[a-z\d]+|[\u3400-\u9fff]+/g) || [];
  return [].concat(...words.filter((word) => !FILLERS.has(word))
      .map((word) => (isChinese(word) ? chineseWords(word) : word)));
}

let searchIndex = null; // made by the first search

function makeIndex() {
  const words = Object.values((window.deviceCommands && window.deviceCommands.words) || {});
  return {
    commands: facts.commands.map((command) => ({ command, places: placesOf(command) })),
    vocabulary: new Set(words.join(' ').split(' ').filter(isChinese)),
  };
}

/** Of the best score: less is not listed. */
const LEAST_SCORE = 0.35;

/** @returns the commands that fit a query, best first */
function searchCommands(query) {
  searchIndex = searchIndex || makeIndex();
  const words = queryWords(query);
  const typed = query.trim().toLowerCase();
  const all = searchIndex.commands.map(({ command, places }) => ({ command,
    scores: words.map((word) => places.reduce((sum, place) => sum + place.weight * fitOf(place, word), 0)) }));
  // What fits few commands counts most.
  const rarity = words.map((_, i) => 1 - Math.log(1 + all.filter(({ scores }) => scores[i] > 0).length)
      / Math.log(2 + 2 * all.length));
  const rated = all.map(({ command, scores }) => {
    const name = command.name.toLowerCase();
    const named = name === typed ? 100 : typed && name.startsWith(typed) ? 10 : 0;
    const share = scores.filter(Boolean).length / Math.max(words.length, 1);
    return { command, score: named + share * scores.reduce((sum, each, i) => sum + each * rarity[i], 0) };
  }).sort((one, other) => other.score - one.score);
  return rated.filter(({ score }) => score > 0 && score >= LEAST_SCORE * Math.min(rated[0].score, 40))
      .map((each) => each.command);
}
