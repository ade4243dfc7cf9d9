// SPDX-License-Identifier: MIT
// Generated from the modules of client/ and docs/commands.json by scripts/generate-reference.mjs: the same as
// a classic script, for pages without modules and from file://. All exports are properties of
// DeviceClient.
(function (global) {
'use strict';

// Generated from docs/commands.json by scripts/generate-reference.mjs.

/** What the client knows about each command; its types are in commands.d.ts. */
const commands = {
  bStopPlay: { reply: 'boolean', mark: 'bGetPreviewEnable', timeout: 30000, late: true, to: 'all', mistakable: 'unasked', dropped: true },
  bStartPlay: { reply: 'boolean', mark: 'bGetPreviewEnable', timeout: 30000, late: true, to: 'all', mistakable: 'unasked', dropped: true },
  bStartPlay2: { reply: 'boolean', mark: 'bGetPreviewEnable', timeout: 30000, late: true, to: 'all', mistakable: 'broadcast', dropped: true },
  bStartPlayRotate: { reply: 'boolean', split: 'whole', fields: { angle: 'integer' }, mark: 'bGetPreviewEnable', timeout: 30000, late: true, to: 'all', mistakable: 'broadcast', dropped: true },
  bStartPlay4: { reply: 'boolean', timeout: 30000 },
  bStopPlay4: { reply: 'boolean', timeout: 30000 },
  bStartPlay6: { reply: 'boolean', mark: 'bGetPreviewEnable', timeout: 30000, late: true, to: 'all', mistakable: 'broadcast', dropped: true },
  vSetImageDispFlag: { reply: 'empty', split: 'whole', fields: { on: 'boolean' } },
  bStartPlay3: { reply: 'boolean', mark: 'bGetPreviewEnable', timeout: 30000, late: true, to: 'all', mistakable: 'broadcast', dropped: true },
  vZoomOut: { reply: 'empty' },
  vZoomIn: { reply: 'empty' },
  vZoomOriginal: { reply: 'empty' },
  vSetPreViewSize: { reply: 'empty', split: 'comma', fields: { width: 'integer', height: 'integer' } },
  vSetZoomFactor: { reply: 'empty', split: 'whole', fields: { percent: 'integer' } },
  bStartPlayOpen: { reply: 'boolean', mark: 'bGetPreviewEnable', timeout: 30000, late: true, to: 'all', mistakable: 'broadcast', dropped: true, otherFrames: ['bDualCameraOpen'] },
  bStartPlay5: { reply: 'boolean', mark: 'bGetPreviewEnable', timeout: 30000, late: true, to: 'all', mistakable: 'broadcast', dropped: true },
  bStartPlay8: { reply: 'boolean', mark: 'bGetPreviewEnable', timeout: 30000, late: true, to: 'all', mistakable: 'broadcast', dropped: true },
  bStartPlay9: { reply: 'boolean', mark: 'bGetPreviewEnable', timeout: 30000, late: true, to: 'all', mistakable: 'broadcast', dropped: true },
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
  bStopRec: { reply: 'boolean', mark: 'isRecording', timeout: 200000, late: true, to: 'all', mistakable: 'broadcast', alone: true },
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
  sIDCardReader: { reply: 'json', mark: 'iReadCardBas_noPasamVX', timeout: 60000, late: true, to: 'all', mistakable: 'broadcast' },
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
  lImageMatch: { reply: 'number', split: 'comma', fields: { image1: 'text', image2: 'text' }, mark: 'lFaceFeatureMatch', timeout: 60000, late: true, to: 'all', mistakable: 'broadcast', alone: true },
  lImageIdMatch: { reply: 'number', split: 'comma', fields: { image1: 'text', image2: 'text' }, timeout: 60000 },
  lFaceMatch: { reply: 'number', split: 'comma', fields: { image: 'text' }, timeout: 60000 },
  bLivingBodyDetect: { reply: 'boolean', mark: 'lFaceFeatureMatch', timeout: 60000, late: true, to: 'all', mistakable: 'broadcast' },
  bImageMatchOnline: { reply: 'boolean', split: 'comma', fields: { image: 'text', seconds: 'integer', b: 'integer', c: 'integer' }, mark: 'lFaceFeatureMatch', timeout: 30000 },
  bLivingBodyDetectOnline: { reply: 'boolean', split: 'comma', fields: { seconds: 'integer', b: 'integer' }, mark: 'lFaceFeatureMatch', timeout: 30000 },
  bFaceFeatureGetOnline: { reply: 'boolean', split: 'comma', fields: { seconds: 'integer', b: 'integer' }, mark: 'lFaceFeatureMatch', timeout: 30000 },
  bFaceFeatureGet: { reply: 'text', split: 'comma', fields: { fromFile: 'boolean', image: 'text', text: 'text' }, timeout: 60000 },
  lFaceFeatureMatch: { reply: 'number', split: 'comma', fields: { feature1: 'base64', feature2: 'base64' } },
  ShowLivingBodyPage: { reply: 'boolean', mark: 'lFaceFeatureMatch', timeout: 120000, late: true, mistakable: 'current', alone: true },
  AutoLivingBody: { reply: 'boolean', mark: 'lFaceFeatureMatch', timeout: 30000 },
  CloseLivingBody: { reply: 'boolean', mark: 'lFaceFeatureMatch', timeout: 30000, late: true, to: 'all', mistakable: 'broadcast', always: true },
  fingerCaptureRawData: { reply: 'json', split: 'whole', fields: { seconds: 'integer' }, required: 0, mark: 'bSaveZAZFPBMP', timeout: 75000, late: true, mistakable: 'current', alone: true },
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
  AfterDoGWQ_StartInfo: 'text',
  AfterDoGWQ_StartEvaluator: 'text',
};

//
// What can go wrong.

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
 * The browser apparently blocks the connection: by its policy, or because its user said no.
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

const reasons = {
  turn: 'an earlier call of it has not ended, in this page or another tab',
  connection: 'there is no connection yet: the server does not respond, or the browser is asking its user',
  earlier: 'an earlier call of it, perhaps of a page that has gone, may still be answered',
  current: 'the answer may have gone to another page that sent a command meanwhile, or been dropped because a '
    + 'page disconnected',
  busy: 'the server may be busy, perhaps with another page',
};

/** No answer arrived in time. `phase` is what it was waiting for: turn, connection, earlier, answer. */
class CallTimeoutError extends DeviceError {
  constructor(name, milliseconds, phase = 'answer', fact = {}) {
    const why = reasons[phase] || (fact.late && !fact.to ? reasons.current : reasons.busy);
    const dropped = phase === 'answer' && fact.dropped ? ', or AutoLivingBody may have dropped it' : '';
    super('TIMED_OUT', `no answer to ${name} within ${milliseconds / 1000} s: ${why}${dropped}`);
    this.phase = phase;
  }
}

/** The call's AbortSignal was aborted; `reason` is the signal's, where the browser has one. */
class AbortError extends DeviceError {
  constructor(name, reason) {
    super('ABORTED', `${name} was aborted`);
    this.reason = reason;
  }
}

/** The device could not do it; `result` is what was answered. Only the jobs report failures in this way. */
class FailedError extends DeviceError {
  constructor(name, result, message) {
    super('FAILED', `${name} failed: ${message || 'the log of the server has the reason'}`);
    this.result = result;
  }
}

/** close() was called. */
class ClosedError extends DeviceError {
  constructor() {
    super('CLOSED', 'this client was closed');
  }
}

//
// Commands, answers and events as texts of the protocol.

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

//
// Turns: answers carry no id, so calls whose answers could be mixed up are made one at a time, in all
// tabs of an origin.
//
// A key names what is done in turn: the server's address and the command.

/** Where pages without Web Locks (those from http:) talk to other tabs of their origin. */
let channel = null;
const hearers = new Set();

const pageId = `${Math.random()}`;

/** Calls hear() with each message of another tab, until the returned function is called. */
function hearTabs(hear) {
  openChannel();
  hearers.add(hear);
  return () => { hearers.delete(hear); };
}

/** Sends a message to the other tabs of this origin. */
function tellTabs(message) {
  if (openChannel())
    channel.postMessage(message);
}

/** In Node there are no tabs, and an open channel would keep the program from ending. */
function openChannel() {
  const { location, BroadcastChannel } = globalThis;
  if (!channel && location && BroadcastChannel) {
    channel = new BroadcastChannel('device-server-client');
    channel.onmessage = ({ data }) => Array.from(hearers).forEach((hear) => hear(data));
  }
  return channel;
}

// ---- Taking turns -------------------------------------------------------------------------------

/** By key: a promise of the end of this page's last turn. */
const queues = new Map();

/**
 * @param shared  with other tabs, not only within this page
 * @returns a promise of the turn: a function that ends it
 */
function takeTurn(key, shared) {
  let end;
  const ended = new Promise((resolve) => { end = resolve; });
  const turn = (queues.get(key) || Promise.resolve()).then(() => shared && lockTabs(key, ended));
  const last = turn.then(() => ended);
  queues.set(key, last);
  last.then(() => queues.get(key) === last && queues.delete(key));
  return turn.then(() => end);
}

/** @returns a promise, fulfilled when no other tab has the key; this one has it until `ended` */
function lockTabs(key, ended) {
  const { location, navigator } = globalThis;
  if (!location)
    return undefined;
  return new Promise((resolve) => {
    const byChannel = () => resolve(lockByChannel(key, ended));
    if (navigator && navigator.locks)
      navigator.locks.request(key, () => { resolve(); return ended; }).catch(byChannel); // not in a sandbox
    else
      byChannel();
  });
}

/** Milliseconds in which the tab that has a key objects to another one's asking for it. */
const objectionTime = 150;
/** Milliseconds after which a tab asks again that has heard nothing: the other one may have gone. */
const askAgain = 1000;

const sleep = (milliseconds) => new Promise((resolve) => { setTimeout(resolve, milliseconds); });

/**
 * The same without Web Locks: a tab asks, and has the key unless one that has it, or has asked earlier,
 * objects. A tab whose page is busy all that time can't object.
 */
async function lockByChannel(key, ended) {
  if (!openChannel())
    return;
  const since = Date.now();
  let has = false;
  let objected = false;
  let wake = () => {};
  const unhear = hearTabs((message) => {
    if (message.key !== key)
      return;
    if (message.ask && (has || since < message.since || (since === message.since && pageId < message.ask)))
      tellTabs({ key, objectTo: message.ask });
    if (message.objectTo === pageId)
      objected = true;
    if (message.free)
      wake();
  });
  for (;;) {
    objected = false;
    tellTabs({ key, ask: pageId, since });
    await sleep(objectionTime);
    if (!objected)
      break;
    await Promise.race([sleep(askAgain), new Promise((resolve) => { wake = resolve; })]);
  }
  has = true;
  ended.then(() => {
    unhear();
    tellTabs({ key, free: true });
  });
}

// ---- Answers still to come ----------------------------------------------------------------------

// A page that is reloaded, or gives up, leaves a request whose answer goes to every page and would be
// taken for that of the next request. So it is noted how long it may come, also for other tabs.

const expected = new Map();

function inStorage(act) {
  try {
    return globalThis.location && act(globalThis.localStorage);
  } catch {
    return null; // not allowed for this page
  }
}

const stored = (key) => `device-server-client ${key}`;

/** An answer may come for so many milliseconds. */
function expectAnswer(key, milliseconds) {
  const until = Date.now() + milliseconds;
  expected.set(key, until);
  inStorage((storage) => storage.setItem(stored(key), until));
}

/** It has come, or will not. */
function expectNoAnswer(key) {
  expected.delete(key);
  inStorage((storage) => storage.removeItem(stored(key)));
}

/** No answer comes from a server that is not running, or was started again. */
function expectNone(url) {
  const ofServer = (key) => key.startsWith(url);
  Array.from(expected.keys()).filter(ofServer).forEach(expectNoAnswer);
  const left = inStorage((storage) => Object.keys(storage).map((name) => name.slice(stored('').length))) || [];
  left.filter(ofServer).forEach(expectNoAnswer);
}

/** For how many milliseconds an answer may still come, below `limit`; 0: none is expected. */
function answerExpected(key, limit) {
  const until = Math.max(expected.get(key) || 0, Number(inStorage((storage) => storage.getItem(stored(key)))) || 0);
  const left = until - Date.now();
  return left > 0 && left <= limit ? left : 0; // beyond the limit: the clock was changed
}

//
// Frames on the page.

/**
 * Draws the newest frame on an <img> or <canvas>. While a frame is being decoded, only the newest of
 * the following ones is kept; a hidden page decodes nothing.
 */
class Preview {
  /** @param options  worker: decode in a Web Worker that all such previews of the page share */
  constructor(client, target, { worker = false } = {}) {
    this.client = client;
    this.worker = worker;
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
        await this.draw(base64);
      } catch {
        this.broken += 1;
      }
    }
    this.drawing = false;
  }

  async draw(base64) {
    if (this.target.getContext) // not instanceof: it may belong to another window
      await drawOnCanvas(this.target, base64, this.worker);
    else
      await showInImage(this.target, base64);
    this.drawn += 1;
    this.client.emit('drawn', this);
  }
}

