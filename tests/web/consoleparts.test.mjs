// SPDX-License-Identifier: MIT
//
// The parts of the console that need no page: search, scripts, checks of arguments, reading the log.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { createContext, runInContext } from 'node:vm';

const context = createContext({ window: {}, TextDecoder, t: (key, ...values) => [key, ...values].join(' '), byId: () => ({}) });
for (const file of ['commands', 'protocol', 'search', 'scriptlanguage', 'results', 'checks', 'reason'])
  runInContext(readFileSync(new URL(`../../console/${file}.js`, import.meta.url), 'utf8'), context, file);

/** What a function of the console returns, as a value of this realm. */
function run(name, ...values) {
  context.values = values;
  const result = runInContext(`${name}(...values)`, context);
  return result === undefined ? result : JSON.parse(JSON.stringify(result));
}

const commandOf = (text) => run('facts.byName.get.bind(facts.byName)', text.slice(0, text.indexOf('(')));
const search = (query) => run('searchCommands', query).map((each) => each.name);

/** What is asked for, and commands of which one must be among the first five. */
const queries = `
take photo: bSaveJPG | take a picture: bSaveJPG | how do I scan a page: bSaveJPG iAutoScan iTimerScan | qr: sGetBarCode
scan qr code: sGetBarCodeOnline | barcode: sGetBarCode | scan: iAutoScan | open the camera: bStartPlay
turn off camera: bStopPlay | second camera: bStartPlay2 | rotate the image: vSetRotate | mirror: vSetFlip
make pdf: bSavePDFStart | picture to pdf: bAddPDFColorPage | add a page to the pdf: bSavePDFColorPage | record a video: bStartRec
stop recording: bStopRec | read id card: readIDMsg sIDCardReader | social security card: iReadCardBas_noPasam
bank card number: GetBankCardInfo | compare faces: bImageMatch lImageMatch | same person?: bImageMatch | liveness: bLivingBodyDetect
fingerprint: fingerCaptureRawData | print: bPrint | watermark: vSetWaterPrint | upload a file: sUpLoadImage bUpLoadImage
delete file: bDeleteFile | list files: sGetAllFormatFiles | read a file: Base64Encode | too dark: vSetBrightness vSetExposure
blurry: AutoFocus | image size: setResolutionXY vSetPreViewSize vSetResolution | crop: bSetMode bSetImageArea | sign document: DoGWQ_StartSign
customer rating: DoGWQ_StartEvaluator | queue number: GWQ_CallNumber | payment: GWQ_PaymentInfo | is the camera connected: GetDeviceStatus
version: getVersion version sServerVersion | USB devices: sEnumUSBDevice | scanning: iAutoScan | mirrored: vSetFlip | BSAVEJPG: bSaveJPG | getvers: getVersion
拍照: bSaveJPG | 怎么拍照片: bSaveJPG | 二维码: sGetBarCode | 扫描二维码: sGetBarCodeOnline sGetBarCode | 扫描: iAutoScan
打开摄像头: bStartPlay | 关闭摄像头: bStopPlay | 图片转PDF: bAddPDFColorPage | 合并图片: bSaveMergeStart | 读身份证: readIDMsg
社保卡: iReadCardBas_noPasam iReadCardBasEx | 银行卡: GetBankCardInfo | 人脸比对: lImageMatch bImageMatch lFaceMatch
活体检测: bLivingBodyDetect | 指纹采集: fingerCaptureRawData | 旋转画面: vSetRotate bStartPlayRotate | 水印: vSetWaterPrint
打印图片: bPrintImageFile bPrintImage | 录像: bStartRec | 上传文件: sUpLoadImage bUpLoadImage | 删除文件: bDeleteFile
客户签名: DoGWQ_StartSign | 叫号: GWQ_CallNumber | 满意度评价: DoGWQ_StartEvaluator | 分辨率: setResolutionXY getAllResolutions vSetResolution
设备是否连接: GetDeviceStatus | 文件是否存在: bFileIsExist | 黑边: bSetMode vSetDelHBFlag | 语音提示: bPlayVoice
`.trim().split(/\s*[|\n]\s*/).map((row) => row.split(/:\s+/));

