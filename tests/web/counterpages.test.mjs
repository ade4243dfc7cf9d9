// SPDX-License-Identifier: MIT
//
// The counter pages in Chromium, from file://, with the real server and with one that sends what a
// test wants.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { after, before, test } from 'node:test';
import { WebSocket, WebSocketServer } from 'ws';
import { Browser, skip } from './browser.mjs';
import { startServer } from './server.mjs';

const pages = ['teller', 'callNo', 'pay', 'infoExchange', 'evaluate'];

let browser;
before(async () => {
  if (!skip)
    browser = await Browser.launch();
});
after(() => browser && browser.close());

/** A page with data in its address, or without any when data is undefined. */
async function open(name, data, viewport) {
  const fragment = data === undefined ? '' : '#data=' + encodeURIComponent(data);
  const page = await browser.open(new URL(`../../webSite/${name}.html`, import.meta.url).href + fragment, viewport);
  if (data !== undefined)
    await page.locator('body.ready').waitFor();
  return page;
}

/** What the customer reads. */
const seen = (page) => page.locator('body').innerText();

const close = (page) => browser.leave(page);

/** A server on the pages' port that records what it receives and answers "@" with the given texts. */
async function fakeServer(...answers) {
  const server = new WebSocketServer({ port: 1818, host: '127.0.0.1' });
  await once(server, 'listening');
  const fake = { texts: [], left: 0 };
  server.on('connection', (socket) => {
    socket.on('message', (bytes) => {
      fake.texts.push(bytes.toString());
      if (bytes.toString() === '@')
        answers.forEach((answer) => socket.send(answer));
    });
    socket.on('close', () => { fake.left++; });
  });
  fake.end = () => {
    server.clients.forEach((socket) => socket.terminate());
    return new Promise((resolve) => { server.close(resolve); });
  };
  return fake;
}

async function until(condition) {
  for (let i = 0; i < 200 && !condition(); i++)
    await new Promise((resolve) => { setTimeout(resolve, 50); });
  assert.ok(condition(), String(condition));
}

test('every page shows its data, in both languages, and fits small and large screens', { skip }, async () => {
  const cases = {
    teller: ['no=12,name=李晓梅,title=高级柜员,mood=good', /李晓梅[^]*高级柜员[^]*工号\s*12[^]*mood\s*good/, /Staff no\.\s*12/],
    callNo: ['no=A012,window=3,waiting=5', /A012[^]*请到 3 号窗口[^]*等候人数\s*5/, /go to counter 3/],
    pay: ['amount=1234.5,payee=社保,no=7,item=费用：20,item=a:b:x', /社保[^]*订单号\s*7[^]*费用\s*20\.00[^]*a:b\s*x[^]*¥1,234\.50/, /Order no\.\s*7/],
    infoExchange: ['name=张三,idno=110,address=A,B%2C C', /张三[^]*身份证号\s*110[^]*A,B, C/, /ID number\s*110/],
    evaluate: ['name=李,no=12', /满意吗[^]*李 · 12[^]*非常满意[^]*非常不满意/, /Very satisfied/],
  };
  for (const name of pages) {
    const [data, chinese, english] = cases[name];
    const page = await open(name, data, { width: 800, height: 600 });
    for (const [width, height] of [[800, 600], [1024, 600], [1920, 1080]]) {
      if (width > 800)
        await page.setViewportSize({ width, height });
      const hidden = await page.evaluate(() => {
        const main = document.querySelector('main');
        return [main.scrollHeight - main.clientHeight, main.scrollWidth - main.clientWidth];
      });
      assert.deepEqual(hidden, [0, 0], `${name} at ${width}x${height}`);
    }
    assert.match(await seen(page), chinese);
    await page.getByRole('button', { name: 'English' }).click();
    assert.match(await seen(page), english);
    assert.doesNotMatch(await seen(page), /请|窗口/);
    await close(page);
  }
});

