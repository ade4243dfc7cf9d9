// SPDX-License-Identifier: MIT
//
// What is likely wrong with an argument, in the form that the server reads it. Everything can be sent
// all the same: how the server takes a wrong argument may be what somebody wants to see.

'use strict';

/** The whole numbers that the server reads. */
const NUMBER_LIMIT = 2 ** 31;

/** What an argument's text is checked for, by its type: @returns a text to show, '' if nothing is wrong. */
const TYPE_CHECKS = {
  integer(value) {
    if (!/^\s*[+-]?\d+\s*$/.test(value))
      return t('check.integer');
    return Math.abs(Number(value)) < NUMBER_LIMIT ? '' : t('check.range');
  },
  number: (value) => (/^\s*[+-]?(\d+\.?\d*|\.\d+)(e[+-]?\d+)?\s*$/i.test(value) ? '' : t('check.number')),
  boolean: (value) => (/^(0|1|true|false)$/i.test(value) ? '' : t('check.boolean')),
  base64: (value) => (/^[A-Za-z0-9+/\s]*={0,2}\s*$/.test(value) && value.replace(/[\s=]/g, '').length % 4 !== 1 ? ''
    : t('check.base64')),
  hex: (value) => (/^([0-9a-f]{2})*$/i.test(value) ? '' : t('check.hex')),
  color: (value) => (/^(0x[0-9a-f]{1,6}|\d{1,8})$/i.test(value) ? '' : t('check.color')),
  text: () => '',
};

/** Whether an argument is a path on the server's machine: those have one as their example. */
function isPath({ name, type, example, choices }) {
  return type === 'text' && !choices && name !== 'page' && (example || '').startsWith('/');
}

/**
 * @param started  whether something has been typed or sent: nobody is reproached for an empty form
 * @returns what is wrong with one argument; '' if nothing is
 */
function argumentWarning(argument, value, started) {
  if (value === '')
    return argument.optional || !started ? '' : t('check.missing');
  if (argument.choices && !argument.choices.some((choice) => choice.value === value))
    return t('check.choice', argument.choices.map((choice) => choice.value).join(', '));
  const values = argument.repeat ? value.split(',') : [value];
  const wrong = values.map(TYPE_CHECKS[argument.type]).find(Boolean);
  if (wrong)
    return wrong;
  if (isPath(argument) && !value.startsWith('/'))
    return t('check.path');
  return value.trim() === value ? '' : t('check.blanks');
}

/** @returns a warning about the text as a whole; '' if nothing is wrong */
function countWarning(command, text) {
  const { arguments: expected, split, tooFew } = command;
  if (split !== 'comma') // a command without arguments ignores them
    return split === 'none' && argumentText(text) !== '' ? t('check.ignored') : '';
  const parts = argumentText(text).split(',').length;
  const needed = expected.filter((argument) => !argument.optional).length;
  if (parts > expected.length && !expected[expected.length - 1].repeat)
    return t('check.many', expected.length, parts);
  if (parts < needed && tooFew !== undefined)
    return t('check.few', needed, parts, tooFew || t('result.empty'));
  return '';
}