function jpegOf(base64) {
  const characters = atob(base64);
  const bytes = new Uint8Array(characters.length);
  for (let i = 0; i < characters.length; i += 1)
    bytes[i] = characters.charCodeAt(i);
  return new Blob([bytes], { type: 'image/jpeg' });
}

async function drawOnCanvas(canvas, base64, worker) {
  const decoding = share(base64, worker);
  try {
    const picture = await decoding.picture;
    if (canvas.width !== picture.width || canvas.height !== picture.height) {
      canvas.width = picture.width;
      canvas.height = picture.height;
    }
    canvas.getContext('2d').drawImage(picture, 0, 0);
  } finally {
    unshare(base64, decoding);
  }
}

/** Frames that are being decoded or drawn: several previews of a client decode each only once. */
const shared = new Map();

function share(base64, worker) {
  const decoding = shared.get(base64) || { picture: decode(base64, worker), users: 0 };
  decoding.users += 1;
  shared.set(base64, decoding);
  return decoding;
}

function unshare(base64, decoding) {
  decoding.users -= 1;
  if (decoding.users > 0)
    return;
  shared.delete(base64);
  decoding.picture.then((picture) => picture.close && picture.close(), () => {});
}

async function decode(base64, worker) {
  if (!globalThis.createImageBitmap)
    return showInImage(new Image(), base64);
  try {
    if (worker)
      return await decodeInWorker(base64);
  } catch (error) {
    if (error)
      throw error; // not a readable JPEG
  }
  return createImageBitmap(jpegOf(base64));
}

