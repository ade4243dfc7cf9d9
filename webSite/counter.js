// SPDX-License-Identifier: MIT
//
// The counter pages on the customer's screen. docs/counterpages.md describes the data of each.
//
//   Data      the text a page is given, such as "no=12,name=Li"
//   Server    gets the text from the device server, and sends it the customer's answer
//   View      elements in two languages, notices
//   Pages     how each page shows its data
//
// Runs from file:// and in Chromium 80: a plain script without newer syntax or functions. Data is
// shown only through textContent, never parsed as HTML.

'use strict';

// ---- Data ---------------------------------------------------------------------------------------

/** Labels of known keys: key, Chinese, English. Other keys are shown as they are. */
const LABELS = new Map([
  ['no', ['编号', 'No.']],
  ['name', ['姓名', 'Name']],
  ['title', ['职务', 'Position']],
  ['dept', ['部门', 'Department']],
  ['window', ['窗口', 'Counter']],
  ['business', ['业务', 'Service']],
  ['waiting', ['等候人数', 'Waiting']],
  ['payee', ['收款单位', 'Payee']],
  ['amount', ['金额', 'Amount']],
  ['idno', ['身份证号', 'ID number']],
  ['phone', ['手机号码', 'Phone number']],
  ['card', ['银行卡号', 'Card number']],
  ['account', ['账号', 'Account']],
  ['address', ['地址', 'Address']],
  ['sex', ['性别', 'Sex']],
  ['birth', ['出生日期', 'Date of birth']],
  ['date', ['日期', 'Date']],
]);

/** Keys with a meaning on every page: they never become rows. */
const COMMON_KEYS = ['lang', 'theme', 'text', 'id'];

const ESCAPES = { '%2c': ',', '%25': '%', '%0a': '\n' };

/** Escapes a value for use in a data text. */
function escapeValue(value) {
  return value.replace(/%/g, '%25').replace(/,/g, '%2C').replace(/\n/g, '%0A');
}

/**
 * The pairs of "key=value,key=value".
 *
 * A part without "=" belongs to the previous value, as in "text=Hello, please wait"; before the first
 * pair it is the value of "text".
 */
function pairsOfText(source) {
  const pairs = [];
  let text = null;
  for (const part of source.split(',')) {
    const equals = part.indexOf('=');
    const key = equals > 0 ? part.slice(0, equals).trim() : '';
    if (key)
      pairs.push([key, part.slice(equals + 1)]);
    else if (pairs.length > 0)
      pairs[pairs.length - 1][1] += ',' + part;
    else
      text = text === null ? part : text + ',' + part;
  }
  if (text)
    pairs.unshift(['text', text]);
  for (const pair of pairs)
    pair[1] = pair[1].replace(/%(2c|25|0a)/gi, (escape) => ESCAPES[escape.toLowerCase()]).trim();
  return pairs;
}

/** What a page shows of a JSON value. */
function textOfJson(value) {
  if (value === null)
    return '';
  return typeof value === 'object' ? JSON.stringify(value) : String(value).trim();
}

/** The members of a JSON object, one pair for each item of a list; null if the text is no object. */
function pairsOfJson(source) {
  let object = null;
  try {
    object = source.trim().startsWith('{') ? JSON.parse(source) : null;
  } catch (error) {
    return null; // a text that begins with a brace
  }
  return object && [].concat(...Object.entries(object).map(([key, value]) =>
    [].concat(value).map((item) => [key.trim(), textOfJson(item)])));
}

/** A parsed data text: a JSON object or "key=value,...". Keys are compared in lower case. */
class Data {
  constructor(source) {
    this.pairs = pairsOfJson(source) || pairsOfText(source);
  }

  /** All values of a key, in order. */
  all(key) {
    return this.pairs.filter((pair) => pair[0].toLowerCase() === key).map((pair) => pair[1]);
  }

  /** The first value of a key; '' if there is none. */
  get(key) {
    return this.all(key)[0] || '';
  }

  /** The pairs that have no place of their own on the page. */
  others(keys) {
    const taken = COMMON_KEYS.concat(keys);
    return this.pairs.filter((pair) => !taken.includes(pair[0].toLowerCase()));
  }
}

