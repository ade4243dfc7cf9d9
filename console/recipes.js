// SPDX-License-Identifier: MIT
//
// Scripts for what people come for, each started with one click. They keep files in /tmp only.

'use strict';

const RECIPES = [
  { title: ['Photo, PDF, barcodes', '拍照、PDF、条码'],
    about: ['Takes a photo, makes a PDF of it, and reads the barcodes in it.', '拍一张照片，生成 PDF，并识别照片中的条码。'],
    script: `bStartPlay()
wait for frame
bSaveJPG(/tmp,console-photo)
bSavePDFStart(/tmp,console-document)
bAddPDFColorPage(/tmp/console-photo.jpg)
bSavePDFEnd()
bFileIsExist(/tmp/console-document.pdf)
expect true
sGetBarCode(/tmp/console-photo.jpg)
expect not ""
` },
  { title: ['ID card, face', '身份证、人脸'],
    about: ['Reads an ID card and compares its photo with the person in front of the camera: 60 and above are the same.',
      '读身份证，将证件照与摄像头前的人比对：60 分及以上为同一人。'],
    script: `card = readIDMsg()
expect /"photo"/
Base64Decode(\${card.photo},/tmp/console-card.jpg)
bStartPlay()
wait for frame
lFaceMatch(/tmp/console-card.jpg)
expect /^([6-9]\\d|100)$/
bDeleteFileForever(/tmp/console-card.jpg)
` },
  { title: ['All cards', '各种卡'],
    about: ['Tries each kind of card.', '依次读取各种卡。'],
    script: `bOpenIDCardReader()
readIDMsg()
expect /"(code|result)"\\s*:\\s*("0"|1)/
iReadCardBas_noPasam(1)
expect /"(code|result)"\\s*:\\s*("0"|1)/
GetBankCardInfo(2)
expect /"(code|result)"\\s*:\\s*("0"|1)/
` },
  { title: ['Watermark', '水印'],
    about: ['Saves a photo with a watermark, and turns that off again.', '拍一张带水印的照片，然后关闭水印。'],
    script: `bStartPlay()
wait for frame
vSetWaterPrint(1,SAMPLE,50)
bSaveJPG(/tmp,console-watermark)
sGetJpgBase64()
expect not ""
vSetWaterPrint(0)
` },
  { title: ['Video of 5 seconds', '5 秒录像'],
    about: ['Records the camera for five seconds.', '录制摄像头画面五秒。'],
    script: `bStartPlay()
wait for frame
bStartRec(/tmp/console-video.mp4)
wait 5000
bStopRec()
bFileIsExist(/tmp/console-video.mp4)
expect true
` },
  { title: ['Speed', '速度'],
    about: ['Asks for the version a thousand times.', '连续查询版本一千次。'],
    script: `repeat 1000
getVersion()
end
` },
];

/** Lists the recipes. @param run  called with the script of the one that is started, and whether to run it */
function listRecipes(list, run) {
  removeChildren(list);
  const place = LANGUAGES.indexOf(i18n.language);
  for (const { title, about, script } of RECIPES) {
    const item = element('li', 'recipe');
    const words = element('div', 'recipe-words');
    words.append(element('b', '', title[place]), element('p', 'dim', about[place]));
    item.append(words, button('', t('recipe.open'), () => run(script, false)),
                button('main', t('script.run'), () => run(script, true)));
    list.append(item);
  }
}