// ---- Decoding in a worker -----------------------------------------------------------------------

/** null before the first use; false if the page's policy (CSP) allows no worker of this kind */
let decoder = null;
const decodings = new Map();
let decodingId = 0;

/** Runs in the worker, as text: it uses nothing from outside. */
function runDecoder() {
  globalThis.onmessage = function ({ data: { id, base64 } }) {
    const failed = (error) => globalThis.postMessage({ id, error: String(error) });
    try {
      const characters = atob(base64);
      const bytes = new Uint8Array(characters.length);
      for (let i = 0; i < characters.length; i += 1)
        bytes[i] = characters.charCodeAt(i);
      createImageBitmap(new Blob([bytes], { type: 'image/jpeg' }))
          .then((picture) => globalThis.postMessage({ id, picture }, [picture]), failed);
    } catch (error) {
      failed(error);
    }
  };
}

/** @returns a promise of an ImageBitmap; rejected with an error if it is no JPEG, with null without a worker */
function decodeInWorker(base64) {
  if (decoder === null)
    startDecoder();
  if (!decoder)
    return Promise.reject(null);
  return new Promise((resolve, reject) => {
    decodingId += 1;
    decodings.set(decodingId, { resolve, reject });
    decoder.postMessage({ id: decodingId, base64 });
  });
}