/** The data text in the page's address: percent-encoded UTF-8 after "#data="; null if none. */
function dataOfAddress() {
  const match = /^#(?:[^]*&)?data=([^&]*)/.exec(location.hash);
  if (!match)
    return null;
  try {
    return decodeURIComponent(match[1]);
  } catch (error) {
    return match[1]; // not percent-encoded: better shown unchanged than not at all
  }
}

/**
 * The address of a picture on this machine: an absolute path, file:///... or a path relative to the
 * page; '' for anything else, so that data never makes a page access the network.
 */
function pictureAddress(path) {
  if (/^file:\/\/\/[^/\\]/i.test(path))
    return path;
  if (path === '' || path.startsWith('//') || /^[a-z][a-z0-9+.-]*:/i.test(path))
    return '';
  const encoded = path.split('/').map(encodeURIComponent).join('/');
  return path.startsWith('/') ? 'file://' + encoded : encoded;
}

// ---- Server -------------------------------------------------------------------------------------

const SERVER_ADDRESS = 'ws://127.0.0.1:1818';

/** Seconds before each reconnection attempt; the last one repeats. */
const RETRY_SECONDS = [1, 2, 4, 5];

/**
 * The device server.
 *
 * Whenever a page disconnects, the server stops the preview and forgets the current page. So a counter
 * page connects only when it must, and disconnects as soon as the server has its answer, before the
 * teller's page can have sent its next command.
 */
class Server {
  /** @param onTrouble called with true when the server can't be reached, with false once it can */
  constructor(onTrouble) {
    this.onTrouble = onTrouble;
    this.socket = null;
  }

  /** The data text of the page the server has opened last. */
  async ask() {
    for (;;) {
      const socket = await this.connect();
      socket.send('@');
      const text = await new Promise((resolve) => {
        socket.onmessage = (event) => {
          const isOther = typeof event.data !== 'string' // preview frames and answers to others
              || event.data.startsWith('/9j/') || event.data.startsWith('Begin');
          if (!isOther)
            resolve(event.data);
        };
        socket.onclose = () => resolve(null);
      });
      socket.onmessage = null;
      if (text !== null)
        return text;
    }
  }

  /**
   * Sends a text to the page that sent the latest command, and disconnects. A clean close proves that
   * the server has read the text; otherwise it is sent again.
   */
  async deliver(text) {
    for (;;) {
      const socket = await this.connect();
      socket.send('#' + text);
      if (await this.leave())
        return;
      this.onTrouble(true);
      await pause(RETRY_SECONDS[0]);
    }
  }

  /** @returns whether the connection was closed cleanly */
  leave() {
    const socket = this.socket;
    this.socket = null;
    return new Promise((resolve) => {
      socket.onclose = (event) => resolve(event.wasClean);
      socket.close();
    });
  }

  /** The open connection, or a new one, however long that takes. */
  async connect() {
    for (let tries = 0; !this.socket || this.socket.readyState !== WebSocket.OPEN; tries++) {
      this.socket = await openSocket();
      if (!this.socket) {
        this.onTrouble(true);
        await pause(RETRY_SECONDS[Math.min(tries, RETRY_SECONDS.length - 1)]);
      }
    }
    this.onTrouble(false);
    return this.socket;
  }
}

/** @returns an open socket, or null if the server can't be reached */
function openSocket() {
  return new Promise((resolve) => {
    const socket = new WebSocket(SERVER_ADDRESS);
    socket.onopen = () => resolve(socket);
    socket.onclose = () => resolve(null);
  });
}

function pause(seconds) {
  return new Promise((resolve) => setTimeout(resolve, seconds * 1000));
}

// ---- View ---------------------------------------------------------------------------------------

function byId(id) {
  return document.getElementById(id);
}

/** An element with a class and text. */
function element(name, className, text) {
  const made = document.createElement(name);
  if (className)
    made.className = className;
  if (text !== undefined)
    made.textContent = text;
  return made;
}

/** Puts a text in both languages into an element; the style sheet shows one. */
function say(target, chinese, english) {
  target.textContent = '';
  for (const [lang, text] of [['zh', chinese], ['en', english]]) {
    const span = element('span', '', text);
    span.lang = lang;
    target.append(span);
  }
  return target;
}

/** Replaces the text of an element, if the data has one for it. */
function fill(id, text) {
  if (!text)
    return;
  byId(id).textContent = text;
  byId(id).classList.add('given');
}

