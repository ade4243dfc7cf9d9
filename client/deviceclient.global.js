// SPDX-License-Identifier: MIT
// Generated from client/deviceclient.js and docs/commands.json by scripts/generate-reference.mjs: the same as
// a classic script, for pages without modules and from file://. All exports are properties of
// DeviceClient.
(function (global) {
'use strict';

// Generated from docs/commands.json by scripts/generate-reference.mjs.

/** What the client knows about each command; its types are in commands.d.ts. */
const commands = {
  bStopPlay: { reply: 'boolean', timeout: 30000, late: true, to: 'all', dropped: true },
  bStartPlay: { reply: 'boolean', timeout: 30000, late: true, to: 'all', dropped: true },
  bStartPlay2: { reply: 'boolean', timeout: 30000, late: true, to: 'all', dropped: true },
  bStartPlayRotate: { reply: 'boolean', split: 'whole', fields: { angle: 'integer' }, timeout: 30000, late: true, to: 'all', dropped: true },
  bStartPlay4: { reply: 'boolean', timeout: 30000 },
  bStopPlay4: { reply: 'boolean', timeout: 30000 },
  bStartPlay6: { reply: 'boolean', timeout: 30000, late: true, to: 'all', dropped: true },
  vSetImageDispFlag: { reply: 'empty', split: 'whole', fields: { on: 'boolean' } },
  bStartPlay3: { reply: 'boolean', timeout: 30000, late: true, to: 'all', dropped: true },
  vZoomOut: { reply: 'empty' },
  vZoomIn: { reply: 'empty' },
  vZoomOriginal: { reply: 'empty' },
  vSetPreViewSize: { reply: 'empty', split: 'comma', fields: { width: 'integer', height: 'integer' } },
  vSetZoomFactor: { reply: 'empty', split: 'whole', fields: { percent: 'integer' } },
  bStartPlayOpen: { reply: 'boolean', timeout: 30000, late: true, to: 'all', dropped: true, otherFrames: ['bDualCameraOpen'] },
  bStartPlay5: { reply: 'boolean', timeout: 30000, late: true, to: 'all', dropped: true },
  bStartPlay8: { reply: 'boolean', timeout: 30000, late: true, to: 'all', dropped: true },
  bStartPlay9: { reply: 'boolean', timeout: 30000, late: true, to: 'all', dropped: true },
  bAVPreview: { reply: 'boolean', split: 'comma', fields: { first: 'integer', second: 'integer' }, timeout: 30000 },
  vSetPreviewEnable: { reply: 'boolean', split: 'whole', fields: { on: 'boolean' } },
  bGetPreviewEnable: { reply: 'boolean' },
  displayVideoPara: { reply: 'boolean' },
  bSetMode: { reply: 'boolean', split: 'whole', fields: { mode: 'integer' } },
  vSetSkewFlag: { reply: 'boolean' },
  vSetDelHBFlag: { reply: 'boolean' },
  vSetFocus: { reply: 'boolean' },
  vSetVideoCompressType: { reply: 'boolean' },
  vSetRotate: { reply: 'boolean', split: 'comma', fields: { angle: 'integer' } },
  vSetResolutionEx: { reply: 'boolean', split: 'comma', fields: { camera: 'integer', index: 'integer' } },
  bSetBookScannerMode: { reply: 'boolean', split: 'whole', fields: { mode: 'integer' } },
  igetBookScannerMode: { reply: 'number' },
  vSetExposure: { reply: 'boolean', split: 'whole', fields: { value: 'integer' } },
  vSetBrightness: { reply: 'boolean', split: 'whole', fields: { value: 'integer' } },
  vSetContrast: { reply: 'boolean', split: 'whole', fields: { value: 'integer' } },
  vSetResolution: { reply: 'boolean', split: 'whole', fields: { index: 'integer' } },
  getAllResolutions: { reply: 'json', split: 'whole', fields: { camera: 'integer' } },
  getAllResolutionsEx: { reply: 'json', split: 'whole', fields: { camera: 'integer' } },
  setResolutionXY: { reply: 'boolean', split: 'comma', fields: { width: 'integer', height: 'integer' } },
  setResolutionExXY: { reply: 'boolean', split: 'comma', fields: { camera: 'integer', width: 'integer', height: 'integer' } },
  iGetResolutionX: { reply: 'number', split: 'whole', fields: { camera: 'integer' } },
  iGetResolutionY: { reply: 'number', split: 'whole', fields: { camera: 'integer' } },
  vSetImageQuality: { reply: 'boolean', split: 'whole', fields: { quality: 'integer' } },
  sGetImageQuality: { reply: 'number' },
  bSetImageArea: { reply: 'boolean', split: 'comma', fields: { x1: 'integer', y1: 'integer', x2: 'integer', y2: 'integer' } },
  lGetImageAreaX1: { reply: 'number' },
  lGetImageAreaX2: { reply: 'number' },
  lGetImageAreaY1: { reply: 'number' },
  lGetImageAreaY2: { reply: 'number' },
  vSetCamaraMode: { reply: 'boolean', split: 'whole', fields: { mode: 'integer' } },
  vSetDPI: { reply: 'boolean', split: 'comma', fields: { x: 'integer', y: 'integer' } },
  vGetDPI: { reply: 'pair' },
  iGetRotate: { reply: 'number' },
  vSetFlip: { reply: 'boolean', split: 'comma', fields: { mode: 'integer' } },
  iGetFlip: { reply: 'number' },
  vSetCapturePin: { reply: 'none' },
  AutoFocus: { reply: 'boolean' },
  bSaveJPG: { reply: 'boolean', split: 'comma', fields: { folder: 'text', name: 'text' }, timeout: 30000 },
  bSaveTifJPG: { reply: 'boolean', split: 'comma', fields: { folder: 'text', name: 'text' }, timeout: 30000 },
  bSaveGray: { reply: 'boolean', split: 'comma', fields: { folder: 'text', name: 'text' }, timeout: 30000 },
  bSaveTIF24Bit: { reply: 'boolean' },
  bSaveTIF: { reply: 'boolean', split: 'comma', fields: { folder: 'text', name: 'text' }, timeout: 30000 },
  bSaveGrayAndTIF: { reply: 'boolean', split: 'comma', fields: { greyFolder: 'text', greyName: 'text', tiffFolder: 'text', tiffName: 'text' }, timeout: 30000 },
  bSaveBMP: { reply: 'boolean', split: 'comma', fields: { folder: 'text', name: 'text' }, timeout: 30000 },
  bSavePNG: { reply: 'boolean', split: 'comma', fields: { folder: 'text', name: 'text' }, timeout: 30000 },
  sGetJpgBase64: { reply: 'text', timeout: 30000 },
  sGetImageBase64: { reply: 'text', split: 'whole', fields: { kind: 'integer' }, timeout: 30000 },
  sGetBase64: { reply: 'text', timeout: 30000 },
  bSaveJPGEx: { reply: 'text', timeout: 30000 },
  SplitPic: { reply: 'boolean', split: 'comma', fields: { picture: 'text', folder: 'text' }, timeout: 30000 },
  Base64Encode: { reply: 'text', split: 'whole', fields: { file: 'text' }, timeout: 30000 },
  Base64Decode: { reply: 'boolean', split: 'comma', fields: { base64: 'base64', file: 'text' }, timeout: 30000 },
  bSavePDFStart: { reply: 'boolean', split: 'comma', fields: { folder: 'text', name: 'text' } },
  bSavePDFColorPage: { reply: 'boolean', timeout: 60000 },
  bSavePDFEnd: { reply: 'boolean', timeout: 120000 },
  bSavePDFBWPage: { reply: 'boolean', timeout: 60000 },
  bAddPDFColorPage: { reply: 'boolean', split: 'comma', fields: { picture: 'text', place: 'number' }, required: 1, timeout: 60000 },
  bAddPDFBWPage: { reply: 'boolean', split: 'comma', fields: { picture: 'text', place: 'number' }, required: 1, timeout: 60000 },
  bSaveMergeStart: { reply: 'boolean', split: 'comma', fields: { folder: 'text', name: 'text', direction: 'integer', gap: 'integer', maxWidth: 'integer', maxHeight: 'integer' } },
  bSaveMergePage: { reply: 'boolean', timeout: 60000 },
  bSaveMergeEnd: { reply: 'boolean', timeout: 120000 },
  bAddPDFBase64ColorPage: { reply: 'boolean', split: 'whole', fields: { image: 'base64' }, timeout: 60000 },
  bSaveOFDStart: { reply: 'boolean', split: 'comma', fields: { folder: 'text', name: 'text' } },
  bSaveOFDEnd: { reply: 'boolean', timeout: 120000 },
  bSaveOFDColorPage: { reply: 'boolean', timeout: 60000 },
  bAddOFDPage: { reply: 'boolean', split: 'comma', fields: { picture: 'text', place: 'number' }, required: 1, timeout: 60000 },
  bSaveOFDBWPage: { reply: 'boolean', timeout: 60000 },
  bAddOFDBase64ColorPage: { reply: 'boolean', split: 'whole', fields: { image: 'base64' }, timeout: 60000 },
  iAutoScan: { reply: 'none', split: 'comma', fields: { on: 'integer', folder: 'text', prefix: 'text' } },
  iTimerScan: { reply: 'boolean', split: 'comma', fields: { seconds: 'integer', folder: 'text', prefix: 'text', shots: 'integer' } },
  bBookScanner: { reply: 'boolean', split: 'comma', fields: { folder: 'text', prefix: 'text', format: 'text' }, required: 2 },
  bStartRec: { reply: 'boolean', split: 'whole', fields: { file: 'text' } },
  bStopRec: { reply: 'boolean', timeout: 200000, late: true, to: 'all', alone: true },
  bStartRecMp3: { reply: 'boolean', split: 'whole', fields: { file: 'text' } },
  isRecording: { reply: 'boolean' },
  bPauseRec: { reply: 'boolean' },
  bResumeRec: { reply: 'boolean' },
  vSetRecSize: { reply: 'empty', split: 'comma', fields: { width: 'integer', height: 'integer' } },
  vSetWaterPrint: { reply: 'boolean', split: 'comma', fields: { on: 'boolean', text: 'text', opacity: 'integer' } },
  vSetWaitePrintFont: { reply: 'boolean', split: 'comma', fields: { font: 'text' } },
  vSetWaterPrintFontSize: { reply: 'boolean', split: 'comma', fields: { points: 'integer' } },
  vSetWaterPrintFontColor: { reply: 'boolean', split: 'comma', fields: { color: 'color' } },
  vSetWaterPrintPos: { reply: 'boolean', split: 'comma', fields: { x: 'integer', y: 'integer' }, required: 1 },
  bPrintImage: { reply: 'boolean', split: 'comma', fields: { copies: 'integer', picture: 'text', color: 'integer' }, timeout: 30000 },
  bPrint: { reply: 'boolean', split: 'comma', fields: { copies: 'integer' }, timeout: 30000 },
  bPrintImageFile: { reply: 'boolean', split: 'comma', fields: { picture: 'text', copies: 'integer' }, required: 1, timeout: 30000 },
  sGetBarCode: { reply: 'list', split: 'comma', fields: { picture: 'text' }, timeout: 30000 },
  sGetBarCodeOnline: { reply: 'list', timeout: 30000, latin1: true },
  sGetBarCodeEx: { reply: 'list', split: 'comma', fields: { kind: 'integer', picture: 'text' }, timeout: 30000 },
  sOCRToString: { reply: 'boolean' },
  ReadCard: { reply: 'json', split: 'comma', fields: { reserved: 'text', parameter: 'text' }, required: 0, timeout: 30000 },
  bOpenIDCardReader: { reply: 'boolean', split: 'whole', fields: { port: 'text' }, required: 0 },
  sIDCardReader: { reply: 'json', timeout: 60000, late: true, to: 'all' },
  bGetSAMStatus: { reply: 'boolean' },
  bPlayVoice: { reply: 'boolean', split: 'whole', fields: { number: 'integer' } },
  bOpenIDCardSerialPort: { reply: 'boolean', split: 'whole', fields: { device: 'text' } },
  sReadIDCardSnr: { reply: 'text', timeout: 30000 },
  iReadICCardSnr: { reply: 'number', timeout: 30000 },
  bCloseIDCardDevie: { reply: 'boolean' },
  GetSAMID: { reply: 'text' },
  iReadCardBas_noPasam: { reply: 'json', split: 'whole', fields: { type: 'integer' }, required: 0, timeout: 30000 },
  iReadCardBas_noPasamVX: { reply: 'empty', split: 'whole', fields: { type: 'integer' }, required: 0 },
  readIDMsg: { reply: 'json', timeout: 30000 },
  readIDMsgVX: { reply: 'json', timeout: 30000 },
  GetBankCardInfo: { reply: 'json', split: 'whole', fields: { type: 'integer' }, required: 0, timeout: 30000 },
  iReadCardBasEx: { reply: 'json', split: 'whole', fields: { type: 'integer' }, required: 0, timeout: 30000 },
  sIDCardReaderVX: { reply: 'json', timeout: 30000 },
  WReadCardBasEx: { reply: 'json', split: 'whole', fields: { type: 'integer' }, required: 0, timeout: 30000 },
  WReadSFZCardBas: { reply: 'json', timeout: 60000 },
  bImageMatch: { reply: 'boolean', split: 'comma', fields: { image1: 'text', image2: 'text' }, timeout: 60000 },
  lImageMatch: { reply: 'number', split: 'comma', fields: { image1: 'text', image2: 'text' }, timeout: 60000, late: true, to: 'all', alone: true },
  lImageIdMatch: { reply: 'number', split: 'comma', fields: { image1: 'text', image2: 'text' }, timeout: 60000 },
  lFaceMatch: { reply: 'number', split: 'comma', fields: { image: 'text' }, timeout: 60000 },
  bLivingBodyDetect: { reply: 'boolean', timeout: 60000, late: true, to: 'all' },
  bImageMatchOnline: { reply: 'boolean', split: 'comma', fields: { image: 'text', seconds: 'integer', b: 'integer', c: 'integer' }, timeout: 30000 },
  bLivingBodyDetectOnline: { reply: 'boolean', split: 'comma', fields: { seconds: 'integer', b: 'integer' }, timeout: 30000 },
  bFaceFeatureGetOnline: { reply: 'boolean', split: 'comma', fields: { seconds: 'integer', b: 'integer' }, timeout: 30000 },
  bFaceFeatureGet: { reply: 'text', split: 'comma', fields: { fromFile: 'boolean', image: 'text', text: 'text' }, timeout: 60000 },
  lFaceFeatureMatch: { reply: 'number', split: 'comma', fields: { feature1: 'base64', feature2: 'base64' } },
  ShowLivingBodyPage: { reply: 'boolean', timeout: 120000, late: true, alone: true },
  AutoLivingBody: { reply: 'boolean', timeout: 30000 },
  CloseLivingBody: { reply: 'boolean', timeout: 30000, late: true, to: 'all' },
  fingerCaptureRawData: { reply: 'json', split: 'whole', fields: { seconds: 'integer' }, required: 0, timeout: 75000, late: true, alone: true },
  lFingerMatch: { reply: 'number', split: 'comma', fields: { mode: 'integer', feature: 'hex', count: 'integer', stored: 'hex' }, repeat: true, timeout: 30000 },
  bSaveZAZFPBMP: { reply: 'boolean' },
  bSaveZAZFPBMPBase64: { reply: 'boolean' },
  sEnumUSBDevice: { reply: 'list' },
  sServerVersion: { reply: 'text' },
  sGetSerialNum: { reply: 'text' },
  version: { reply: 'text' },
  sGetDevicesId: { reply: 'list' },
  GetDeviceStatus: { reply: 'list' },
  getVersion: { reply: 'text' },
  sUpLoadImage: { reply: 'text', split: 'comma', fields: { address: 'text', file: 'text', fileField: 'text', extra: 'text', remove: 'boolean' }, required: 2, timeout: 620000 },
  sUpLoadImageEx2: { reply: 'text', split: 'comma', fields: { host: 'text', page: 'text', port: 'integer', file: 'text' }, timeout: 620000 },
  sUpLoadImageEx5: { reply: 'text', split: 'comma', fields: { host: 'text', page: 'text', port: 'integer', file: 'text', switch: 'integer', extra: 'text', fileField: 'text', progress: 'boolean', result: 'boolean' }, timeout: 620000, late: true, alone: true },
  sUpLoadImageEx6: { reply: 'text', split: 'comma', fields: { address: 'text', file: 'text', fileField: 'text', extra: 'text', remove: 'boolean', unused: 'text' }, required: 2, timeout: 620000 },
  bUpLoadImage: { reply: 'boolean', split: 'comma', fields: { host: 'text', page: 'text', port: 'integer', file: 'text' }, timeout: 620000 },
  bDeleteFileForever: { reply: 'boolean', split: 'comma', fields: { file: 'text' } },
  bDeleteFile: { reply: 'boolean', split: 'whole', fields: { file: 'text' } },
  bCopyFile: { reply: 'boolean', split: 'comma', fields: { from: 'text', to: 'text' } },
  bMoveFile: { reply: 'boolean', split: 'comma', fields: { from: 'text', to: 'text' } },
  bReNameFile: { reply: 'boolean', split: 'comma', fields: { from: 'text', to: 'text' } },
  bFileIsExist: { reply: 'boolean', split: 'whole', fields: { file: 'text' } },
  bDirIsExist: { reply: 'boolean', split: 'whole', fields: { folder: 'text' } },
  OpenFile: { reply: 'boolean', split: 'whole', fields: { file: 'text' } },
  IsExeExist: { reply: 'boolean' },
  bDispPath: { reply: 'boolean', split: 'whole', fields: { folder: 'text' } },
  bCreateDir: { reply: 'boolean', split: 'whole', fields: { folder: 'text' } },
  sGetAllFormatFiles: { reply: 'list', split: 'comma', fields: { folder: 'text', format: 'text' } },
  sGetTempPath: { reply: 'text' },
  DoGWQ_StartSign: { reply: 'boolean', split: 'comma', fields: { pdf: 'text', xml: 'text', location: 'text', retain: 'text', timeout: 'integer' }, timeout: 170000 },
  DoGWQ_StartSignEx: { reply: 'boolean', split: 'comma', fields: { pdf: 'text', xml: 'text', location: 'text', retain: 'text', timeout: 'integer' }, timeout: 170000 },
  DoGWQ_StartInfo: { reply: 'boolean', split: 'whole', fields: { data: 'text' }, timeout: 170000 },
  DoGWQ_StartEvaluator: { reply: 'boolean', split: 'whole', fields: { data: 'text' }, timeout: 170000 },
  GWQ_TellerInfo: { reply: 'boolean', split: 'whole', fields: { data: 'text' }, timeout: 170000 },
  GWQ_CallNumber: { reply: 'boolean', split: 'whole', fields: { data: 'text' }, timeout: 170000 },
  GWQ_PaymentInfo: { reply: 'boolean', split: 'whole', fields: { data: 'text' }, timeout: 170000 },
  OpenURL: { reply: 'boolean', split: 'whole', fields: { url: 'text' }, timeout: 170000 },
  WebbrowserExit: { reply: 'boolean', timeout: 70000 },
};

/** The kinds of result of framed events. */
const events = {
  vSetCapturePin: 'boolean',
  bStopPlay: 'boolean',
  bStartPlay: 'boolean',
  iAutoScan: 'number',
  AfterbImageMatchOnline: 'number',
  AfterbFaceFeatureGetOnline: 'text',
  AfterbLivingBodyDetectOnline: 'boolean',
  AfterbLivingBodyDetectEvent2: 'json',
};

//
// The client of the device server: commands as promises, pushed texts as events, and a preview.
//
//   Errors        what can go wrong
//   Texts         commands and answers on the wire
//   DeviceClient  the connection, pending calls, events
//   Preview       draws the newest frame
//
// For Chromium 80 and newer, and for Node with its own WebSocket class or one passed as an option.

// ---- Errors -------------------------------------------------------------------------------------

/** Base of all errors of this client: they have a name, and a code that never changes. */
class DeviceError extends Error {
  constructor(code, message) {
    super(message);
    this.name = new.target.name;
    this.code = code;
  }
}

/** There is no such command; the server would not answer. */
class UnknownCommandError extends DeviceError {
  constructor(name) {
    const meant = Object.keys(commands).find((each) => each.toLowerCase() === name.trim().toLowerCase());
    super('UNKNOWN_COMMAND', meant ? `there is no command ${name}; did you mean ${meant}?`
      : `there is no command ${name}`);
  }
}

/** Arguments that the command doesn't accept or the protocol can't carry. */
class ArgumentError extends DeviceError {
  constructor(name, what) {
    super('BAD_ARGUMENT', `${name}: ${what}`);
  }
}

/** Nothing listens at the address. */
class ServerNotRunningError extends DeviceError {
  constructor(url) {
    super('SERVER_NOT_RUNNING', `no connection to ${url}: the device server is not running there`);
  }
}

/**
 * The browser apparently blocks the connection; see docs/integration.md.
 */
class RefusedByBrowserError extends DeviceError {
  constructor(url, why) {
    super('REFUSED_BY_BROWSER', `the browser refuses the connection to ${url}: ${why}`);
  }
}

/** The connection was lost; for a call: before its answer arrived. */
class ConnectionLostError extends DeviceError {
  constructor(name) {
    super('CONNECTION_LOST', 'the connection to the device server was lost'
        + (name ? ` before ${name} was answered` : ''));
  }
}

/** No answer arrived in time. */
class CallTimeoutError extends DeviceError {
  constructor(name, milliseconds, fact) {
    const taken = fact.late && !fact.to
      ? 'it may have gone to another page that sent a command meanwhile, or been dropped because a page disconnected'
      : 'the server may be busy, perhaps with another page';
    const dropped = fact.dropped ? ', or AutoLivingBody may have dropped it' : '';
    super('TIMED_OUT', `no answer to ${name} within ${milliseconds / 1000} s: ${taken}${dropped}`);
  }
}

/** close() was called. */
class ClosedError extends DeviceError {
  constructor() {
    super('CLOSED', 'this client was closed');
  }
}

// ---- Texts --------------------------------------------------------------------------------------

/** The bytes FF D8 FF at the start of every JPEG, and so of every frame, in base64. */
const frameStart = '/9j/';

/** In bytes. The server disconnects a page that sends a longer message. */
const maxMessage = 256 * 1024 * 1024;

/** Names are shorter: the search for the end of an answer looks no further back. */
const nameLimit = 100;

/** The entry of a name in a table, ignoring inherited members such as "toString". */
function entryOf(table, name) {
  return Object.prototype.hasOwnProperty.call(table, name) ? table[name] : undefined;
}

const frameNames = new Map();
for (const [name, { otherFrames }] of Object.entries(commands)) {
  for (const other of otherFrames || [])
    frameNames.set(other, name);
}

/**
 * Parses "Begin<name><result>End<name>". Nothing separates the name from the result, so the name is
 * found at the end of the text; results may contain "End" and names may end with it.
 *
 * @returns {{name: string, result: string}|null} null if the text is not framed
 */
function parseAnswer(text) {
  if (!text.startsWith('Begin'))
    return null;
  const nameStart = 'Begin'.length;
  let other = null;
  let end = text.lastIndexOf('End');
  while (end >= nameStart && text.length - end < nameLimit) {
    const name = text.slice(end + 'End'.length);
    const resultStart = nameStart + name.length;
    if (name && resultStart <= end && text.startsWith(name, nameStart)) {
      const answer = { name, result: text.slice(resultStart, end) };
      if (entryOf(commands, name) || entryOf(events, name) || frameNames.has(name))
        return answer;
      other = other || answer;
    }
    end = text.lastIndexOf('End', end - 1);
  }
  return other;
}

/** Argument types on the wire; the server takes an empty number for a missing one. */
const forms = {
  integer: [/^([+-]?\d+)?$/, 'a whole number'],
  number: [/^([+-]?\d+(\.\d+)?)?$/, 'a number'],
  boolean: [/^[01]$/, 'true or false, 1 or 0'],
};

/** An argument as { text } for the wire, or { fault }: what is wrong with it. */
function fieldOf(type, value, splitAtCommas) {
  const sent = type === 'boolean' && typeof value === 'boolean' ? Number(value) : value;
  if (typeof sent !== 'string' && typeof sent !== 'number')
    return { fault: `must be a text or a number, not ${sent === null ? 'null' : typeof sent}` };
  const text = String(sent);
  const [form, what] = forms[type] || [];
  if (form && !form.test(text))
    return { fault: `must be ${what}, not ${JSON.stringify(text)}: the server would read 0` };
  if (text.includes('\0'))
    return { fault: 'contains a NUL character, at which the device library would cut the text off' };
  if (splitAtCommas && text.includes(','))
    return { fault: 'contains a ",", which separates arguments in the protocol' };
  return { text };
}

/**
 * The text that call() sends.
 *
 * @throws UnknownCommandError, ArgumentError
 */
function commandText(name, args) {
  const fact = entryOf(commands, name);
  if (!fact)
    throw new UnknownCommandError(String(name));
  const { split, fields = {}, repeat, required } = fact;
  const names = Object.keys(fields);
  const given = args.slice();
  while (given.length > 0 && given[given.length - 1] === undefined)
    given.pop(); // same as left out
  const minimum = required === undefined ? names.length : required;
  if (given.length < minimum)
    throw new ArgumentError(name, `needs ${minimum} arguments (${names.join(', ')}), got ${given.length}`);
  if (given.length > names.length && !repeat)
    throw new ArgumentError(name, `takes ${names.length || 'no'} arguments, got ${given.length}`);
  const texts = given.map((value, index) => {
    const field = names[Math.min(index, names.length - 1)];
    const { text, fault } = fieldOf(fields[field], value === undefined ? '' : value, split === 'comma');
    if (fault)
      throw new ArgumentError(name, `${field} ${fault}`);
    return text;
  });
  const text = `${name}(${texts.join(',')})`;
  if (text.length > maxMessage)
    throw new ArgumentError(name, 'longer than the 256 MiB that the server accepts');
  return text;
}

function jsonOr(text) {
  try {
    return JSON.parse(text);
  } catch {
    return text || null; // a vendor's device library may answer with its own texts
  }
}

/** Decodes a text whose characters are bytes of UTF-8; unchanged if they are not. */
function utf8Of(latin1) {
  try {
    return new TextDecoder('utf-8', { fatal: true })
        .decode(Uint8Array.from(latin1, (character) => character.charCodeAt(0)));
  } catch {
    return latin1;
  }
}

const results = {
  boolean: (text) => text === 'true',
  number: (text) => Number(text),
  text: (text) => text,
  json: jsonOr,
  list: (text) => (text === '' ? [] : text.split('|')),
  pair: (text) => text.slice(1, -1).split(',').map(Number),
  empty: () => undefined,
};

/** The result of an answer or event of this name, in its type; the text for unknown names. */
function resultOf(name, text) {
  const fact = entryOf(commands, name) || {};
  const kind = fact.reply && fact.reply !== 'none' ? fact.reply : entryOf(events, name) || 'text';
  return results[kind](fact.latin1 ? utf8Of(text) : text);
}

// ---- DeviceClient -------------------------------------------------------------------------------

const defaults = {
  url: 'ws://127.0.0.1:1818',
  /** Milliseconds that a call waits for its answer; more for commands known to take longer. */
  timeout: 10000,
  /** Milliseconds for an attempt to connect; more while the browser asks its user. */
  connectTimeout: 15000,
  /** Milliseconds before each reconnection attempt; the last one repeats. Empty: no attempts. */
  retryDelays: [500, 1000, 2000, 4000, 8000, 15000],
};

/** Default facts, for a command that is sent raw. */
const rawFact = { reply: 'text', late: true };

/** The maximum of timers, about 24 days; anything longer, even Infinity, would fire at once. */
const maxTimer = 2 ** 31 - 1;

/** The client's own events, which a text relayed by another page must not imitate. */
const ownEvents = new Set(['open', 'close', 'frame', 'text', 'late', 'message', 'drawn']);

/** A connection that ends sooner counts as a failed attempt, so that attempts slow down. */
const stableMilliseconds = 5000;

/**
 * A page's connection to the device server.
 *
 * Events, heard with on():
 *   open                 connected or reconnected; the server has stopped the preview meanwhile
 *   close    error       the connection was lost, or an attempt failed; the error has retryIn
 *   frame    base64      a preview frame, JPEG
 *   <name>   result      a framed text that no call waits for: vSetCapturePin, iAutoScan, ...
 *   text     text, json  a text without a frame: the signature service's, the browser helper's
 *   late     {name, result}  an answer whose call has timed out
 *   message  text        every text as received
 *   drawn    preview     a Preview has drawn a frame
 */
class DeviceClient {
  /**
   * @param options  url, timeout, connectTimeout, retryDelays (all in milliseconds), and WebSocket:
   *                 the class to use if there is no global one
   */
  constructor(options = {}) {
    this.options = { ...defaults, ...options };
    this.listeners = new Map();
    this.waiting = new Map(); // pending calls by name, oldest first
    this.queues = new Map(); // by name: end of the queue of commands that are sent one at a time
    this.socket = null;
    this.state = 'closed'; // closed, connecting, open, waiting (to reconnect)
    this.lastError = null;
    this.failures = 0; // attempts in a row without a stable connection
    this.everOpen = false;
    this.closings = 0; // number of calls of close()
    this.connection = null; // promise of the latest attempt
    this.abandonTry = null; // rejects it
    this.retryTimer = 0;
  }

  /** Listens to an event. @returns a function that removes the listener */
  on(event, listener) {
    if (!this.listeners.has(event))
      this.listeners.set(event, new Set());
    this.listeners.get(event).add(listener);
    return () => this.off(event, listener);
  }

  off(event, listener) {
    const listeners = this.listeners.get(event);
    if (listeners)
      listeners.delete(listener);
  }

  /** An exception in a listener is reported like any of the page's, and affects nothing else. */
  emit(event, ...values) {
    for (const listener of Array.from(this.listeners.get(event) || [])) {
      try {
        listener(...values);
      } catch (error) {
        setTimeout(() => { throw error; });
      }
    }
  }

  /**
   * Connects, and reconnects after failures and lost connections until close() is called.
   *
   * @returns a promise that settles with the first attempt: rejected with ServerNotRunningError or
   *          RefusedByBrowserError
   */
  connect() {
    if (this.state === 'open')
      return Promise.resolve();
    if (this.state !== 'connecting')
      this.tryToConnect();
    return this.connection;
  }

  /** Ends the connection and all attempts, and rejects pending calls. */
  close() {
    this.closings += 1;
    clearTimeout(this.retryTimer);
    const socket = this.socket;
    this.socket = null;
    this.state = 'closed';
    this.failures = 0;
    if (socket)
      socket.close();
    if (this.abandonTry)
      this.abandonTry(new ClosedError()); // no effect once the attempt has settled
    this.rejectAll(() => new ClosedError());
  }

  /**
   * Sends a command.
   *
   * @returns a promise of its result, in the command's type; resolves to undefined at once for
   *          commands that are never answered
   */
  call(name, ...args) {
    return this.callWith({}, name, ...args);
  }

  /**
   * call() with options: timeout, in milliseconds; raw: sends any name with unchecked arguments, and
   * resolves to the result's text.
   */
  async callWith({ timeout, raw }, name, ...args) {
    const text = raw ? `${name}(${args.join(',')})` : commandText(name, args);
    const fact = raw ? rawFact : commands[name];
    const limit = Math.min(timeout || Math.max(fact.timeout || 0, this.options.timeout), maxTimer);
    if (fact.alone)
      return this.inTurn(name, () => this.sendCall(name, fact, text, limit));
    return this.sendCall(name, fact, text, limit);
  }

  /** Sends a text unchanged: "@" asks for the shown page's data, "#..." goes to the current page. */
  async send(text) {
    if (this.state !== 'open')
      await this.whenOpen();
    this.socket.send(text);
  }

  /** Draws the frames; see Preview. */
  preview(target) {
    return new Preview(this, target);
  }

  // -- Calls --

  /** Runs calls of a name one at a time: the server would mix up their answers. */
  inTurn(name, run) {
    const { closings } = this;
    const turn = (this.queues.get(name) || Promise.resolve()).then(() => {
      if (closings !== this.closings)
        throw new ClosedError();
      return run();
    });
    this.queues.set(name, turn.catch(() => {}));
    return turn;
  }

  async sendCall(name, fact, text, limit) {
    if (this.state !== 'open')
      await this.whenOpen();
    if (fact.reply === 'none') {
      this.socket.send(text);
      return undefined;
    }
    return new Promise((resolve, reject) => {
      const call = { name, fact, resolve, reject, timedOut: false, timer: 0 };
      call.timer = setTimeout(() => this.timeOut(call, limit), limit);
      if (!this.waiting.has(name))
        this.waiting.set(name, []);
      this.waiting.get(name).push(call);
      this.socket.send(text);
    });
  }

  /**
   * The call stays in the queue if its answer is certain to arrive, so that a later call of the same
   * name does not get it. It is not certain if it can go to another page, if the server may drop it,
   * and for unknown names.
   */
  timeOut(call, limit) {
    call.timedOut = true;
    if (call.fact.late && (call.fact.to !== 'all' || call.fact.dropped)) {
      const calls = this.waiting.get(call.name);
      calls.splice(calls.indexOf(call), 1);
    }
    call.reject(new CallTimeoutError(call.name, limit, call.fact));
  }

  rejectAll(errorFor) {
    const calls = Array.from(this.waiting.values()).flat();
    this.waiting.clear();
    for (const call of calls) {
      clearTimeout(call.timer);
      call.reject(errorFor(call));
    }
  }

  // -- Received texts --

  received(text) {
    this.emit('message', text);
    if (text.startsWith(frameStart)) {
      this.emit('frame', text);
      return;
    }
    const answer = parseAnswer(text);
    if (!answer || ownEvents.has(answer.name)) {
      const value = jsonOr(text);
      this.emit('text', text, value !== null && typeof value === 'object' ? value : undefined);
      return;
    }
    const name = frameNames.get(answer.name) || answer.name;
    const result = resultOf(name, answer.result);
    const call = (this.waiting.get(name) || []).shift();
    if (!call) {
      this.emit(name, result);
    } else if (call.timedOut) {
      this.emit('late', { name, result });
    } else {
      clearTimeout(call.timer);
      call.resolve(call.fact === rawFact ? answer.result : result);
    }
  }

  // -- The connection --

  /** Connects unless an attempt has failed already. */
  async whenOpen() {
    if (this.state === 'waiting')
      throw this.lastError;
    await this.connect();
    if (this.state !== 'open')
      throw new ClosedError(); // by a listener
  }

  tryToConnect() {
    clearTimeout(this.retryTimer);
    this.state = 'connecting';
    this.connection = new Promise((resolve, reject) => {
      this.abandonTry = reject;
      this.openSocket(resolve, reject);
    });
    this.connection.catch(() => {}); // callers of connect() get the error
  }

  openSocket(resolve, reject) {
    const { url, connectTimeout } = this.options;
    const WebSocketClass = this.options.WebSocket || globalThis.WebSocket;
    let socket;
    try {
      socket = new WebSocketClass(url);
    } catch (error) {
      this.state = 'closed';
      this.lastError = error.name === 'SecurityError' ? new RefusedByBrowserError(url, error.message)
        : new ArgumentError('url', error.message);
      reject(this.lastError);
      return;
    }
    this.socket = socket;
    let openedAt = 0;
    const giveUpWhenNobodyIsAsked = async () => {
      const state = await permissionState();
      if (socket.readyState !== 0)
        return; // the user has answered by now
      if (state === 'prompt')
        timer = setTimeout(giveUpWhenNobodyIsAsked, connectTimeout);
      else
        socket.close();
    };
    let timer = setTimeout(giveUpWhenNobodyIsAsked, connectTimeout);
    socket.onopen = () => {
      clearTimeout(timer);
      if (socket !== this.socket)
        return;
      openedAt = Date.now();
      this.everOpen = true;
      this.state = 'open';
      resolve();
      this.emit('open');
    };
    socket.onmessage = ({ data }) => {
      if (socket === this.socket)
        this.received(String(data));
    };
    socket.onerror = () => {}; // onclose follows; Node requires a listener
    socket.onclose = async () => {
      clearTimeout(timer);
      if (socket !== this.socket)
        return;
      if (openedAt) {
        if (Date.now() - openedAt >= stableMilliseconds)
          this.failures = 0;
        this.rejectAll((call) => new ConnectionLostError(call.name));
        this.retryLater(new ConnectionLostError());
        return;
      }
      const error = await whyNoConnection(url, this.everOpen);
      if (socket !== this.socket)
        return; // closed meanwhile
      this.retryLater(error);
      reject(error);
    };
  }

  retryLater(error) {
    const { retryDelays } = this.options;
    this.socket = null;
    this.lastError = error;
    if (retryDelays.length === 0) {
      this.state = 'closed';
    } else {
      this.state = 'waiting';
      error.retryIn = retryDelays[Math.min(this.failures, retryDelays.length - 1)];
      this.failures += 1;
      this.retryTimer = setTimeout(() => this.tryToConnect(), error.retryIn);
    }
    this.emit('close', error);
  }
}

/** The browser's permission for this page to reach this machine: granted, denied, prompt or ''. */
async function permissionState() {
  const permissions = globalThis.navigator && globalThis.navigator.permissions;
  if (!permissions)
    return '';
  for (const name of ['loopback-network', 'local-network-access']) {
    try {
      return (await permissions.query({ name })).state;
    } catch {
      // unknown to this browser
    }
  }
  return '';
}

/**
 * Browsers give no reason. The permission is the only hint, and no hint where none is needed, as
 * between a page and a server on the same machine.
 */
async function whyNoConnection(url, everOpen) {
  const { protocol, hostname } = globalThis.location || {};
  const isLocalPage = protocol === 'file:' || /^(localhost|127\..*|\[::1\])$/.test(hostname);
  if (!everOpen && !isLocalPage && await permissionState() === 'denied')
    return new RefusedByBrowserError(url, 'this page has no permission to reach this machine, '
        + 'unless it needs none and the device server is not running');
  return new ServerNotRunningError(url);
}

// ---- Preview ------------------------------------------------------------------------------------

/**
 * Draws the newest frame on an <img> or <canvas>. While a frame is being decoded, only the newest of
 * the following ones is kept; a hidden page decodes nothing.
 */
class Preview {
  constructor(client, target) {
    this.client = client;
    this.target = target;
    this.received = 0;
    this.drawn = 0;
    this.dropped = 0; // replaced by a newer one
    this.broken = 0; // not a readable JPEG
    this.waiting = null;
    this.drawing = false;
    this.drawWaiting = this.drawWaiting.bind(this);
    this.end = client.on('frame', (base64) => this.frame(base64));
    document.addEventListener('visibilitychange', this.drawWaiting);
  }

  /** Stops drawing; the last frame stays. */
  stop() {
    this.end();
    this.waiting = null;
    document.removeEventListener('visibilitychange', this.drawWaiting);
  }

  frame(base64) {
    this.received += 1;
    if (this.waiting !== null)
      this.dropped += 1;
    this.waiting = base64;
    this.drawWaiting();
  }

  async drawWaiting() {
    if (this.drawing)
      return;
    this.drawing = true;
    while (this.waiting !== null && !document.hidden) {
      const base64 = this.waiting;
      this.waiting = null;
      try {
        await this.draw(new Blob([bytesOf(base64)], { type: 'image/jpeg' }));
      } catch {
        this.broken += 1;
      }
    }
    this.drawing = false;
  }

  async draw(blob) {
    if (this.target.getContext) // not instanceof: it may belong to another window
      await drawOnCanvas(this.target, blob);
    else
      await showInImage(this.target, blob);
    this.drawn += 1;
    this.client.emit('drawn', this);
  }
}

function bytesOf(base64) {
  const characters = atob(base64);
  const bytes = new Uint8Array(characters.length);
  for (let i = 0; i < characters.length; i += 1)
    bytes[i] = characters.charCodeAt(i);
  return bytes;
}

async function drawOnCanvas(canvas, blob) {
  const picture = globalThis.createImageBitmap ? await createImageBitmap(blob)
    : await showInImage(new Image(), blob);
  if (canvas.width !== picture.width || canvas.height !== picture.height) {
    canvas.width = picture.width;
    canvas.height = picture.height;
  }
  canvas.getContext('2d').drawImage(picture, 0, 0);
  if (picture.close)
    picture.close();
}

/** @returns a promise of the element, settled once it shows the picture */
function showInImage(image, blob) {
  const url = URL.createObjectURL(blob);
  return new Promise((resolve, reject) => {
    image.onload = () => resolve(image);
    image.onerror = reject;
    image.src = url;
  }).finally(() => URL.revokeObjectURL(url));
}

global.DeviceClient = Object.assign(DeviceClient, { commands, events, DeviceError, UnknownCommandError, ArgumentError, ServerNotRunningError, RefusedByBrowserError, ConnectionLostError, CallTimeoutError, ClosedError, parseAnswer, commandText, Preview });
})(typeof globalThis === 'object' ? globalThis : this);
