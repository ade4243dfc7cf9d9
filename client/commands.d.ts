// SPDX-License-Identifier: MIT
// Made from docs/commands.json by scripts/generate-reference.mjs.

/** A text; numbers are written in decimal. */
export type Text = string | number;
/** A number, or its decimal digits; an empty text is what the server takes for none. */
export type Numeric = number | string;
/** Sent as 1 or 0. */
export type Flag = boolean | number | string;

/** Every command: its arguments, and what its call gives. */
export interface Commands {
  /**
   * Ends a recording and stops the preview. 结束录像并停止预览。
   * When any page leaves, the server stops the preview by itself: the other pages get this answer without having asked.
   */
  bStopPlay(): boolean;
  /**
   * Starts the preview of the main camera. 启动主摄像头预览。
   */
  bStartPlay(): boolean;
  /**
   * Starts the preview of camera 2. 启动2号摄像头预览。
   */
  bStartPlay2(): boolean;
  /**
   * Sets the rotation and starts the main camera. 设置旋转角度并启动主摄像头。
   * @param angle Degrees clockwise.
   */
  bStartPlayRotate(angle: Numeric): boolean;
  /**
   * Opens the fourth source, beside the preview. 打开第四路视频源（与预览并行）。
   */
  bStartPlay4(): boolean;
  /**
   * Closes the fourth source. 关闭第四路视频源。
   */
  bStopPlay4(): boolean;
  /**
   * Starts the preview of camera 6. 启动6号摄像头预览。
   */
  bStartPlay6(): boolean;
  /**
   * Switches the device library's own picture display; the portable library has none. 切换设备库自带的图像显示；便携库不提供。
   * @param on Whether it is shown.
   */
  vSetImageDispFlag(on: Flag): void;
  /**
   * Starts the preview of camera 3. 启动3号摄像头预览。
   */
  bStartPlay3(): boolean;
  /**
   * Makes the sent frames larger by the zoom factor. 按缩放系数增大推送帧。
   */
  vZoomOut(): void;
  /**
   * Makes the sent frames smaller by the zoom factor. 按缩放系数减小推送帧。
   */
  vZoomIn(): void;
  /**
   * Sends frames of 800×600 again; the zoom factor becomes 10 %. 恢复推送800×600的帧，缩放系数恢复为10%。
   */
  vZoomOriginal(): void;
  /**
   * Sets the size of the frames that are sent. 设置推送帧的尺寸。
   * @param width Pixels, at least 400.
   * @param height Pixels, at least 300.
   */
  vSetPreViewSize(width: Numeric, height: Numeric): void;
  /**
   * Sets the step of zooming in and out. 设置缩放步长。
   * @param percent Percent.
   */
  vSetZoomFactor(percent: Numeric): void;
  /**
   * Starts the dual camera: main and second camera side by side. 启动双摄像头预览：主、副画面并排显示。
   * When the dual camera is open already, the answer is framed as bDualCameraOpen.
   */
  bStartPlayOpen(): boolean;
  /**
   * Starts the preview of camera 5; when it runs already it is started anew. 启动5号摄像头预览；已在运行时会重新启动。
   */
  bStartPlay5(): boolean;
  /**
   * Starts the preview of camera 8. 启动8号摄像头预览。
   */
  bStartPlay8(): boolean;
  /**
   * Starts the preview of camera 9. 启动9号摄像头预览。
   */
  bStartPlay9(): boolean;
  /**
   * Audio and video preview of the device library's own; the portable library has none. 设备库自带的音视频预览；便携库不提供。
   * After true the main preview is started anew: a second text, the answer of bStartPlay, follows.
   * @param first The library's choice.
   * @param second The library's choice.
   */
  bAVPreview(first: Numeric, second: Numeric): boolean;
  /**
   * Switches the sending of frames on or off. 开启或关闭预览帧推送。
   * @param on Whether frames are sent.
   */
  vSetPreviewEnable(on: Flag): boolean;
  /**
   * Tells whether frames are sent. 查询是否推送预览帧。
   */
  bGetPreviewEnable(): boolean;
  /**
   * Not supported: always false. 不支持：始终返回 false。
   */
  displayVideoPara(): boolean;
  /**
   * Sets what of the picture captures take. 设置拍照取景模式。
   * @param mode Which part.
   */
  bSetMode(mode: Numeric): boolean;
  /**
   * Accepted without effect (deskewing): always true. 仅应答，不起作用（纠偏开关）：始终返回 true。
   */
  vSetSkewFlag(): boolean;
  /**
   * Accepted without effect (the removal of black borders): always true. 仅应答，不起作用（去黑边开关）：始终返回 true。
   */
  vSetDelHBFlag(): boolean;
  /**
   * Accepted without effect (a focus): always true. 仅应答，不起作用（焦距）：始终返回 true。
   */
  vSetFocus(): boolean;
  /**
   * Accepted without effect (a video compression): always true. 仅应答，不起作用（视频压缩类型）：始终返回 true。
   */
  vSetVideoCompressType(): boolean;
  /**
   * Turns preview and captures. 设置预览和拍照的旋转角度。
   * @param angle Degrees clockwise.
   */
  vSetRotate(angle: Numeric): boolean;
  /**
   * Sets a camera's resolution by its place in the list. 按序号设置指定摄像头分辨率。
   * Parted at the first comma only; without a comma the number is taken for both.
   * @param camera Camera number, 1 is the main one.
   * @param index Place in the answer of getAllResolutionsEx, from 0.
   */
  vSetResolutionEx(camera: Numeric, index: Numeric): boolean;
  /**
   * Sets how bBookScanner works. 设置书籍扫描模式。
   * @param mode The library's choice; 0 to 2 with the portable one.
   */
  bSetBookScannerMode(mode: Numeric): boolean;
  /**
   * The mode of the book scanner. 查询书籍扫描模式。
   */
  igetBookScannerMode(): number;
  /**
   * Sets the camera's exposure. 设置曝光。
   * @param value -100 to 100 with the portable library, 0 being the camera's own.
   */
  vSetExposure(value: Numeric): boolean;
  /**
   * Sets the camera's brightness. 设置亮度。
   * @param value -100 to 100 with the portable library, 0 being the camera's own.
   */
  vSetBrightness(value: Numeric): boolean;
  /**
   * Sets the camera's contrast. 设置对比度。
   * @param value -100 to 100 with the portable library, 0 being the camera's own.
   */
  vSetContrast(value: Numeric): boolean;
  /**
   * Sets the main camera's resolution by its place in the list. 按序号设置主摄像头分辨率。
   * @param index Place in the answer of getAllResolutions, from 0.
   */
  vSetResolution(index: Numeric): boolean;
  /**
   * Lists a camera's resolutions; a number below 1 is camera 1. 列出摄像头支持的分辨率；小于1按1处理。
   * @param camera Camera number, 1 is the main one.
   */
  getAllResolutions(camera: Numeric): { width: number; height: number }[];
  /**
   * Lists a camera's resolutions, for any number as it is. 列出摄像头支持的分辨率（编号原样传递）。
   * @param camera Camera number, 1 is the main one.
   */
  getAllResolutionsEx(camera: Numeric): { width: number; height: number }[];
  /**
   * Asks for a resolution of the main camera. 设置主摄像头分辨率（宽高）。
   * Nothing is set unless there are exactly two arguments.
   * @param width Pixels.
   * @param height Pixels.
   */
  setResolutionXY(width: Numeric, height: Numeric): boolean;
  /**
   * Asks for a resolution of a camera. 设置指定摄像头分辨率（宽高）。
   * Nothing is set unless there are exactly three arguments.
   * @param camera Camera number, 1 is the main one.
   * @param width Pixels.
   * @param height Pixels.
   */
  setResolutionExXY(camera: Numeric, width: Numeric, height: Numeric): boolean;
  /**
   * Width of a camera's resolution in use. 查询摄像头当前分辨率宽度。
   * @param camera Camera number, 1 is the main one.
   */
  iGetResolutionX(camera: Numeric): number;
  /**
   * Height of a camera's resolution in use. 查询摄像头当前分辨率高度。
   * @param camera Camera number, 1 is the main one.
   */
  iGetResolutionY(camera: Numeric): number;
  /**
   * Sets the quality of saved JPEG files. 设置JPEG保存质量。
   * @param quality 1 to 100.
   */
  vSetImageQuality(quality: Numeric): boolean;
  /**
   * The quality of saved JPEG files. 查询JPEG保存质量。
   */
  sGetImageQuality(): number;
  /**
   * Sets the crop area that captures take in mode 1 of bSetMode. 设置拍照裁剪区域（bSetMode 为1时生效）。
   * @param x1 Left edge, pixels of the turned picture.
   * @param y1 Top edge.
   * @param x2 Right edge; that column is outside.
   * @param y2 Bottom edge; that row is outside.
   */
  bSetImageArea(x1: Numeric, y1: Numeric, x2: Numeric, y2: Numeric): boolean;
  /**
   * Left edge of the crop area. 查询裁剪区域左边缘。
   */
  lGetImageAreaX1(): number;
  /**
   * Right edge of the crop area. 查询裁剪区域右边缘。
   */
  lGetImageAreaX2(): number;
  /**
   * Top edge of the crop area. 查询裁剪区域上边缘。
   */
  lGetImageAreaY1(): number;
  /**
   * Bottom edge of the crop area. 查询裁剪区域下边缘。
   */
  lGetImageAreaY2(): number;
  /**
   * Sets the camera's working mode; the portable library has none. 设置摄像头工作模式；便携库不提供。
   * @param mode The library's choice.
   */
  vSetCamaraMode(mode: Numeric): boolean;
  /**
   * Sets the resolution that saved pictures and pages tell. 设置保存图像和文档页的DPI。
   * @param x Dots per inch across, 50 to 1200 with the portable library.
   * @param y Dots per inch down.
   */
  vSetDPI(x: Numeric, y: Numeric): boolean;
  /**
   * The resolution that saved pictures tell. 查询当前DPI。
   */
  vGetDPI(): [number, number];
  /**
   * The rotation in use, in degrees clockwise. 查询当前旋转角度。
   */
  iGetRotate(): number;
  /**
   * Mirrors preview and captures. 设置预览和拍照的镜像翻转。
   * @param mode How.
   */
  vSetFlip(mode: Numeric): boolean;
  /**
   * The mirroring in use. 查询当前翻转方式。
   */
  iGetFlip(): number;
  /**
   * Asks to be told of presses of the camera's button. 订阅摄像头拍照按键事件。
   */
  vSetCapturePin(): void;
  /**
   * Focuses once; the outcome is not awaited. 自动对焦一次（不等待结果）。
   */
  AutoFocus(): boolean;
  /**
   * Saves the current picture as a color JPEG file. 将当前画面保存为彩色JPEG文件。
   * @param folder Folder for the file.
   * @param name File name without extension.
   */
  bSaveJPG(folder: Text, name: Text): boolean;
  /**
   * Saves the current picture as a color TIFF file with JPEG inside. 将当前画面保存为JPEG压缩的彩色TIFF文件。
   * @param folder Folder for the file.
   * @param name File name without extension.
   */
  bSaveTifJPG(folder: Text, name: Text): boolean;
  /**
   * Saves the current picture as a grey JPEG file. 将当前画面保存为灰度JPEG文件。
   * @param folder Folder for the file.
   * @param name File name without extension.
   */
  bSaveGray(folder: Text, name: Text): boolean;
  /**
   * Accepted without effect: always true. 仅应答，不保存：始终返回 true。
   */
  bSaveTIF24Bit(): boolean;
  /**
   * Saves the current picture as a black and white TIFF file. 将当前画面保存为黑白TIFF文件。
   * @param folder Folder for the file.
   * @param name File name without extension.
   */
  bSaveTIF(folder: Text, name: Text): boolean;
  /**
   * Saves the current picture twice: grey JPEG and black and white TIFF. 将当前画面同时保存为灰度JPEG和黑白TIFF。
   * @param greyFolder Folder of the grey file.
   * @param greyName Its name without extension.
   * @param tiffFolder Folder of the TIFF file.
   * @param tiffName Its name without extension.
   */
  bSaveGrayAndTIF(greyFolder: Text, greyName: Text, tiffFolder: Text, tiffName: Text): boolean;
  /**
   * Saves the current picture as a bitmap file. 将当前画面保存为BMP文件。
   * @param folder Folder for the file.
   * @param name File name without extension.
   */
  bSaveBMP(folder: Text, name: Text): boolean;
  /**
   * Saves the current picture as a PNG file. 将当前画面保存为PNG文件。
   * @param folder Folder for the file.
   * @param name File name without extension.
   */
  bSavePNG(folder: Text, name: Text): boolean;
  /**
   * The current picture as base64 of a JPEG of quality 70. 获取当前画面的base64 JPEG（质量70）。
   */
  sGetJpgBase64(): string;
  /**
   * The current picture as base64 of an image file. 获取当前画面的base64图像。
   * @param kind Kind of picture.
   */
  sGetImageBase64(kind: Numeric): string;
  /**
   * As sGetJpgBase64. 同 sGetJpgBase64。
   */
  sGetBase64(): string;
  /**
   * A capture as bSaveJPG makes it, as base64; no file is left behind. 按 bSaveJPG 拍照并返回base64，不留文件。
   * When the capture fails, the running camera's picture comes instead; empty without one.
   */
  bSaveJPGEx(): string;
  /**
   * Splits the picture of an open book into its two pages. 将翻开书籍的图片拆分为左右两页。
   * @param picture Picture file.
   * @param folder Folder for <name>_left.jpg and <name>_right.jpg.
   */
  SplitPic(picture: Text, folder: Text): boolean;
  /**
   * A file's bytes as base64. 将文件内容编码为base64。
   * @param file File to read.
   */
  Base64Encode(file: Text): string;
  /**
   * Writes the bytes of a base64 text to a file. 将base64文本解码写入文件。
   * @param base64 Base64 text.
   * @param file File to write.
   */
  Base64Decode(base64: string, file: Text): boolean;
  /**
   * Begins a PDF document. 开始一个PDF文档。
   * @param folder Folder for the file.
   * @param name File name without extension.
   */
  bSavePDFStart(folder: Text, name: Text): boolean;
  /**
   * Appends the current picture to the PDF, in color. 将当前画面以彩色加入PDF。
   */
  bSavePDFColorPage(): boolean;
  /**
   * Writes the PDF file. 结束并写出PDF文件。
   */
  bSavePDFEnd(): boolean;
  /**
   * Appends the current picture to the PDF, in black and white. 将当前画面以黑白加入PDF。
   */
  bSavePDFBWPage(): boolean;
  /**
   * Adds an image file to the PDF, in color. 将图像文件以彩色加入PDF。
   * @param picture Image file.
   * @param place The page's number, from 2 on; without it, with 1 and beyond the end it goes to the end.
   */
  bAddPDFColorPage(picture: Text, place?: Numeric): boolean;
  /**
   * Adds an image file to the PDF, in black and white. 将图像文件以黑白加入PDF。
   * @param picture Image file.
   * @param place The page's number, from 2 on; without it, with 1 and beyond the end it goes to the end.
   */
  bAddPDFBWPage(picture: Text, place?: Numeric): boolean;
  /**
   * Begins a JPEG file that several pictures are merged into. 开始将多张图片合并为一个JPEG。
   * @param folder Folder for the file.
   * @param name File name without extension.
   * @param direction How the pictures lie.
   * @param gap Pixels between two, 0 to 1000.
   * @param maxWidth Largest width in pixels, 0 for no limit.
   * @param maxHeight Largest height in pixels, 0 for no limit.
   */
  bSaveMergeStart(folder: Text, name: Text, direction: Numeric, gap: Numeric, maxWidth: Numeric, maxHeight: Numeric): boolean;
  /**
   * Adds the current picture to the merged one. 将当前画面加入合并图片。
   */
  bSaveMergePage(): boolean;
  /**
   * Writes the merged picture. 结束并写出合并图片。
   */
  bSaveMergeEnd(): boolean;
  /**
   * Appends an image in base64 to the PDF. 将base64图像加入PDF。
   * @param image Base64 of an image file; "data:image/...;base64," may stand before it.
   */
  bAddPDFBase64ColorPage(image: string): boolean;
  /**
   * Begins a OFD document. 开始一个OFD文档。
   * @param folder Folder for the file.
   * @param name File name without extension.
   */
  bSaveOFDStart(folder: Text, name: Text): boolean;
  /**
   * Writes the OFD file. 结束并写出OFD文件。
   */
  bSaveOFDEnd(): boolean;
  /**
   * Appends the current picture to the OFD, in color. 将当前画面以彩色加入OFD。
   */
  bSaveOFDColorPage(): boolean;
  /**
   * Adds an image file to the OFD. 将图像文件加入OFD。
   * An empty place, a comma with nothing behind it, is refused.
   * @param picture Image file.
   * @param place The page's number, from 2 on; without it, with 1 and beyond the end it goes to the end.
   */
  bAddOFDPage(picture: Text, place?: Numeric): boolean;
  /**
   * Appends the current picture to the OFD, in black and white. 将当前画面以黑白加入OFD。
   */
  bSaveOFDBWPage(): boolean;
  /**
   * Appends an image in base64 to the OFD. 将base64图像加入OFD。
   * @param image Base64 of an image file; "data:image/...;base64," may stand before it.
   */
  bAddOFDBase64ColorPage(image: string): boolean;
  /**
   * Captures by itself whenever a document was put down and lies still; tells each shot. 自动扫描：文档放好静止后自动拍照，逐张通知。
   * The result of the start is never sent. Needs an open preview.
   * @param on Start or end.
   * @param folder Folder for the files.
   * @param prefix How the file names begin.
   */
  iAutoScan(on: Numeric, folder: Text, prefix: Text): void;
  /**
   * Captures at a fixed interval. 定时扫描。
   * True even when nothing was started.
   * @param seconds Interval; 0 ends any scan.
   * @param folder Folder for the files.
   * @param prefix How the file names begin.
   * @param shots How many; 0 for no end.
   */
  iTimerScan(seconds: Numeric, folder: Text, prefix: Text, shots: Numeric): boolean;
  /**
   * Captures an open book whenever it lies still, each page into a file. 书籍扫描：静止后自动拍照，左右页分存。
   * @param folder Folder for the files; empty ends any scan.
   * @param prefix How the file names begin.
   * @param format File format.
   */
  bBookScanner(folder: Text, prefix: Text, format?: Text): boolean;
  /**
   * Records the preview into a file (H.264). 开始录像（H.264）。
   * @param file File to write; .mp4, .avi or .mkv.
   */
  bStartRec(file: Text): boolean;
  /**
   * Ends the recording; answers when the file is whole. 结束录像，文件写完后应答。
   * False comes at once when there is nothing to end; a second request before the answer has no answer of its own.
   */
  bStopRec(): boolean;
  /**
   * Records the preview in the second format (MPEG-4). 以第二种格式录像（MPEG-4）。
   * @param file File to write; .mp4, .avi or .mkv.
   */
  bStartRecMp3(file: Text): boolean;
  /**
   * Tells whether a recording is being made. 查询是否正在录像。
   */
  isRecording(): boolean;
  /**
   * Pauses the recording. 暂停录像。
   */
  bPauseRec(): boolean;
  /**
   * Goes on with a paused recording. 继续录像。
   */
  bResumeRec(): boolean;
  /**
   * Sets the frame size of later recordings. 设置后续录像的画面尺寸。
   * @param width Pixels.
   * @param height Pixels.
   */
  vSetRecSize(width: Numeric, height: Numeric): void;
  /**
   * Sets the watermark of later captures. 设置后续拍照的水印。
   * @param on Whether captures get it.
   * @param text Its text.
   * @param opacity Percent; 0 stands for 100.
   */
  vSetWaterPrint(on: Flag, text: Text, opacity: Numeric): boolean;
  /**
   * Sets the watermark's font. 设置水印字体。
   * @param font Font family.
   */
  vSetWaitePrintFont(font: Text): boolean;
  /**
   * Sets the size of the watermark's font. 设置水印字号。
   * @param points Points, at the resolution of vSetDPI.
   */
  vSetWaterPrintFontSize(points: Numeric): boolean;
  /**
   * Sets the watermark's color. 设置水印颜色。
   * @param color 0xRRGGBB with the portable library; digits alone are decimal.
   */
  vSetWaterPrintFontColor(color: Text): boolean;
  /**
   * Sets where the watermark stands. 设置水印位置。
   * @param x Pixels from the left; negative from the right.
   * @param y Pixels from the top; negative from the bottom.
   */
  vSetWaterPrintPos(x: Numeric, y?: Numeric): boolean;
  /**
   * Prints an image file, in color or grey. 打印图像文件（彩色或灰度）。
   * @param copies Copies, 1 to 99; 0 stands for 1.
   * @param picture Image file.
   * @param color Color or grey.
   */
  bPrintImage(copies: Numeric, picture: Text, color: Numeric): boolean;
  /**
   * Prints a capture of the current picture. 打印当前画面。
   * @param copies Copies, 1 to 99; 0 stands for 1.
   */
  bPrint(copies: Numeric): boolean;
  /**
   * Prints an image file in color. 彩色打印图像文件。
   * @param picture Image file.
   * @param copies Copies, 1 to 99; 0 stands for 1.
   */
  bPrintImageFile(picture: Text, copies?: Numeric): boolean;
  /**
   * Reads the barcodes in an image file. 识别图像文件中的条码。
   * @param picture Image file.
   */
  sGetBarCode(picture: Text): string[];
  /**
   * Reads the barcodes in the current picture. 识别当前画面中的条码。
   * The library's bytes come one character each; the portable library's are UTF-8.
   */
  sGetBarCodeOnline(): string[];
  /**
   * Reads the barcodes of one kind in an image file. 识别图像文件中指定类型的条码。
   * @param kind Kind of code.
   * @param picture Image file.
   */
  sGetBarCodeEx(kind: Numeric, picture: Text): string[];
  /**
   * Not supported: always false. 不支持：始终返回 false。
   */
  sOCRToString(): boolean;
  /**
   * Reads an identity card, with a parameter for the device library. 读取身份证（可带设备库参数）。
   * @param reserved Not looked at.
   * @param parameter The library's choice.
   */
  ReadCard(reserved?: Text, parameter?: Text): any;
  /**
   * Opens the card reader on USB. 打开USB读卡器。
   * @param port Port name; the portable library ignores it.
   */
  bOpenIDCardReader(port?: Text): boolean;
  /**
   * Reads an identity card; every page gets the answer. 读取身份证，结果发送给所有页面。
   */
  sIDCardReader(): any;
  /**
   * Tells whether the reader's security module answers. 查询读卡器安全模块状态。
   */
  bGetSAMStatus(): boolean;
  /**
   * Speaks a prompt. 播放语音提示。
   * @param number Which prompt.
   */
  bPlayVoice(number: Numeric): boolean;
  /**
   * Opens the card reader on a serial port. 打开串口读卡器。
   * @param device Serial device.
   */
  bOpenIDCardSerialPort(device: Text): boolean;
  /**
   * The serial number of an identity card's chip. 获取身份证芯片序列号。
   */
  sReadIDCardSnr(): string;
  /**
   * The serial number of an IC card, 0 without one. 获取IC卡序列号，无卡为0。
   */
  iReadICCardSnr(): number;
  /**
   * Closes the card reader. 关闭读卡器。
   */
  bCloseIDCardDevie(): boolean;
  /**
   * The number of the reader's security module. 获取安全模块编号。
   */
  GetSAMID(): string;
  /**
   * Reads a social security card. 读取社保卡基本信息。
   * @param type Card type, the library's choice.
   */
  iReadCardBas_noPasam(type?: Numeric): any;
  /**
   * Not supported: always an empty answer. 不支持：始终返回空。
   * @param type Not used.
   */
  iReadCardBas_noPasamVX(type?: Numeric): void;
  /**
   * Reads an identity card. 读取身份证。
   */
  readIDMsg(): any;
  /**
   * Reads an identity card. 读取身份证。
   */
  readIDMsgVX(): any;
  /**
   * Reads a bank card; tries a second reader when the first fails. 读取银行卡；失败时换读卡器再试一次。
   * @param type Reader type, the library's choice; 2 tries contactless cards first.
   */
  GetBankCardInfo(type?: Numeric): any;
  /**
   * Reads a social security card. 读取社保卡基本信息。
   * @param type Card type, the library's choice.
   */
  iReadCardBasEx(type?: Numeric): any;
  /**
   * Reads an identity card. 读取身份证。
   */
  sIDCardReaderVX(): any;
  /**
   * Reads a social security card, on the second reader family where it is connected. 读取社保卡（优先第二类读卡器）。
   * With the second reader family the card's text stands in outInfo, unescaped by the server; without it the text comes as it is.
   * @param type Card type, the library's choice.
   */
  WReadCardBasEx(type?: Numeric): any;
  /**
   * Reads an identity card, trying three readers in turn. 读取身份证（依次尝试三种读卡器）。
   */
  WReadSFZCardBas(): any;
  /**
   * Tells whether two image files show the same person. 判断两个图像文件是否同一人。
   * @param image1 Image file.
   * @param image2 Image file.
   */
  bImageMatch(image1: Text, image2: Text): boolean;
  /**
   * Compares the faces in two image files; answers with a score. 比对两个图像文件中的人脸，返回分数。
   * Of requests that come during a comparison only the newest is done; the others get no answer.
   * @param image1 Image file.
   * @param image2 Image file.
   */
  lImageMatch(image1: Text, image2: Text): number;
  /**
   * Compares a face with the photo of a card; answers with a score. 比对人脸与证件照，返回分数。
   * @param image1 Image file.
   * @param image2 Image file.
   */
  lImageIdMatch(image1: Text, image2: Text): number;
  /**
   * Compares the face in an image file with the one before the camera; answers with a score. 比对图像文件与摄像头前的人脸，返回分数。
   * @param image Image file.
   */
  lFaceMatch(image: Text): number;
  /**
   * Checks for a living person before the camera; answers when done. 活体检测，完成后应答。
   */
  bLivingBodyDetect(): boolean;
  /**
   * Waits for a face before the camera and compares it with an image file. 等待摄像头前出现人脸并与图像文件比对。
   * True means begun; the score is pushed later.
   * @param image Image file.
   * @param seconds Longest wait; 0 is 10, at most 60.
   * @param b The library's choice.
   * @param c The library's choice.
   */
  bImageMatchOnline(image: Text, seconds: Numeric, b: Numeric, c: Numeric): boolean;
  /**
   * Checks for a living person in the background. 后台活体检测。
   * True means begun; the result is pushed later.
   * @param seconds Longest wait; 0 is 10, at most 60.
   * @param b The library's choice.
   */
  bLivingBodyDetectOnline(seconds: Numeric, b: Numeric): boolean;
  /**
   * Waits for a face before the camera and takes its feature. 等待摄像头前出现人脸并提取特征。
   * True means begun; the feature is pushed later.
   * @param seconds Longest wait; 0 is 10, at most 60.
   * @param b The library's choice.
   */
  bFaceFeatureGetOnline(seconds: Numeric, b: Numeric): boolean;
  /**
   * The feature of a face, as base64; empty for a failure. 获取人脸特征（base64），失败为空。
   * @param fromFile Where the face is.
   * @param image Image file.
   * @param text The library's choice.
   */
  bFaceFeatureGet(fromFile: Flag, image: Text, text: Text): string;
  /**
   * Compares two features of faces; answers with a score, 0 for a failure. 比对两个人脸特征，返回分数，失败为0。
   * @param feature1 Feature, as bFaceFeatureGet gives it.
   * @param feature2 Feature.
   */
  lFaceFeatureMatch(feature1: string, feature2: string): number;
  /**
   * Shows the device library's own liveness check; answers when done. 显示设备库自带的活体检测界面，完成后应答。
   */
  ShowLivingBodyPage(): boolean;
  /**
   * Checks for a living person and sends the pictures meanwhile; ends the preview. 活体检测并推送画面；会结束当前预览。
   * True means begun; pictures and the result are pushed to every page. Starts and stops of the preview that are still waiting are dropped: they get no answer.
   */
  AutoLivingBody(): boolean;
  /**
   * Ends AutoLivingBody. 结束 AutoLivingBody。
   */
  CloseLivingBody(): boolean;
  /**
   * Waits for a finger on the sensor; answers with its image and feature. 采集指纹，返回图像和特征。
   * @param seconds Longest wait; 0 is 10, at most 60.
   */
  fingerCaptureRawData(seconds?: Numeric): { image: string; feature: string; score: number; msg: string };
  /**
   * Compares a fingerprint's feature with stored ones; answers with a score. 比对指纹特征，返回分数。
   * @param mode The library's choice.
   * @param feature Feature, as fingerCaptureRawData gives it.
   * @param count How many stored ones.
   * @param stored Stored feature.
   */
  lFingerMatch(mode: Numeric, feature: string, count: Numeric, ...stored: string[]): number;
  /**
   * Not supported: always false. 不支持：始终返回 false。
   */
  bSaveZAZFPBMP(): boolean;
  /**
   * Not supported: always false. 不支持：始终返回 false。
   */
  bSaveZAZFPBMPBase64(): boolean;
  /**
   * Lists the USB devices with their names. 列出USB设备及名称。
   */
  sEnumUSBDevice(): string[];
  /**
   * The device library's version. 获取设备库版本。
   */
  sServerVersion(): string;
  /**
   * The document camera's serial number. 获取高拍仪序列号。
   */
  sGetSerialNum(): string;
  /**
   * The platform as pages know it. 获取平台标识。
   */
  version(): string;
  /**
   * Lists the identifiers of the USB devices. 列出USB设备标识。
   */
  sGetDevicesId(): string[];
  /**
   * Whether document camera and social security module are connected, in words. 查询高拍仪和社保卡模块的连接状态。
   */
  GetDeviceStatus(): string[];
  /**
   * The server's version as pages know it. 获取服务版本。
   */
  getVersion(): string;
  /**
   * Sends a file to a web server; answers with the server's answer. 上传文件到Web服务器，返回服务器应答。
   * @param address Address of the server.
   * @param file File to send.
   * @param fileField Name of the form field of the file; empty: file.
   * @param extra Further fields, key=value&key=value, percent-encoded.
   * @param remove Remove the file once it was accepted.
   */
  sUpLoadImage(address: Text, file: Text, fileField?: Text, extra?: Text, remove?: Flag): string;
  /**
   * Sends a file to a host, page and port; answers with the server's answer. 上传文件到指定主机、页面和端口，返回服务器应答。
   * @param host Host, or address of http or https.
   * @param page Path on the server.
   * @param port Port; 0 for the usual one.
   * @param file File to send.
   */
  sUpLoadImageEx2(host: Text, page: Text, port: Numeric, file: Text): string;
  /**
   * Sends a file while progress and result may be shown on the screen. 上传文件，可在屏幕显示进度和结果。
   * @param host Host, or address of http or https.
   * @param page Path on the server.
   * @param port Port; 0 for the usual one.
   * @param file File to send.
   * @param switch Whether the extra fields are sent.
   * @param extra Further fields, key=value&key=value, percent-encoded.
   * @param fileField Name of the form field of the file; empty: file.
   * @param progress Show the progress on the screen.
   * @param result Show the result on the screen.
   */
  sUpLoadImageEx5(host: Text, page: Text, port: Numeric, file: Text, switch_: Numeric, extra: Text, fileField: Text, progress: Flag, result: Flag): string;
  /**
   * As sUpLoadImage; a sixth argument is not used. 同 sUpLoadImage，第六个参数未使用。
   * @param address Address of the server.
   * @param file File to send.
   * @param fileField Name of the form field of the file; empty: file.
   * @param extra Further fields, key=value&key=value, percent-encoded.
   * @param remove Remove the file once it was accepted.
   * @param unused Not used.
   */
  sUpLoadImageEx6(address: Text, file: Text, fileField?: Text, extra?: Text, remove?: Flag, unused?: Text): string;
  /**
   * Sends a file to a host, page and port; answers whether it was accepted. 上传文件到指定主机、页面和端口，返回是否成功。
   * @param host Host, or address of http or https.
   * @param page Path on the server.
   * @param port Port; 0 for the usual one.
   * @param file File to send.
   */
  bUpLoadImage(host: Text, page: Text, port: Numeric, file: Text): boolean;
  /**
   * Deletes a file for good. 永久删除文件。
   * @param file File.
   */
  bDeleteFileForever(file: Text): boolean;
  /**
   * Deletes a file, into the recycle bin where there is one. 删除文件（有回收站时移入回收站）。
   * @param file File.
   */
  bDeleteFile(file: Text): boolean;
  /**
   * Copies a file. 复制文件。
   * @param from File.
   * @param to Where it goes; nothing is replaced.
   */
  bCopyFile(from: Text, to: Text): boolean;
  /**
   * Moves a file. 移动文件。
   * @param from File.
   * @param to Where it goes; nothing is replaced.
   */
  bMoveFile(from: Text, to: Text): boolean;
  /**
   * Renames a file. 重命名文件。
   * @param from File.
   * @param to Where it goes; nothing is replaced.
   */
  bReNameFile(from: Text, to: Text): boolean;
  /**
   * Tells whether a file exists. 判断文件是否存在。
   * @param file File.
   */
  bFileIsExist(file: Text): boolean;
  /**
   * Tells whether a folder exists. 判断目录是否存在。
   * @param folder Folder.
   */
  bDirIsExist(folder: Text): boolean;
  /**
   * Opens a file on the screen with the desktop's program. 用桌面程序打开文件。
   * @param file File.
   */
  OpenFile(file: Text): boolean;
  /**
   * Tells whether the program that opens files is there. 查询打开文件所需的程序是否存在。
   */
  IsExeExist(): boolean;
  /**
   * Shows a folder on the screen. 在屏幕上显示目录。
   * @param folder Folder.
   */
  bDispPath(folder: Text): boolean;
  /**
   * Makes a folder with its parents; true also when it exists. 创建目录（含上级）；已存在也返回 true。
   * @param folder Folder.
   */
  bCreateDir(folder: Text): boolean;
  /**
   * Names of the files of a format in a folder. 列出目录中指定格式的文件名。
   * @param folder Folder.
   * @param format Extension or pattern, several joined with ";"; empty for all.
   */
  sGetAllFormatFiles(folder: Text, format: Text): string[];
  /**
   * The folder for temporary files, always /tmp. 获取临时目录，始终为 /tmp。
   */
  sGetTempPath(): string;
  /**
   * Asks the signature service to have a document signed. 请求签名服务对文档签名。
   * True means asked; the service's answer is pushed later to every page, without a frame.
   * @param pdf PDF document to sign.
   * @param xml XML file that goes with it.
   * @param location At least four numbers parted by "."; the service gets them parted by ",".
   * @param retain Passed on as it is.
   * @param timeout Passed on as it is.
   */
  DoGWQ_StartSign(pdf: Text, xml: Text, location: Text, retain: Text, timeout: Numeric): boolean;
  /**
   * As DoGWQ_StartSign, with the service's second kind of request. 同 DoGWQ_StartSign，使用第二种请求类型。
   * True means asked; the service's answer is pushed later to every page, without a frame.
   * @param pdf PDF document to sign.
   * @param xml XML file that goes with it.
   * @param location At least four numbers parted by "."; the service gets them parted by ",".
   * @param retain Passed on as it is.
   * @param timeout Passed on as it is.
   */
  DoGWQ_StartSignEx(pdf: Text, xml: Text, location: Text, retain: Text, timeout: Numeric): boolean;
  /**
   * Shows the page of the information exchange on the customer's screen. 在客户屏显示信息交互页面。
   * @param data What the page is told, as it is.
   */
  DoGWQ_StartInfo(data: Text): boolean;
  /**
   * Shows the page of the service evaluation on the customer's screen. 在客户屏显示服务评价页面。
   * @param data What the page is told, as it is.
   */
  DoGWQ_StartEvaluator(data: Text): boolean;
  /**
   * Shows the page of the teller information on the customer's screen. 在客户屏显示柜员信息页面。
   * @param data What the page is told, as it is.
   */
  GWQ_TellerInfo(data: Text): boolean;
  /**
   * Shows the page of the call number on the customer's screen. 在客户屏显示叫号页面。
   * @param data What the page is told, as it is.
   */
  GWQ_CallNumber(data: Text): boolean;
  /**
   * Shows the page of the payment on the customer's screen. 在客户屏显示缴费页面。
   * @param data What the page is told, as it is.
   */
  GWQ_PaymentInfo(data: Text): boolean;
  /**
   * Shows a web page on the customer's screen. 在客户屏打开网页。
   * @param url Address.
   */
  OpenURL(url: Text): boolean;
  /**
   * Ends the connections to the signature service and the browser helper. 断开签名服务和浏览器助手的连接。
   */
  WebbrowserExit(): boolean;
}

