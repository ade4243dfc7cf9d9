// SPDX-License-Identifier: MIT
//
// The parts of the console that need no page: search.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { createContext, runInContext } from 'node:vm';

const context = createContext({ window: {}, TextDecoder, t: (key, ...values) => [key, ...values].join(' '), byId: () => ({}) });
for (const file of ['commands', 'protocol', 'search'])
  runInContext(readFileSync(new URL(`../../console/${file}.js`, import.meta.url), 'utf8'), context, file);

/** What a function of the console returns, as a value of this realm. */
function run(name, ...values) {
  context.values = values;
  const result = runInContext(`${name}(...values)`, context);
  return result === undefined ? result : JSON.parse(JSON.stringify(result));
}

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
version: getVersion version sServerVersion | USB devices: sEnumUSBDevice | BSAVEJPG: bSaveJPG | getvers: getVersion
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