function labelOf(key) {
  return LABELS.get(key.toLowerCase()) || [key, key];
}

/** Adds a row for each pair. @param labelOfNo the label of "no" on this page */
function fillRows(pairs, labelOfNo) {
  for (const [key, value] of pairs) {
    const label = labelOfNo && key.toLowerCase() === 'no' ? labelOfNo : labelOf(key);
    byId('rows').append(say(element('dt'), ...label), element('dd', '', value));
  }
}

/** Shows a picture inside an element once it is loaded. */
function showPicture(target, path) {
  const address = pictureAddress(path);
  if (!address)
    return;
  const picture = element('img');
  picture.alt = '';
  picture.onload = () => {
    target.textContent = '';
    target.append(picture);
    target.hidden = false;
    fit();
  };
  picture.src = address;
}

/** An SVG element; content is always a literal of this file. */
function drawing(content) {
  const svg = document.createElementNS('http://www.w3.org/2000/svg', 'svg');
  svg.setAttribute('viewBox', '0 0 100 100');
  svg.setAttribute('aria-hidden', 'true');
  svg.innerHTML = content;
  return svg;
}

const CHECK_MARK = '<circle cx="50" cy="50" r="46"></circle><path d="M28 52l16 16 30-34"></path>';

/** Replaces the page's content with a closing message. */
function showEnd(picture, chinese, english) {
  const end = element('div', 'end');
  end.append(picture, say(element('p', 'question'), ...chinese), say(element('p', 'lead'), ...english));
  const main = document.querySelector('main');
  main.className = '';
  main.textContent = '';
  main.append(end);
  const actions = document.querySelector('.actions');
  if (actions)
    actions.remove();
  fit();
}

/** Shows a line at the bottom of the page, which nothing covers. */
function notice(kind, chinese, english) {
  const line = byId('notice');
  line.className = kind;
  say(line, chinese, english);
  line.hidden = !chinese;
  fit();
}

/** Scales that are tried for the content; if none fits, it scrolls. */
const SIZES = [1, 0.95, 0.9, 0.85, 0.8, 0.75, 0.7];

/** Makes the content as large as possible uncut: customers may not know to scroll. */
function fit() {
  const main = document.querySelector('main');
  const boxes = [main].concat(Array.from(main.querySelectorAll('section, .huge, .amount')));
  const isCutOff = (box) => box.scrollWidth > box.clientWidth + 1
      || (!box.matches('p') && box.scrollHeight > box.clientHeight + 1);
  const fitsAt = (size) => {
    main.style.zoom = size;
    return !boxes.some(isCutOff);
  };
  main.classList.remove('crowded');
  // The largest that fits; a text that doesn't fit at the smallest takes long to lay out at each.
  const fits = fitsAt(1) || (fitsAt(SIZES[SIZES.length - 1]) && SIZES.some(fitsAt));
  main.classList.toggle('crowded', !fits);
}

function showTrouble(isTrouble) {
  if (isTrouble)
    notice('trouble', '与柜台的连接中断，正在重新连接，请稍候…',
           'Connection to the counter lost. Reconnecting, please wait…');
  else
    notice('', '', '');
}

/** Adds the buttons of the header and the line for notices. */
function addTools(root) {
  const tools = element('div', 'tools');
  const language = element('button');
  const contrast = element('button');
  say(language, 'English', '中文');
  say(contrast, '高对比度', 'Contrast');
  for (const button of [contrast, language]) {
    button.type = 'button';
    tools.append(button);
  }
  language.onclick = () => {
    root.lang = root.lang === 'zh' ? 'en' : 'zh';
    fit();
  };
  contrast.onclick = () => { root.classList.toggle('contrast'); };
  document.querySelector('header').append(tools);

  const line = element('p');
  line.id = 'notice';
  line.setAttribute('role', 'status');
  line.hidden = true;
  document.body.append(line);
}

// ---- Pages --------------------------------------------------------------------------------------

function showTeller(data) {
  showPicture(byId('portrait'), data.get('photo'));
  byId('name').textContent = data.get('name');
  byId('position').textContent = [data.get('title'), data.get('dept')].filter(Boolean).join(' · ');
  fill('text', data.get('text'));
  fillRows(data.others(['name', 'title', 'dept', 'photo']), ['工号', 'Staff no.']);
}