/** What the server pushes. */
export interface PushedEvents {
  /** A frame of the preview, or a picture of AutoLivingBody. 预览帧，或 AutoLivingBody 的画面。 */
  frame: string;
  /** The camera's button: true when it was pressed. 摄像头按键：按下为 true。 */
  vSetCapturePin: boolean;
  /** The preview was stopped because a page has left. 因有页面断开，预览已停止。 */
  bStopPlay: boolean;
  /** The main preview has started anew after bAVPreview. bAVPreview 之后主预览重新启动。 */
  bStartPlay: boolean;
  /** The number of a shot of the automatic scan, once its file is whole. 自动扫描完成一张的序号。 */
  iAutoScan: number;
  /** The score of bImageMatchOnline; negative for a failure. bImageMatchOnline 的分数；负数为失败。 */
  AfterbImageMatchOnline: number;
  /** The feature of bFaceFeatureGetOnline, base64; empty when no face came. bFaceFeatureGetOnline 的特征（base64）；未检测到人脸时为空。 */
  AfterbFaceFeatureGetOnline: string;
  /** The result of bLivingBodyDetectOnline. bLivingBodyDetectOnline 的结果。 */
  AfterbLivingBodyDetectOnline: boolean;
  /** The result of AutoLivingBody; its form is the library's choice. AutoLivingBody 的结果，格式由设备库定义。 */
  AfterbLivingBodyDetectEvent2: any;
}

export interface CommandFacts {
  reply: 'boolean' | 'number' | 'text' | 'json' | 'list' | 'pair' | 'empty' | 'none';
  split?: 'whole' | 'comma';
  fields?: Record<string, 'text' | 'integer' | 'number' | 'boolean' | 'base64' | 'hex' | 'color'>;
  /** How many arguments there must be, where some may be left out. */
  required?: number;
  repeat?: true;
  /** In milliseconds. */
  timeout?: number;
  late?: true;
  to?: 'all';
  alone?: true;
  dropped?: true;
  otherFrames?: string[];
  latin1?: true;
}
export const commands: Record<keyof Commands, CommandFacts>;
export const events: Record<string, CommandFacts['reply']>;