test(`everyday words find commands: ${queries.length} queries`, () => {
  assert.ok(queries.length >= 60);
  const missed = queries.filter(([query, names]) => !search(query).slice(0, 5).some((name) => names.split(' ').includes(name)));
  assert.deepEqual(missed.map(([query, names]) => `${query}: ${search(query).slice(0, 5)} for ${names}`), []);
});

test('what fits nothing finds nothing, and a whole name comes first', () => {
  for (const query of ['xyzzy', '咖啡', 'the', '   ', '%$'])
    assert.deepEqual(search(query), [], query);
  assert.equal(search('version')[0], 'version');
  assert.equal(search('bStartPlay')[0], 'bStartPlay');
  assert.ok(search('pdf page').length < search('page').length, 'every word counts');
});

test('scripts: lines, loops, variables and expectations', () => {
  const kinds = {
    'getVersion()': 'command', 'x = getVersion()': 'command', 'x = getVersion': 'command', 'x = a(b': 'command', 'x = a b': 'set',
    'GWQ_TellerInfo(no=12,name=Li)': 'command', 'version': 'command', '@data': 'command', 'waiter': 'command', 'expect(1)': 'command',
    'wait 500': 'wait', 'WAIT FOR frame': 'event', 'wait for AfterX 30': 'event', 'repeat 3': 'repeat', 'repeat ${n}': 'repeat',
    'for x in a, b': 'for', 'expect true': 'expect', 'expect not /a b/i': 'expect',
    'wait': 'fault', 'wait 1s': 'fault', 'repeat': 'fault', 'for x': 'fault', 'expect': 'fault', end: 'end',
  };
  for (const [line, kind] of Object.entries(kinds))
    assert.equal(run('parseLine', line).kind, kind, line);
  assert.equal(run('parseLine', '  # comment'), null);
  const steps = run('parseScript', 'repeat 2\n\nfor x in a\n bDeleteFile(${x})\n expect false\nend\nend\nend\nrepeat 1');
  assert.deepEqual(steps.map(({ kind, line, loop, end, judged }) => [kind, line, loop ?? end ?? judged]), [['repeat', 0, 5],
    ['for', 2, 4], ['command', 3, true], ['expect', 4, undefined], ['end', 5, 1], ['end', 6, 0], ['fault', 7, undefined], ['fault', 8, undefined]]);

  runInContext('variables = new Variables()', context);
  for (const [name, value] of [['a', 'x'], ['card', '{"name":"Li","ages":[3,4],"more":{"no":1}}'], ['list', 'p|q']])
    run('variables.set.bind(variables)', name, value);
  const fill = (text) => run('variables.filled.bind(variables)', text);
  assert.equal(fill('${a} ${card.name} ${card.ages.1} ${card.more} ${list.1} ${list.length} $${a} $a {a}'), 'x Li 4 {"no":1} q 2 ${a} $a {a}');
  for (const missing of ['${b}', '${a.5}', '${card.x}', '${card.toString}'])
    assert.throws(() => fill(missing), /fault.variable/, missing);
  for (const [result, expected, is] of [['true', 'true', true], ['true', 'tru', false], ['abc', '/B/i', true], ['', '""', true],
                                        ['/a/', '/b/', false], ['a', '', false]])
    assert.equal(run('isAsExpected', result, expected), is, expected);
});