function showCall(data) {
  const number = data.get('no');
  byId('number').textContent = number;
  const counter = data.get('window');
  if (counter) {
    const parts = [['请到 ', 'Please go to counter '], [' 号窗口', '']].map(
        (words) => say(element('span'), ...words));
    byId('go').append(parts[0], element('b', '', counter), parts[1]);
  }
  if (!number) {
    document.querySelector('main').classList.add('wordy');
    say(byId('text'), '请等候叫号', 'Please wait until your number is called');
  }
  fill('text', data.get('text'));
  fillRows(data.others(['no', 'window']));
}

/** "1234.5" as an amount of money, "1,234.50"; anything but a plain number stays unchanged. */
function moneyText(text) {
  if (!/^-?\d{1,15}(\.\d{1,2})?$/.test(text))
    return text;
  const [whole, cents] = text.split('.');
  return whole.replace(/\B(?=(\d{3})+$)/g, ',') + '.' + (cents || '').padEnd(2, '0');
}

function showPayment(data) {
  const amount = data.get('amount');
  if (amount)
    byId('amount').append(element('small', '', data.get('currency') || '¥'), moneyText(amount));
  else
    document.querySelector('main').classList.add('wordy');
  for (const item of data.all('item')) {
    const parts = /^(.*)[:：](.*)$/.exec(item) || [item, item, ''];
    const row = byId('items').insertRow();
    row.insertCell().textContent = parts[1].trim();
    row.insertCell().textContent = moneyText(parts[2].trim());
  }
  showPicture(byId('code'), data.get('qr'));
  fill('text', data.get('text'));
  fillRows(data.others(['amount', 'currency', 'item', 'qr']), ['订单号', 'Order no.']);
  const hasBill = byId('rows').hasChildNodes() || byId('items').rows.length > 0;
  document.querySelector('main').classList.toggle('alone', !hasBill);
}

/**
 * Sends the customer's answer to the teller's page, in the form of an answer of the server.
 * @param pairs keys and values of the answer
 */
async function sendAnswer(server, name, data, pairs) {
  for (const button of document.querySelectorAll('main button, .actions button, main input'))
    button.disabled = true;
  notice('', '正在发送…', 'Sending…');
  const id = data.get('id');
  const answer = (id ? pairs.concat([['id', id]]) : pairs)
                     .map(([key, value]) => `${key}=${escapeValue(value)}`).join(',');
  await server.deliver(`BeginAfter${name}${answer}EndAfter${name}`);
  notice('', '', '');
}

function showInfo(data, server) {
  fill('text', data.get('text'));
  const heading = data.get('title');
  if (heading)
    document.querySelector('h1').textContent = heading;
  const ask = data.get('ask');
  fillRows(data.others(['title', 'ask', 'asklength', ask.toLowerCase()]));
  const answerOf = ask ? showEntry(ask, data) : () => [];
  if (!ask && !data.get('text') && !byId('rows').hasChildNodes()) {
    say(byId('text'), '目前没有需要您确认的信息', 'There is nothing to confirm at the moment');
    document.querySelector('.actions').remove();
    document.querySelector('main').classList.add('alone');
    return;
  }

  const answer = async (result, chinese, english) => {
    await sendAnswer(server, 'DoGWQ_StartInfo', data,
                     [['result', result]].concat(result === 'ok' ? answerOf() : []));
    showEnd(drawing(CHECK_MARK), ...chinese.concat(english));
  };
  // The server doesn't say whether a page of the teller has received it.
  byId('ok').onclick = () => answer('ok', [['已提交，谢谢！', 'Sent, thank you!']],
                                    [['请稍候；若柜员没有收到，请直接告知柜员',
                                      'One moment, please. If your teller has not received it, please say so.']]);
  byId('wrong').onclick = () => answer('wrong', [['已提交', 'Sent']],
                                       [['请向柜员说明有误之处', 'Please tell the teller what is wrong.']]);
}

/**
 * Shows the field for the customer's input, with a keypad.
 * @returns a function that returns the input as a list of one pair
 */