function startDecoder() {
  const noDecoder = () => {
    decoder = false;
    decodings.forEach(({ reject }) => reject(null));
    decodings.clear();
  };
  try {
    decoder = new Worker(URL.createObjectURL(new Blob([`(${runDecoder})()`], { type: 'text/javascript' })));
    decoder.onerror = noDecoder;
    decoder.onmessage = ({ data: { id, picture, error } }) => {
      const { resolve, reject } = decodings.get(id);
      decodings.delete(id);
      if (picture)
        resolve(picture);
      else
        reject(new Error(error));
    };
  } catch {
    noDecoder();
  }
}

/** @returns a promise of the element, settled once it shows the picture */
function showInImage(image, base64) {
  const url = URL.createObjectURL(jpegOf(base64));
  return new Promise((resolve, reject) => {
    image.onload = () => resolve(image);
    image.onerror = reject;
    image.src = url;
  }).finally(() => URL.revokeObjectURL(url));
}

//
// Work that takes its time, as one promise each, on top of call(). The methods of DeviceClient that
// deviceclient.d.ts describes; a failure that the server reports by its result is a FailedError.

/** Seconds added to what the customer has, for the devices and the way. */
const margin = 20;

const isObject = (value) => value !== null && typeof value === 'object';

function succeeded(name, result, ok, message) {
  if (!ok)
    throw new FailedError(name, result, message);
  return result;
}

/** Data of a counter page: "," "%" and line breaks in values are escaped. */
function pageData(data) {
  const escapes = { '%': '%25', ',': '%2C', '\n': '%0A' };
  const escaped = (value) => String(value).replace(/[%,\n]/g, (found) => escapes[found]);
  return Object.entries(data).map(([key, value]) => `${key}=${escaped(value)}`).join(',');
}

function fromPageData(text) {
  const pairs = {};
  let key = 'text';
  for (const part of text.split(',')) {
    const at = part.indexOf('=');
    if (at >= 0)
      key = part.slice(0, at);
    pairs[key] = at < 0 && key in pairs ? `${pairs[key]},${part}` : part.slice(at + 1);
  }
  for (const each of Object.keys(pairs))
    pairs[each] = pairs[each].replace(/%(2C|25|0A)/g, (_, code) => String.fromCharCode(parseInt(code, 16)));
  return pairs;
}