test('results become JUnit XML and CSV, whatever is in them', () => {
  const record = (text, mark, result) => ({ line: 3, text, mark, result, milliseconds: 1234, time: new Date(0) });
  const records = [record('a("<&")', 'good', 'true'), record('=1+1', 'bad', 'no\u0001, "x"\n')];
  const xml = run('junitXml', { records, startedAt: new Date(0), took: 5000 }, 'ws://a&b').replace(/\s+/g, ' ');
  assert.match(xml, /<testsuite name="console script" tests="2" failures="1" errors="0" skipped="0" time="5.000" timestamp="1970-01-01T00:00:00" hostname="ws:\/\/a&amp;b">/);
  assert.match(xml, /<testcase classname="script.line3" name="a\(&quot;&lt;&amp;&quot;\)" time="1.234"\/>/);
  assert.match(xml, /name="=1\+1" time="1.234"> <failure message="no\ufffd, &quot;x&quot;&#10;"\/> <\/testcase>/);
  assert.equal(run('csvText', { records }).split('\r\n')[2], `1970-01-01T00:00:00.000Z,3,'=1+1,failed,"no\u0001, ""x""\n",1234`);
});

test('arguments are checked as the server reads them', () => {
  const cases = [ // text, what is wrong with each field, and with the whole
    ['vSetPreViewSize(800,600)', '', ''], ['vSetPreViewSize(abc,1e3)', 'integer integer', ''], ['vSetPreViewSize(99999999999,-1)', 'range', ''],
    ['vSetPreViewSize(800)', 'missing', 'few 2 1 result.empty'], ['vSetPreViewSize(1,2,3)', '', 'many 2 3'],
    ['bSaveJPG(/tmp)', 'missing', 'few 2 1 false'], ['bSaveJPG(tmp,a)', 'path', ''], ['bSaveJPG(/tmp , a)', 'blanks blanks', ''],
    ['vSetRotate(45)', 'choice', ''], ['Base64Decode(QUJ,/tmp/a)', '', ''], ['Base64Decode(Q!==,/tmp/a)', 'base64', ''],
    ['lFingerMatch(1,0a,2,0b,0c)', '', ''], ['lFingerMatch(1,0a,2,0b,xy)', 'hex', ''], ['vSetWaterPrintFontColor(0xFF0000)', '', ''],
    ['vSetWaterPrintFontColor(red)', 'color', ''], ['bAddPDFColorPage(/tmp/a.jpg)', '', ''], ['getVersion(1)', '', 'ignored'],
    ['Base64Encode(/tmp/a,b)', '', ''],
  ];
  for (const [text, fields, whole] of cases) {
    const { arguments: expected, split } = commandOf(text);
    const parts = split === 'comma' ? run('argumentText', text).split(',') : [run('argumentText', text)];
    const values = expected.map((each, i) => (each.repeat ? parts.slice(i).join(',') : parts[i] || ''));
    const found = expected.map((each, i) => run('argumentWarning', each, values[i], true).split(' ')[0].replace('check.', '')).filter(Boolean);
    assert.equal(found.join(' '), fields, text);
    assert.equal(run('countWarning', commandOf(text), text).replace('check.', ''), whole, text);
  }
  assert.equal(run('argumentWarning', { type: 'integer', example: '1' }, '', false), '', 'an untouched form');
});

test('the reason of a failure is found in the log, and only its own', () => {
  const arrival = (text) => `244 slot_textMessageReceived websocketservermanager "${text}"\n"${text}"\n`;
  const log = `[start]\n${arrival('bDeleteFile(/a)')}portable: first\n131 operator() messagerun\n${arrival('bSaveJPG(\\"x\\",y)')}portable: second\n`
      + `${arrival('bDeleteFile(/a)')}portable: third\nportable: fourth\n${arrival('lFaceMatch(/b)')}${arrival('version()')}portable: late\n`;
  const cases = [
    ['bDeleteFile(/a)', 0, false, ['portable: third', 'portable: fourth']], ['bDeleteFile(/a)', 1, false, ['portable: first']],
    ['bDeleteFile(/a)', 2, false, null], ['bSaveJPG("x",y)', 0, false, ['portable: second']], ['lFaceMatch(/b)', 0, false, []],
    ['lFaceMatch(/b)', 0, true, ['portable: late']], ['bDelete(/a)', 0, false, null],
  ];
  for (const [sent, later, late, expected] of cases)
    assert.deepEqual(run('reasonLines', log, sent, later, late), expected, sent);
});