function showEntry(ask, data) {
  const field = byId('entry-value');
  const length = Math.min(parseInt(data.get('asklength'), 10) || 0, field.maxLength);
  const update = () => {
    const typed = field.value.trim().length;
    byId('ok').disabled = length > 0 ? typed !== length : typed === 0;
  };
  const type = (key) => {
    if (field.value.length < (length > 0 ? length : field.maxLength))
      field.value += key;
    update();
  };

  const [chinese, english] = labelOf(ask);
  say(byId('entry-label'), `请输入${chinese}`, `Please enter: ${english}`);
  field.value = data.get(ask.toLowerCase());
  field.oninput = update;
  const extra = { idno: 'X', amount: '.' }[ask.toLowerCase()] || '';
  for (const key of ['1', '2', '3', '4', '5', '6', '7', '8', '9', extra, '0']) {
    const button = element('button', '', key);
    button.type = 'button';
    button.onclick = () => type(key);
    button.hidden = !key;
    byId('pad').append(button);
  }
  const back = element('button', 'back'); // drawn: not every font has a sign for it
  back.append(drawing('<path d="M38 24h46v52h-46l-24-26zM50 40l20 20M70 40l-20 20"></path>'));
  back.type = 'button';
  back.setAttribute('aria-label', '删除 Delete');
  back.onclick = () => { field.value = field.value.slice(0, -1); update(); };
  byId('pad').append(back);
  byId('entry').hidden = false;
  document.querySelector('main').classList.add('asking');
  say(byId('ok'), '确认提交', 'Confirm');
  update();
  return () => [[ask, field.value.trim()]];
}

/** The five grades: number to send, Chinese, English, path of the mouth. */
const GRADES = [
  ['5', '非常满意', 'Very satisfied', 'M26 56q24 34 48 0z'],
  ['4', '满意', 'Satisfied', 'M28 60q22 20 44 0'],
  ['3', '基本满意', 'Fairly satisfied', 'M30 66h40'],
  ['2', '不满意', 'Dissatisfied', 'M30 72q20 -16 40 0'],
  ['1', '非常不满意', 'Very dissatisfied', 'M28 76q22 -28 44 0'],
];

function face(mouth) {
  return drawing('<circle cx="50" cy="50" r="46"></circle><circle class="eye" cx="34" cy="40" r="5">'
                 + '</circle><circle class="eye" cx="66" cy="40" r="5"></circle>'
                 + `<path d="${mouth}"></path>`);
}

function showEvaluation(data, server) {
  fill('text', data.get('text'));
  const teller = [data.get('name'), data.get('no')].filter(Boolean).join(' · ');
  if (teller)
    say(byId('whom'), `为您服务的柜员：${teller}`, `You were served by ${teller}`);
  fillRows(data.others(['name', 'no']));
  for (const [value, chinese, english, mouth] of GRADES) {
    const button = element('button', `grade grade-${value}`);
    button.type = 'button';
    button.append(face(mouth), say(element('span'), chinese, english));
    button.onclick = async () => {
      button.classList.add('chosen');
      await sendAnswer(server, 'DoGWQ_StartEvaluator', data, [['value', value], ['text', chinese]]);
      const picture = face(mouth);
      picture.setAttribute('class', `grade-${value}`);
      showEnd(picture, ['感谢您的评价！', 'Thank you!'],
              ['您的意见是我们改进的动力', 'Your feedback helps us improve.']);
    };
    byId('grades').append(button);
  }
}

const PAGES = new Map([
  ['teller', showTeller],
  ['callNo', showCall],
  ['pay', showPayment],
  ['infoExchange', showInfo],
  ['evaluate', showEvaluation],
]);

async function start() {
  const root = document.documentElement;
  const page = document.body.dataset.page;
  addTools(root);
  window.onhashchange = () => location.reload();
  document.oncontextmenu = (event) => event.preventDefault(); // opened by a long touch

  const server = new Server(showTrouble);
  let source = dataOfAddress();
  if (source === null) {
    notice('', '请稍候…', 'One moment, please…');
    source = await server.ask();
    if (page !== 'infoExchange' && page !== 'evaluate')
      server.leave();
    notice('', '', '');
  }
  const data = new Data(source);
  if (['zh', 'en'].includes(data.get('lang')))
    root.lang = data.get('lang');
  if (data.get('theme') === 'contrast')
    root.classList.add('contrast');
  PAGES.get(page)(data, server);
  window.onresize = fit;
  fit();
  document.body.classList.add('ready');
}

start();