const jobs = {
  // -- Faces and fingers --

  async compareFaces(image1, image2, options) {
    const score = await this.callWith({ ...options }, 'lImageMatch', image1, image2);
    return succeeded('lImageMatch', score, score >= 0);
  },

  async compareWithCamera(image, { seconds = 10, ...options } = {}) {
    const score = await this.eventAfter('AfterbImageMatchOnline', { seconds: seconds + margin, ...options },
                                        'bImageMatchOnline', image, seconds, 0, 0);
    return succeeded('bImageMatchOnline', score, score >= 0);
  },

  async faceFeature({ seconds = 10, ...options } = {}) {
    const feature = await this.eventAfter('AfterbFaceFeatureGetOnline', { seconds: seconds + margin, ...options },
                                          'bFaceFeatureGetOnline', seconds, 0);
    return succeeded('bFaceFeatureGetOnline', feature, feature !== '', 'no face appeared');
  },

  checkLiveness({ seconds = 10, ...options } = {}) {
    return this.eventAfter('AfterbLivingBodyDetectOnline', { seconds: seconds + margin, ...options },
                           'bLivingBodyDetectOnline', seconds, 0);
  },

  async watchLiveness(options) {
    try {
      return await this.eventAfter('AfterbLivingBodyDetectEvent2', { seconds: 60, ...options }, 'AutoLivingBody');
    } catch (error) {
      if (['ABORTED', 'TIMED_OUT'].includes(error.code) && this.state === 'open')
        this.call('CloseLivingBody').catch(() => {}); // the page has its error already
      throw error;
    }
  },

  async captureFinger({ seconds = 10, ...options } = {}) {
    const finger = await this.callWith(options, 'fingerCaptureRawData', seconds);
    return succeeded('fingerCaptureRawData', finger, isObject(finger) && !(finger.score < 0), finger && finger.msg);
  },

  // -- Cards --

  readIdCard(options) { return this.readCard(options, 'readIDMsg'); },

  readSocialCard({ type, ...options } = {}) { return this.readCard(options, 'iReadCardBas_noPasam', type); },

  readBankCard({ type, ...options } = {}) { return this.readCard(options, 'GetBankCardInfo', type); },

  async readCard(options, name, ...args) {
    const card = await this.callWith({ ...options }, name, ...args);
    return succeeded(name, card, isObject(card) && (card.code === undefined || card.code === '0'),
                     card && card.message);
  },

  // -- Recording and scanning --

  async recordUntil(end, { file, mpeg4 = false, ...options }) {
    if (end && end.then)
      end.then(null, () => {}); // it may be rejected before it is waited for
    const start = mpeg4 ? 'bStartRecMp3' : 'bStartRec';
    const started = await this.callWith(options, start, file);
    succeeded(start, started, started);
    let failure;
    try {
      await this.until(end, options.signal);
    } catch (error) {
      failure = error;
    }
    if (this.state === 'open' || !failure) { // what is recorded is kept, whatever has ended it
      const stopped = await this.callWith({ timeout: options.timeout }, 'bStopRec');
      if (!failure)
        succeeded('bStopRec', stopped, stopped);
    }
    if (failure)
      throw failure;
    return file;
  },

  /** Waits for a promise, an AbortSignal or some milliseconds; no longer than the connection lasts. */
  until(end, signal) {
    return this.pending({ name: 'recordUntil', sent: true }, { signal }, (done) => {
      if (typeof end === 'number') {
        const timer = setTimeout(done, end);
        return () => clearTimeout(timer);
      }
      if (typeof end.then === 'function') {
        end.then(() => done(), (error) => done(error || new Error('recordUntil: its end was rejected')));
        return undefined;
      }
      const aborted = () => done();
      if (end.aborted)
        done();
      else
        end.addEventListener('abort', aborted);
      return () => end.removeEventListener('abort', aborted);
    });
  },

  async* scans(folder, prefix, options = {}) {
    const shots = [];
    const unhear = this.on('iAutoScan', (shot) => shots.push(shot));
    try {
      await this.callWith(options, 'iAutoScan', 1, folder, prefix);
      for (;;) {
        if (shots.length === 0)
          await this.once('iAutoScan', options);
        yield shots.shift();
      }
    } finally {
      unhear();
      if (this.state === 'open')
        await this.call('iAutoScan', 0, folder, prefix);
    }
  },

  // -- The customer's screen --

  async sign(pdf, {
    xml = '', page = 1, x, y, width, height, retain = false, seconds = 120, whole = false, accept, ...options
  }) {
    const place = [page, x, y, width, height].filter((each) => each !== undefined).join('.');
    const ours = (reply) => isObject(reply) && 'status' in reply && (!reply.pdfpath || reply.pdfpath === pdf);
    const reply = await this.eventAfter('text', {
      seconds: seconds > 0 ? seconds + 2 * margin : Infinity, accept: accept || ours, ...options,
    }, whole ? 'DoGWQ_StartSignEx' : 'DoGWQ_StartSign', pdf, xml, place, retain ? 1 : 0, seconds);
    return succeeded('sign', reply, !isObject(reply) || reply.status !== 'error', reply.message);
  },

  askCustomer(data, options) { return this.answerOf('DoGWQ_StartInfo', data, options); },

  rateService(data, options) { return this.answerOf('DoGWQ_StartEvaluator', data, options); },

  /** The customer's answer goes to the current client, so this page keeps being it. */
  async answerOf(name, data, options) {
    const { id = `${Date.now()}-${Math.random().toString(36).slice(2, 8)}` } = data;
    const alive = setInterval(() => {
      if (this.state === 'open')
        this.call('bGetPreviewEnable').catch(() => {}); // a lost connection ends the job itself
    }, 5000);
    try {
      return fromPageData(await this.eventAfter(`After${name}`, {
        seconds: 600, accept: (text) => fromPageData(text).id === String(id), ...options,
      }, name, pageData({ ...data, id })));
    } finally {
      clearInterval(alive);
    }
  },
};