test('a JSON object is data, and what only looks like one is a text', { skip }, async () => {
  const cases = {
    '{"No": 12, "amount": 1234.5, "item": ["a, b:20", "100%25:3"], "payee": null, "x": {"y": [true]}}':
        /订单号\s*12[^]*a, b\s*20\.00[^]*100%25\s*3\.00[^]*¥1,234\.50/,
    ' {"text": "<b>=,", "amount": "7"}': /¥7\.00[^]*<b>=,/,
    '{"amount": 7': /\{"amount": 7/,
    '[{"amount": 7}]': /\[\{"amount": 7/,
    '{}': /¥|缴费|支付/,
  };
  for (const [data, expected] of Object.entries(cases)) {
    const page = await open('pay', data);
    assert.match(await seen(page), expected);
    await close(page);
  }
});

test('much data is shown smaller and whole; too much is cut off at its end only', { skip }, async () => {
  const rows = (count) => Array.from({ length: count }, (_, i) => `key ${i}=value`).join(',');
  const cases = { teller: 'name=Alexandra Montgomery-Li,title=Adviser,' + rows(4), callNo: 'no=VIP-20261,window=Hall 2,' + rows(2),
                  pay: 'amount=1234567.89,' + rows(6), infoExchange: rows(8), evaluate: rows(3) };
  for (const name of pages) {
    const page = await open(name, cases[name] + ',lang=en', { width: 800, height: 600 });
    for (const [width, height] of [[800, 600], [1280, 800]]) {
      await page.setViewportSize({ width, height });
      const isWhole = ([w, h]) => innerWidth === w && innerHeight === h // it is fitted some frames later
          && ![...document.querySelectorAll('main, main section, .huge, .amount')]
              .some((box) => box.scrollWidth > box.clientWidth + 1 || box.scrollHeight > box.clientHeight + 20);
      await page.waitForFunction(isWhole, [width, height], { timeout: 10000 })
          .catch(() => assert.fail(`${name} is cut off at ${width}x${height}`));
    }
    await close(page);
    const crowded = await open(name, `no=${'9'.repeat(60)},amount=${'9'.repeat(60)},` + rows(60));
    const [from, to] = await crowded.evaluate(() => {
      const [main, first] = ['main', 'main *'].map((which) => document.querySelector(which).getBoundingClientRect());
      const below = document.querySelector('.actions');
      return [first.top - main.top, (below ? below.getBoundingClientRect().top : innerHeight) - main.bottom];
    });
    assert.ok(from >= 0 && to >= 0, name);
    await close(crowded);
  }
});

test('buttons stay in view with 100 kB of text, and there are none for nothing', { skip }, async () => {
  const long = '长文本 long '.repeat(10000);
  for (const [name, data] of [['evaluate', `text=${long}`], ['evaluate', `name=Li,text=${long},note=${long}`], ['evaluate', `name=${long}`],
                              ['infoExchange', `name=Li,ask=phone,text=${long}`], ['infoExchange', `ask=phone,title=${long}`]]) {
    const page = await open(name, data, { width: 800, height: 600 });
    const outside = await page.$$eval('main button:not([hidden]), .actions button', (all) => all.filter((each) => {
      const { top, bottom, height } = each.getBoundingClientRect();
      return top < 0 || bottom > innerHeight + 1 || height < 20;
    }).length);
    assert.equal(outside, 0, `${name} ${data.slice(0, 20)}`);
    assert.ok(await page.evaluate(() => [...document.querySelectorAll('button:not([hidden])')].every((each) => each.innerText.trim()
        || each.querySelector('svg'))));
    await close(page);
  }
  const page = await open('infoExchange', 'title=Data');
  assert.match(await seen(page), /目前没有需要您确认的信息/);
  assert.equal(await page.locator('.actions').count(), 0);
  await close(page);
});

test('data is never read as markup, and pictures come from this machine only', { skip }, async () => {
  const markup = '<img src=x onerror=alert(1)><script>alert(2)</script>';
  for (const name of pages) {
    const page = await open(name, `${markup},no=${markup},name=${markup},text=${markup},window=${markup},amount=${markup},`
                            + `currency=${markup},item=${markup}:${markup},title=${markup},ask=${markup},${markup}=1,__proto__=x,`
                            + 'photo=http://127.0.0.1:9/x.png,qr=javascript:alert(3)');
    assert.match(await seen(page), /<img src\s+x onerror=alert\(1\)>/, name); // a pair as well
    assert.equal(await page.locator('img, main script').count(), 0);
    await close(page);
  }
  const page = await open('teller', '');
  for (const [path, address] of [['/a b/#李.png', 'file:///a%20b/%23%E6%9D%8E.png'], ['li.jpg', 'li.jpg'],
                                 ['file:///a.png', 'file:///a.png'], ['//host/a.png', ''], ['file://host/a.png', ''],
                                 ['data:image/png;base64,x', ''], ['\\\\host\\a.png', '%5C%5Chost%5Ca.png']])
    assert.equal(await page.evaluate((text) => pictureAddress(text), path), address);
  await close(page);
});

test('without data in its address a page asks the server, and disconnects unless it has to answer', { skip }, async () => {
  const server = await fakeServer('/9j/4AAQ', 'BeginbStartPlaytrueEndbStartPlay', 'no=12,name=Li', 'late');
  try {
    const teller = await open('teller');
    await teller.getByText('Li', { exact: true }).waitFor();
    await until(() => server.left === 1);
    const rating = await open('evaluate');
    await rating.locator('#whom', { hasText: 'Li · 12' }).waitFor();
    assert.equal(server.left, 1, 'a page that will answer stays connected');
    await rating.getByRole('button', { name: '基本满意' }).click();
    await rating.getByText('感谢您的评价').waitFor();
    assert.deepEqual(server.texts, ['@', '@', '#BeginAfterDoGWQ_StartEvaluatorvalue=3,text=基本满意EndAfterDoGWQ_StartEvaluator']);
    assert.equal(server.left, 2);
    await Promise.all([close(teller), close(rating)]);
  } finally {
    await server.end();
  }
});

test('a lost connection is shown, and the answer is sent once the server is back', { skip }, async () => {
  const page = await open('evaluate', 'id=77,name=Li');
  await page.evaluate(() => { // retries within tenths of seconds
    const { setTimeout } = window;
    window.setTimeout = (act, milliseconds) => setTimeout(act, milliseconds / 10);
  });
  const best = page.getByRole('button', { name: '非常满意' });
  await best.dblclick();
  await page.getByText('连接中断').waitFor();
  for (const button of await page.locator('main button').all())
    assert.ok(await button.isDisabled());
  const server = await fakeServer();
  try {
    await page.getByText('感谢您的评价').waitFor();
    assert.equal(await page.getByText('连接中断').isVisible(), false);
    assert.deepEqual(server.texts, ['#BeginAfterDoGWQ_StartEvaluatorvalue=5,text=非常满意,id=77EndAfterDoGWQ_StartEvaluator']);
    await close(page);
  } finally {
    await server.end();
  }
});

test('the customer’s input reaches the page that sent the latest command', { skip }, async () => {
  const server = await startServer();
  const tellersPage = new WebSocket('ws://127.0.0.1:1818');
  try {
    await once(tellersPage, 'open');
    tellersPage.send('bGetPreviewEnable()');
    await once(tellersPage, 'message');
    const answers = [];
    tellersPage.on('message', (text) => answers.push(text.toString()));
    const answersOfCustomers = () => answers.filter((text) => text.includes('After'));

    const page = await open('infoExchange', 'name=张三,ask=phone,asklength=4,id=a%2Cb');
    const ok = page.getByRole('button', { name: '确认' });
    for (const key of ['1', '3', '9'])
      await page.getByRole('button', { name: key, exact: true }).click();
    assert.ok(await ok.isDisabled(), 'one digit is missing');
    await page.locator('.back').click();
    for (const key of ['0', '7', '7'])
      await page.getByRole('button', { name: key, exact: true }).click();
    await ok.click();
    await page.getByText('谢谢').waitFor();
    await until(() => answersOfCustomers().length === 1);
    assert.deepEqual(answersOfCustomers(), ['BeginAfterDoGWQ_StartInforesult=ok,phone=1307,id=a%2CbEndAfterDoGWQ_StartInfo']);
    await close(page);

    tellersPage.send('bGetPreviewEnable()'); // since the leaving page cleared the current client
    await until(() => answers.some((text) => text.startsWith('BeginbGetPreviewEnable')));
    const wrong = await open('infoExchange', 'name=张三,ask=phone');
    await wrong.getByRole('button', { name: '信息有误' }).click();
    await until(() => answersOfCustomers().length === 2);
    assert.equal(answersOfCustomers()[1], 'BeginAfterDoGWQ_StartInforesult=wrongEndAfterDoGWQ_StartInfo');
    await close(wrong);
  } finally {
    tellersPage.terminate();
    await server.end();
  }
});