//
// The client of the device server: commands as promises, pushed texts as events, and a preview.
//
//   errors.js   what can go wrong
//   texts.js    commands and answers on the wire
//   turns.js    whose answer it is: one call at a time, in all tabs
//   jobs.js     background work as promises
//   preview.js  draws the newest frame
//   this file   the connection, pending calls, events
//
// For Chromium 80 and newer, and for Node with its own WebSocket class or one passed as an option.


const defaults = {
  url: 'ws://127.0.0.1:1818',
  /** Milliseconds from a call to its answer; more for commands known to take longer. */
  timeout: 10000,
  /** Milliseconds for an attempt to connect; more while the browser asks its user. */
  connectTimeout: 15000,
  /** Milliseconds before each reconnection attempt; the last one repeats. Empty: no attempts. */
  retryDelays: [500, 1000, 2000, 4000, 8000, 15000],
};

/** Default facts, for a command that is sent raw and not known. */
const rawFact = { reply: 'text', late: true };

/** The maximum of timers, about 24 days; anything longer, even Infinity, would fire at once. */
const maxTimer = 2 ** 31 - 1;

/** The client's own events, which a text relayed by another page must not imitate. */
const ownEvents = new Set(['open', 'close', 'frame', 'text', 'late', 'message', 'drawn']);

/** A connection that ends sooner counts as a failed attempt, so that attempts slow down. */
const stableMilliseconds = 5000;

/** How long an attempt waits for the user whom the browser asks, in milliseconds. */
const promptMilliseconds = 120000;

/** How often a call looks whether the answer of an earlier one has come, in milliseconds. */
const lookAgain = 200;

/**
 * A page's connection to the device server.
 *
 * Events, heard with on(), once() and, for frames, frames():
 *   open                 connected or reconnected; the server has stopped the preview meanwhile
 *   close    error       the connection was lost, or an attempt failed; the error has retryIn
 *   frame    base64      a preview frame, JPEG
 *   <name>   result      a framed text that no call waits for: vSetCapturePin, iAutoScan, ...
 *   text     text, json  a text without a frame: the signature service's, the browser helper's
 *   late     {name, result}  an answer whose call has ended before
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
    this.calls = new Set(); // that have not ended: to be answered, or to be sent
    this.waiting = new Map(); // sent calls by the name of their answer, oldest first; an ended one
                              // remains while its answer is still to come
    this.socket = null;
    this.state = 'closed'; // closed, connecting, open, waiting (to reconnect)
    this.lastError = null;
    this.failures = 0; // attempts in a row without a stable connection
    this.everOpen = false;
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

  /**
   * Waits for the next event.
   *
   * @param options  timeout in milliseconds (none by default), signal, accept(value): whether it is
   *                 the one that is waited for
   * @returns a promise of its value; rejected by the time-out, the signal or close()
   */
  once(event, { timeout, signal, accept = () => true } = {}) {
    return this.pending({ name: event }, { timeout, signal }, (done) =>
      this.on(event, (...values) => accept(...values) && done(null, values[0])));
  }

  /**
   * The frames, for "for await": always the newest one, so a slow loop misses some. Ends with close();
   * `timeout` is that between two frames.
   */
  async* frames(options) {
    let frame = null;
    const end = this.on('frame', (newest) => { frame = newest; });
    try {
      for (;;) {
        if (frame === null)
          await this.once('frame', options);
        const newest = frame;
        frame = null;
        yield newest;
      }
    } catch (error) {
      if (!(error instanceof ClosedError))
        throw error;
    } finally {
      end();
    }
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
    clearTimeout(this.retryTimer);
    const { socket } = this;
    this.socket = null;
    this.state = 'closed';
    this.failures = 0;
    if (socket)
      socket.close();
    if (this.abandonTry)
      this.abandonTry(new ClosedError()); // no effect once the attempt has settled
    this.waiting.clear();
    this.calls.forEach((call) => call.end(new ClosedError()));
  }

  /**
   * Sends a command, after connecting if needed.
   *
   * @returns a promise of its result, in the command's type; resolves to undefined, once it is sent,
   *          for commands that are never answered
   */
  call(name, ...args) {
    return this.callWith({}, name, ...args);
  }

  /**
   * call() with options: timeout, in milliseconds from now on; signal, an AbortSignal; raw: sends any
   * name with unchecked arguments, and resolves to the result's text.
   */
  async callWith({ timeout, signal, raw } = {}, name, ...args) {
    const text = raw ? `${name}(${args.join(',')})` : commandText(name, args);
    const known = entryOf(commands, name);
    const fact = known && (!raw || known.reply !== 'none') ? known : rawFact;
    const call = {
      name, answer: name, fact, raw, silent: fact.reply === 'none', turn: turnOf(name, fact),
      start: () => this.socket.send(text),
    };
    return this.request(call, { timeout: timeout || Math.max(fact.timeout || 0, this.options.timeout), signal });
  }

  /**
   * Calls a command that starts something in the background, and waits for the event that ends it.
   *
   * @param event    its name; 'text' for texts without a frame
   * @param options  seconds from now on, or timeout, in milliseconds; signal; accept(value, text):
   *                 whether an event is the one that is waited for
   * @returns a promise of the event's value; rejected with FailedError if the command fails
   */
  async eventAfter(event, { seconds = 60, timeout = seconds * 1000, signal, accept } = {}, name, ...args) {
    const start = async () => {
      const started = await this.callWith({ signal }, name, ...args);
      if (started === false)
        throw new FailedError(name, started);
    };
    const turn = { name: event, shared: true, answered: 0 };
    const fact = { late: true, mark: (entryOf(commands, name) || {}).mark };
    return this.request({ name, answer: event, fact, event: true, accept, turn, start }, { timeout, signal });
  }

  /** Sends a text unchanged: "@" asks for the shown page's data, "#..." goes to the current page. */
  async send(text) {
    if (this.state !== 'open')
      await this.whenOpen();
    this.socket.send(text);
  }

  /** Draws the frames; see Preview. */
  preview(target, options) {
    return new Preview(this, target, options);
  }

  // -- Calls --

  /**
   * A promise that always ends: by done(error, value), time-out, signal or close().
   *
   * @param call   name, for messages; gets end(error, value)
   * @param begin  called with done; may return a function to be called at the end
   */
  pending(call, { timeout, signal }, begin) {
    return new Promise((resolve, reject) => {
      let timer = 0;
      let clean;
      const abort = () => call.end(new AbortError(call.name, signal.reason));
      const late = () => call.end(new CallTimeoutError(call.name, timeout, call.phase, call.fact));
      call.end = (error, value) => {
        if (call.ended)
          return;
        call.ended = true;
        clearTimeout(timer);
        this.calls.delete(call);
        if (signal)
          signal.removeEventListener('abort', abort);
        if (error)
          reject(error);
        else
          resolve(value);
        if (clean)
          clean();
      };
      this.calls.add(call);
      if (signal && signal.aborted) {
        abort();
        return;
      }
      if (signal)
        signal.addEventListener('abort', abort);
      if (timeout)
        timer = setTimeout(late, Math.min(timeout, maxTimer));
      clean = begin(call.end);
      if (call.ended && clean)
        clean();
    });
  }

  /** A call that is sent: its turn, the connection, its answer. */
  request(call, options) {
    return this.pending(call, options, () => {
      this.begin(call).catch((error) => call.end(error));
      return () => this.leave(call);
    });
  }

  /** Sends a call: at once, if it needs no turn and there is a connection. */
  async begin(call) {
    const { turn } = call;
    if (turn) {
      call.phase = 'turn';
      call.endTurn = await takeTurn(this.keyOf(turn.name), turn.shared);
    }
    if (turn && turn.shared && !call.ended)
      call.unhear = hearTabs((message) => this.heard(message));
    while (!call.ended && !this.mayBeSent(call))
      await (this.state === 'open' ? sleep(lookAgain) : this.whenOpen());
    if (call.ended) {
      this.leave(call);
      return;
    }
    call.phase = 'answer';
    if (call.silent) {
      call.start();
      call.end();
      return;
    }
    const earlier = this.waiting.get(call.answer) || [];
    // After the turn of an ended call its answer comes no more.
    this.waiting.set(call.answer, [...earlier.filter(({ ended }) => !ended || !turn), call]);
    call.sent = true;
    if (call.fact.late && call.fact.mark)
      this.mark(call);
    if (turn && turn.answered)
      expectAnswer(this.keyOf(turn.name), turn.answered);
    await call.start();
  }

  /**
   * Sends a harmless command before that of a call: until it is answered, what arrives are answers of
   * earlier requests, perhaps those of another tab, from which this one got the turn just now.
   */
  mark(call) {
    const { mark } = call.fact;
    call.early = true;
    const marking = { name: mark, end: () => { call.early = false; } };
    this.waiting.set(mark, [...(this.waiting.get(mark) || []), marking]);
    this.socket.send(`${mark}()`);
  }

  mayBeSent(call) {
    const { turn } = call;
    if (this.state !== 'open')
      call.phase = 'connection';
    else if (turn && turn.answered && answerExpected(this.keyOf(turn.name), turn.answered))
      call.phase = 'earlier';
    else
      return true;
    return false;
  }

  /**
   * A call that has ended gives up its turn. It stays in the list of those that wait if its answer is
   * certain to arrive, so that a later call of the same name does not get it.
   */
  leave(call) {
    const { fact, turn, sent, endTurn, unhear } = call;
    if (sent && fact.late && !(turn && turn.answered))
      this.waiting.set(call.answer, (this.waiting.get(call.answer) || []).filter((each) => each !== call));
    if (unhear)
      unhear();
    if (endTurn)
      endTurn();
  }

  /** Of a turn. */
  keyOf(name) {
    return `${this.options.url} ${name}`;
  }

  /** Ends the calls that were sent: most answers were for the connection that is lost. */
  rejectSent() {
    this.waiting.clear();
    for (const call of this.calls) {
      if (call.sent)
        call.end(new ConnectionLostError(call.name));
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
      const json = value !== null && typeof value === 'object' ? value : undefined;
      this.emit('text', text, json);
      this.answer('text', json || text, text);
      return;
    }
    const name = frameNames.get(answer.name) || answer.name;
    const fact = entryOf(commands, name);
    if (fact && fact.mistakable)
      expectNoAnswer(this.keyOf(name));
    if (!this.framed(name, answer.result) && (fact ? fact.mistakable === 'current' : entryOf(events, name)))
      tellTabs({ url: this.options.url, name, result: answer.result }); // for the tab that asked
  }

  /** A framed text. @returns whether a call has waited for it */
  framed(name, text) {
    const result = resultOf(name, text);
    const call = this.answer(name, result, text);
    if (!call || call.event)
      this.emit(name, result);
    return Boolean(call);
  }

  /** Another tab was the current client when a result of a call of this one arrived. */
  heard({ url, name, result }) {
    if (url === this.options.url && this.waiting.has(name) && this.waiting.get(name).length > 0)
      this.framed(name, result);
  }

  /** Ends the call that waits for an answer or event. @returns the call, if there is one */
  answer(name, value, text) {
    const calls = this.waiting.get(name) || [];
    const call = calls.find(({ early, ended, accept }) => !early && (ended || !accept || accept(value, text)));
    if (!call)
      return undefined;
    calls.splice(calls.indexOf(call), 1);
    if (call.ended)
      this.emit('late', { name, result: value });
    else
      call.end(null, call.raw ? text : value);
    return call;
  }

  // -- The connection --

  async whenOpen() {
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
    const startedAt = Date.now();
    let openedAt = 0;
    let gaveUp = false;
    const giveUp = async () => {
      const asks = !isLocalPage() && Date.now() - startedAt < promptMilliseconds
        && await permissionState() === 'prompt';
      if (socket.readyState !== 0)
        return; // the user has answered by now
      gaveUp = !asks;
      if (asks)
        timer = setTimeout(giveUp, connectTimeout);
      else
        socket.close();
    };
    let timer = setTimeout(giveUp, connectTimeout);
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
        this.rejectSent();
        this.retryLater(new ConnectionLostError());
        return;
      }
      const error = await whyNoConnection(url, this.everOpen);
      if (socket !== this.socket)
        return; // closed meanwhile
      if (!gaveUp && error instanceof ServerNotRunningError)
        expectNone(`${url} `);
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

Object.assign(DeviceClient.prototype, jobs);

/**
 * The turn of a command whose answers could be mixed up: its name; whether other tabs may get them;
 * `answered`, in how many milliseconds an answer that is not to be taken for another has come.
 */
function turnOf(name, { mistakable, alone, dropped, always, timeout }) {
  if (!mistakable && !alone)
    return undefined;
  return { name, shared: Boolean(mistakable), answered: mistakable && !dropped && !always ? timeout : 0 };
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
  if (!everOpen && !isLocalPage() && await permissionState() === 'denied')
    return new RefusedByBrowserError(url, 'this page has no permission to reach this machine, '
        + 'unless it needs none and the device server is not running');
  return new ServerNotRunningError(url);
}

/** Whether this page comes from this machine: no browser asks its user for it. */
function isLocalPage() {
  const { protocol, hostname } = globalThis.location || {};
  return protocol === 'file:' || /^(localhost|127\..*|\[::1\])$/.test(hostname);
}

global.DeviceClient = Object.assign(DeviceClient, {
  commands, events, AbortError, ArgumentError, CallTimeoutError, ClosedError, ConnectionLostError,
  DeviceError, FailedError, RefusedByBrowserError, ServerNotRunningError, UnknownCommandError, Preview,
  commandText, parseAnswer,
});
})(typeof globalThis === 'object' ? globalThis : this);
