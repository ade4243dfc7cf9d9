// SPDX-License-Identifier: MIT
// Generated from docs/commands.json by scripts/generate-reference.mjs.

/** Text; numbers are written in decimal. */
export type Text = string | number;
/** A number or its decimal digits; the server reads an empty text as none. */
export type Numeric = number | string;
/** Sent as 1 or 0. */
export type Flag = boolean | number | string;

/**
 * What the portable device library says of a card; a maker's may say more, less or something else. Fields
 * of the card are there only if it was read, and dates are written like 1990-01-01.
 */
export interface Card {
  /** "0": read; "1": no reader; "2": no card; "3": it can't be read. */
  code?: string;
  /** 1: read; 0: not. */
  result?: number;
  /** Why it was not read. */
  message?: string;
  number?: string;
  [field: string]: unknown;
}
export interface IdCard extends Card {
  name?: string;
  sex?: string;
  nation?: string;
  birthDate?: string;
  address?: string;
  authority?: string;
  validFrom?: string;
  validTo?: string;
  /** A picture, base64. */
  photo?: string;
  serial?: string;
}
export interface SocialCard extends Card {
  name?: string;
  sex?: string;
  cardNumber?: string;
  nation?: string;
  birthDate?: string;
  validFrom?: string;
  validTo?: string;
  photo?: string;
}
export interface BankCard extends Card {
  /** Year and month: 2035-12. */
  expiry?: string;
}

/** Every command: its arguments and the result of its call. */
export interface Commands {
  /**
   * Ends a recording and stops the preview. 结束录像并停止预览。
   * When any client disconnects, the server stops the preview by itself: the other clients get this answer without a request.
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
   * Opens the fourth source; the preview continues. 打开第四路视频源（与预览并行）。
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
   * Shows or hides the device library's own image display; with the portable library, the window of bAVPreview. 显示或隐藏设备库自带的图像显示；便携库为 bAVPreview 的窗口。
   * @param on Whether it is shown.
   */
  vSetImageDispFlag(on: Flag): void;
  /**
   * Starts the preview of camera 3. 启动3号摄像头预览。
   */
  bStartPlay3(): boolean;
  /**
   * Enlarges the preview frames by the zoom factor. 按缩放系数增大推送帧。
   */
  vZoomOut(): void;
  /**
   * Shrinks the preview frames by the zoom factor. 按缩放系数减小推送帧。
   */
  vZoomIn(): void;
  /**
   * Resets the preview frames to 800×600 and the zoom factor to 10 %. 恢复推送800×600的帧，缩放系数恢复为10%。
   */
  vZoomOriginal(): void;
  /**
   * Sets the size of the preview frames. 设置推送帧的尺寸。
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
   * Starts the preview of camera 5, restarting it if it is already running. 启动5号摄像头预览；已在运行时会重新启动。
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
   * Shows the preview with the level of the microphone in a window of the device library's own. 在设备库自带的窗口中显示预览画面和麦克风音量。
   * After true the main preview restarts: a second text, the answer of bStartPlay, follows.
   * @param first Implementation-defined. Portable library: 0 closes the window, any other number opens it.
   * @param second Implementation-defined. Portable library: the number of the microphone, also for recordings that begin later; 0 is the one in devices.ini.
   */
  bAVPreview(first: Numeric, second: Numeric): boolean;
  /**
   * Turns preview frames on or off. 开启或关闭预览帧推送。
   * @param on Whether frames are sent.
   */
  vSetPreviewEnable(on: Flag): boolean;
  /**
   * Whether preview frames are sent. 查询是否推送预览帧。
   */
  bGetPreviewEnable(): boolean;
  /**
   * Not supported: always false. 不支持：始终返回 false。
   */
  displayVideoPara(): boolean;
  /**
   * Selects the part of the picture that captures take. 设置拍照取景模式。
   * @param mode Which part.
   */
  bSetMode(mode: Numeric): boolean;
  /**
   * Accepted without effect (deskewing): always true. 仅应答，不起作用（纠偏开关）：始终返回 true。
   */
  vSetSkewFlag(): boolean;
  /**
   * Accepted without effect (black border removal): always true. 仅应答，不起作用（去黑边开关）：始终返回 true。
   */
  vSetDelHBFlag(): boolean;
  /**
   * Accepted without effect (focus): always true. 仅应答，不起作用（焦距）：始终返回 true。
   */
  vSetFocus(): boolean;
  /**
   * Accepted without effect (video compression): always true. 仅应答，不起作用（视频压缩类型）：始终返回 true。
   */
  vSetVideoCompressType(): boolean;
  /**
   * Rotates preview and captures. 设置预览和拍照的旋转角度。
   * @param angle Degrees clockwise.
   */
  vSetRotate(angle: Numeric): boolean;
  /**
   * Sets a camera's resolution by its index in the list. 按序号设置指定摄像头分辨率。
   * Split at the first comma only; without a comma the number is used for both.
   * @param camera Camera number; 1 is the main camera.
   * @param index Index in the answer of getAllResolutionsEx, from 0.
   */
  vSetResolutionEx(camera: Numeric, index: Numeric): boolean;
  /**
   * Sets how bBookScanner works. 设置书籍扫描模式。
   * @param mode Implementation-defined; 0 to 2 with the portable library.
   */
  bSetBookScannerMode(mode: Numeric): boolean;
  /**
   * The mode set by bSetBookScannerMode. 查询书籍扫描模式。
   */
  igetBookScannerMode(): number;
  /**
   * Sets the camera's exposure. 设置曝光。
   * @param value -100 to 100 with the portable library; 0 is the camera's default.
   */
  vSetExposure(value: Numeric): boolean;
  /**
   * Sets the camera's brightness. 设置亮度。
   * @param value -100 to 100 with the portable library; 0 is the camera's default.
   */
  vSetBrightness(value: Numeric): boolean;
  /**
   * Sets the camera's contrast. 设置对比度。
   * @param value -100 to 100 with the portable library; 0 is the camera's default.
   */
  vSetContrast(value: Numeric): boolean;
  /**
   * Sets the main camera's resolution by its index in the list. 按序号设置主摄像头分辨率。
   * @param index Index in the answer of getAllResolutions, from 0.
   */
  vSetResolution(index: Numeric): boolean;
  /**
   * Lists a camera's resolutions; a number below 1 means camera 1. 列出摄像头支持的分辨率；小于1按1处理。
   * @param camera Camera number; 1 is the main camera.
   */
  getAllResolutions(camera: Numeric): { width: number; height: number }[];
  /**
   * Lists a camera's resolutions; any number is passed on unchanged. 列出摄像头支持的分辨率（编号原样传递）。
   * @param camera Camera number; 1 is the main camera.
   */
  getAllResolutionsEx(camera: Numeric): { width: number; height: number }[];
  /**
   * Requests a resolution of the main camera. 设置主摄像头分辨率（宽高）。
   * Nothing is set unless there are exactly two arguments.
   * @param width Pixels.
   * @param height Pixels.
   */
  setResolutionXY(width: Numeric, height: Numeric): boolean;
  /**
   * Requests a resolution of a camera. 设置指定摄像头分辨率（宽高）。
   * Nothing is set unless there are exactly three arguments.
   * @param camera Camera number; 1 is the main camera.
   * @param width Pixels.
   * @param height Pixels.
   */
  setResolutionExXY(camera: Numeric, width: Numeric, height: Numeric): boolean;
  /**
   * Width of a camera's current resolution. 查询摄像头当前分辨率宽度。
   * @param camera Camera number; 1 is the main camera.
   */
  iGetResolutionX(camera: Numeric): number;
  /**
   * Height of a camera's current resolution. 查询摄像头当前分辨率高度。
   * @param camera Camera number; 1 is the main camera.
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
   * Sets the crop area of captures in mode 1 of bSetMode. 设置拍照裁剪区域（bSetMode 为1时生效）。
   * @param x1 Left edge, in pixels of the rotated picture.
   * @param y1 Top edge.
   * @param x2 Right edge, exclusive.
   * @param y2 Bottom edge, exclusive.
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
   * Sets the camera's working mode; no effect with the portable library. 设置摄像头工作模式；便携库不提供。
   * @param mode Implementation-defined.
   */
  vSetCamaraMode(mode: Numeric): boolean;
  /**
   * Sets the resolution stored in saved pictures and pages. 设置保存图像和文档页的DPI。
   * @param x Horizontal dots per inch, 50 to 1200 with the portable library.
   * @param y Vertical dots per inch.
   */
  vSetDPI(x: Numeric, y: Numeric): boolean;
  /**
   * The resolution stored in saved pictures. 查询当前DPI。
   */
  vGetDPI(): [number, number];
  /**
   * The current rotation, in degrees clockwise. 查询当前旋转角度。
   */
  iGetRotate(): number;
  /**
   * Mirrors preview and captures. 设置预览和拍照的镜像翻转。
   * @param mode Axis.
   */
  vSetFlip(mode: Numeric): boolean;
  /**
   * The current mirroring. 查询当前翻转方式。
   */
  iGetFlip(): number;
  /**
   * Subscribes to presses of the camera's button. 订阅摄像头拍照按键事件。
   */
  vSetCapturePin(): void;
  /**
   * Focuses once, without waiting for the result. 自动对焦一次（不等待结果）。
   */
  AutoFocus(): boolean;
  /**
   * Saves the current picture as a color JPEG file. 将当前画面保存为彩色JPEG文件。
   * @param folder Folder for the file.
   * @param name File name without extension.
   */
  bSaveJPG(folder: Text, name: Text): boolean;
  /**
   * Saves the current picture as a color TIFF file with JPEG compression. 将当前画面保存为JPEG压缩的彩色TIFF文件。
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
   * Saves the current picture twice: as a grey JPEG and a black and white TIFF. 将当前画面同时保存为灰度JPEG和黑白TIFF。
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
   * @param kind Picture type.
   */
  sGetImageBase64(kind: Numeric): string;
  /**
   * Same as sGetJpgBase64. 同 sGetJpgBase64。
   */
  sGetBase64(): string;
  /**
   * A capture as bSaveJPG takes it, as base64; no file is kept. 按 bSaveJPG 拍照并返回base64，不留文件。
   * If the capture fails, the answer is the running camera's picture, or empty if none is running.
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
   * @param place Page number, from 2 on; the page is appended without it, with 1 and beyond the end.
   */
  bAddPDFColorPage(picture: Text, place?: Numeric): boolean;
  /**
   * Adds an image file to the PDF, in black and white. 将图像文件以黑白加入PDF。
   * @param picture Image file.
   * @param place Page number, from 2 on; the page is appended without it, with 1 and beyond the end.
   */
  bAddPDFBWPage(picture: Text, place?: Numeric): boolean;
  /**
   * Begins a JPEG file merged from several pictures. 开始将多张图片合并为一个JPEG。
   * @param folder Folder for the file.
   * @param name File name without extension.
   * @param direction Arrangement of the pictures.
   * @param gap Pixels between two pictures, 0 to 1000.
   * @param maxWidth Largest width in pixels, 0 for no limit.
   * @param maxHeight Largest height in pixels, 0 for no limit.
   */
  bSaveMergeStart(folder: Text, name: Text, direction: Numeric, gap: Numeric, maxWidth: Numeric, maxHeight: Numeric): boolean;
  /**
   * Adds the current picture to the merged picture. 将当前画面加入合并图片。
   */
  bSaveMergePage(): boolean;
  /**
   * Writes the merged picture. 结束并写出合并图片。
   */
  bSaveMergeEnd(): boolean;
  /**
   * Appends an image in base64 to the PDF. 将base64图像加入PDF。
   * @param image Base64 of an image file, optionally preceded by "data:image/...;base64,".
   */
  bAddPDFBase64ColorPage(image: string): boolean;
  /**
   * Begins an OFD document. 开始一个OFD文档。
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
   * An empty place (a comma followed by nothing) is refused.
   * @param picture Image file.
   * @param place Page number, from 2 on; the page is appended without it, with 1 and beyond the end.
   */
  bAddOFDPage(picture: Text, place?: Numeric): boolean;
  /**
   * Appends the current picture to the OFD, in black and white. 将当前画面以黑白加入OFD。
   */
  bSaveOFDBWPage(): boolean;
  /**
   * Appends an image in base64 to the OFD. 将base64图像加入OFD。
   * @param image Base64 of an image file, optionally preceded by "data:image/...;base64,".
   */
  bAddOFDBase64ColorPage(image: string): boolean;
  /**
   * Captures automatically whenever a document has been put down and is still; reports each shot. 自动扫描：文档放好静止后自动拍照，逐张通知。
   * The result of the start is never sent. Needs an open preview.
   * @param on Start or stop.
   * @param folder Folder for the files.
   * @param prefix Prefix of the file names.
   */
  iAutoScan(on: Numeric, folder: Text, prefix: Text): void;
  /**
   * Captures at a fixed interval. 定时扫描。
   * True even when nothing was started.
   * @param seconds Interval; 0 stops any scan.
   * @param folder Folder for the files.
   * @param prefix Prefix of the file names.
   * @param shots Number of shots; 0 for no limit.
   */
  iTimerScan(seconds: Numeric, folder: Text, prefix: Text, shots: Numeric): boolean;
  /**
   * Captures an open book whenever it is still, each page into its own file. 书籍扫描：静止后自动拍照，左右页分存。
   * @param folder Folder for the files; empty stops any scan.
   * @param prefix Prefix of the file names.
   * @param format File format.
   */
  bBookScanner(folder: Text, prefix: Text, format?: Text): boolean;
  /**
   * Records the preview into a file (H.264). 开始录像（H.264）。
   * @param file File to write; .mp4, .avi or .mkv.
   */
  bStartRec(file: Text): boolean;
  /**
   * Ends the recording; answers when the file is complete. 结束录像，文件写完后应答。
   * False is sent at once if there is no recording; a second request before the answer gets no answer of its own.
   */
  bStopRec(): boolean;
  /**
   * Records the preview in the second format (MPEG-4). 以第二种格式录像（MPEG-4）。
   * @param file File to write; .mp4, .avi or .mkv.
   */
  bStartRecMp3(file: Text): boolean;
  /**
   * Whether a recording is in progress. 查询是否正在录像。
   */
  isRecording(): boolean;
  /**
   * Pauses the recording. 暂停录像。
   */
  bPauseRec(): boolean;
  /**
   * Resumes a paused recording. 继续录像。
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
   * @param on Whether captures get the watermark.
   * @param text Watermark text.
   * @param opacity Percent; 0 means 100.
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
   * Sets the position of the watermark. 设置水印位置。
   * @param x Pixels from the left; negative: from the right.
   * @param y Pixels from the top; negative: from the bottom.
   */
  vSetWaterPrintPos(x: Numeric, y?: Numeric): boolean;
  /**
   * Prints an image file, in color or grey. 打印图像文件（彩色或灰度）。
   * @param copies Copies, 1 to 99; 0 means 1.
   * @param picture Image file.
   * @param color Color or grey.
   */
  bPrintImage(copies: Numeric, picture: Text, color: Numeric): boolean;
  /**
   * Prints a capture of the current picture. 打印当前画面。
   * @param copies Copies, 1 to 99; 0 means 1.
   */
  bPrint(copies: Numeric): boolean;
  /**
   * Prints an image file in color. 彩色打印图像文件。
   * @param picture Image file.
   * @param copies Copies, 1 to 99; 0 means 1.
   */
  bPrintImageFile(picture: Text, copies?: Numeric): boolean;
  /**
   * Reads the barcodes in an image file. 识别图像文件中的条码。
   * @param picture Image file.
   */
  sGetBarCode(picture: Text): string[];
  /**
   * Reads the barcodes in the current picture. 识别当前画面中的条码。
   * Each byte from the library arrives as one character; the portable library's bytes are UTF-8.
   */
  sGetBarCodeOnline(): string[];
  /**
   * Reads the barcodes of one kind in an image file. 识别图像文件中指定类型的条码。
   * @param kind Code type.
   * @param picture Image file.
   */
  sGetBarCodeEx(kind: Numeric, picture: Text): string[];
  /**
   * Not supported: always false. 不支持：始终返回 false。
   */
  sOCRToString(): boolean;
  /**
   * Reads an identity card, with a parameter for the device library. 读取身份证（可带设备库参数）。
   * @param reserved Ignored.
   * @param parameter Implementation-defined.
   */
  ReadCard(reserved?: Text, parameter?: Text): IdCard | string | null;
  /**
   * Opens the card reader on USB. 打开USB读卡器。
   * @param port Port name; the portable library ignores it.
   */
  bOpenIDCardReader(port?: Text): boolean;
  /**
   * Reads an identity card; every client gets the answer. 读取身份证，结果发送给所有页面。
   */
  sIDCardReader(): IdCard | string | null;
  /**
   * Whether the reader's security module responds. 查询读卡器安全模块状态。
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
   * @param type Card type, implementation-defined.
   */
  iReadCardBas_noPasam(type?: Numeric): SocialCard | string | null;
  /**
   * Not supported: always an empty answer. 不支持：始终返回空。
   * @param type Not used.
   */
  iReadCardBas_noPasamVX(type?: Numeric): void;
  /**
   * Reads an identity card. 读取身份证。
   */
  readIDMsg(): IdCard | string | null;
  /**
   * Reads an identity card. 读取身份证。
   */
  readIDMsgVX(): IdCard | string | null;
  /**
   * Reads a bank card; tries a second reader if the first fails. 读取银行卡；失败时换读卡器再试一次。
   * @param type Reader type, implementation-defined; the portable library tries contactless cards first for 2.
   */
  GetBankCardInfo(type?: Numeric): BankCard | string | null;
  /**
   * Reads a social security card. 读取社保卡基本信息。
   * @param type Card type, implementation-defined.
   */
  iReadCardBasEx(type?: Numeric): SocialCard | string | null;
  /**
   * Reads an identity card. 读取身份证。
   */
  sIDCardReaderVX(): IdCard | string | null;
  /**
   * Reads a social security card, on the second reader family where it is connected. 读取社保卡（优先第二类读卡器）。
   * With the second reader family the card's text is in outInfo, not escaped by the server; without it the text is sent unchanged.
   * @param type Card type, implementation-defined.
   */
  WReadCardBasEx(type?: Numeric): SocialCard | { lRet: number; outInfo: string } | string | null;
  /**
   * Reads an identity card, trying three readers in turn. 读取身份证（依次尝试三种读卡器）。
   */
  WReadSFZCardBas(): IdCard | string | null;
  /**
   * Whether two image files show the same person. 判断两个图像文件是否同一人。
   * @param image1 Image file.
   * @param image2 Image file.
   */
  bImageMatch(image1: Text, image2: Text): boolean;
  /**
   * Compares the faces in two image files; answers with a score. 比对两个图像文件中的人脸，返回分数。
   * Of the requests that arrive during a comparison only the newest is processed; the others get no answer.
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
   * Compares the face in an image file with the one in front of the camera; answers with a score. 比对图像文件与摄像头前的人脸，返回分数。
   * @param image Image file.
   */
  lFaceMatch(image: Text): number;
  /**
   * Checks for a live person in front of the camera; answers when done. 活体检测，完成后应答。
   */
  bLivingBodyDetect(): boolean;
  /**
   * Waits for a face in front of the camera and compares it with an image file. 等待摄像头前出现人脸并与图像文件比对。
   * True means started; the score is pushed later.
   * @param image Image file.
   * @param seconds Maximum wait; 0 means 10, at most 60.
   * @param b Implementation-defined.
   * @param c Implementation-defined.
   */
  bImageMatchOnline(image: Text, seconds: Numeric, b: Numeric, c: Numeric): boolean;
  /**
   * Checks for a live person in the background. 后台活体检测。
   * True means started; the result is pushed later.
   * @param seconds Maximum wait; 0 means 10, at most 60.
   * @param b Implementation-defined.
   */
  bLivingBodyDetectOnline(seconds: Numeric, b: Numeric): boolean;
  /**
   * Waits for a face in front of the camera and extracts its feature. 等待摄像头前出现人脸并提取特征。
   * True means started; the feature is pushed later.
   * @param seconds Maximum wait; 0 means 10, at most 60.
   * @param b Implementation-defined.
   */
  bFaceFeatureGetOnline(seconds: Numeric, b: Numeric): boolean;
  /**
   * The feature of a face, as base64; empty on failure. 获取人脸特征（base64），失败为空。
   * @param fromFile Where the face is.
   * @param image Image file.
   * @param text Implementation-defined.
   */
  bFaceFeatureGet(fromFile: Flag, image: Text, text: Text): string;
  /**
   * Compares two face features; answers with a score, 0 on failure. 比对两个人脸特征，返回分数，失败为0。
   * @param feature1 Feature, as returned by bFaceFeatureGet.
   * @param feature2 Feature.
   */
  lFaceFeatureMatch(feature1: string, feature2: string): number;
  /**
   * Shows the device library's own liveness check; answers when done. 显示设备库自带的活体检测界面，完成后应答。
   */
  ShowLivingBodyPage(): boolean;
  /**
   * Checks for a live person and sends pictures during the check; ends the preview. 活体检测并推送画面；会结束当前预览。
   * True means started; pictures and the result are pushed to every client. Preview starts and stops that are still waiting are dropped and get no answer.
   */
  AutoLivingBody(): boolean;
  /**
   * Ends AutoLivingBody. 结束 AutoLivingBody。
   */
  CloseLivingBody(): boolean;
  /**
   * Waits for a finger on the sensor; answers with its image and feature. 采集指纹，返回图像和特征。
   * @param seconds Maximum wait; 0 means 10, at most 60.
   */
  fingerCaptureRawData(seconds?: Numeric): { image: string; feature: string; score: number; msg: string };
  /**
   * Compares a fingerprint feature with stored ones; answers with a score. 比对指纹特征，返回分数。
   * @param mode Implementation-defined.
   * @param feature Feature, as returned by fingerCaptureRawData.
   * @param count Number of stored features.
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
   * The platform's name in the protocol. 获取平台标识。
   */
  version(): string;
  /**
   * Lists the identifiers of the USB devices. 列出USB设备标识。
   */
  sGetDevicesId(): string[];
  /**
   * Whether the document camera and the social security module are connected, in words. 查询高拍仪和社保卡模块的连接状态。
   */
  GetDeviceStatus(): string[];
  /**
   * The server's version in the protocol. 获取服务版本。
   */
  getVersion(): string;
  /**
   * Uploads a file to a web server; answers with its response. 上传文件到Web服务器，返回服务器应答。
   * @param address Address of the server.
   * @param file File to send.
   * @param fileField Name of the form field for the file; empty: file.
   * @param extra Additional fields, key=value&key=value, percent-encoded.
   * @param remove Delete the file once it has been accepted.
   */
  sUpLoadImage(address: Text, file: Text, fileField?: Text, extra?: Text, remove?: Flag): string;
  /**
   * Uploads a file to a host, page and port; answers with the server's response. 上传文件到指定主机、页面和端口，返回服务器应答。
   * @param host Host, or an http or https address.
   * @param page Path on the server.
   * @param port Port; 0 for the default.
   * @param file File to send.
   */
  sUpLoadImageEx2(host: Text, page: Text, port: Numeric, file: Text): string;
  /**
   * Uploads a file, optionally showing progress and result on the screen. 上传文件，可在屏幕显示进度和结果。
   * @param host Host, or an http or https address.
   * @param page Path on the server.
   * @param port Port; 0 for the default.
   * @param file File to send.
   * @param switch Whether the extra fields are sent.
   * @param extra Additional fields, key=value&key=value, percent-encoded.
   * @param fileField Name of the form field for the file; empty: file.
   * @param progress Show the progress on the screen.
   * @param result Show the result on the screen.
   */
  sUpLoadImageEx5(host: Text, page: Text, port: Numeric, file: Text, switch_: Numeric, extra: Text, fileField: Text, progress: Flag, result: Flag): string;
  /**
   * Same as sUpLoadImage; a sixth argument is ignored. 同 sUpLoadImage，第六个参数未使用。
   * @param address Address of the server.
   * @param file File to send.
   * @param fileField Name of the form field for the file; empty: file.
   * @param extra Additional fields, key=value&key=value, percent-encoded.
   * @param remove Delete the file once it has been accepted.
   * @param unused Not used.
   */
  sUpLoadImageEx6(address: Text, file: Text, fileField?: Text, extra?: Text, remove?: Flag, unused?: Text): string;
  /**
   * Uploads a file to a host, page and port; answers whether it was accepted. 上传文件到指定主机、页面和端口，返回是否成功。
   * @param host Host, or an http or https address.
   * @param page Path on the server.
   * @param port Port; 0 for the default.
   * @param file File to send.
   */
  bUpLoadImage(host: Text, page: Text, port: Numeric, file: Text): boolean;
  /**
   * Deletes a file permanently. 永久删除文件。
   * @param file File.
   */
  bDeleteFileForever(file: Text): boolean;
  /**
   * Deletes a file, to the recycle bin if there is one. 删除文件（有回收站时移入回收站）。
   * @param file File.
   */
  bDeleteFile(file: Text): boolean;
  /**
   * Copies a file. 复制文件。
   * @param from File.
   * @param to Target path; an existing file is not replaced.
   */
  bCopyFile(from: Text, to: Text): boolean;
  /**
   * Moves a file. 移动文件。
   * @param from File.
   * @param to Target path; an existing file is not replaced.
   */
  bMoveFile(from: Text, to: Text): boolean;
  /**
   * Renames a file. 重命名文件。
   * @param from File.
   * @param to Target path; an existing file is not replaced.
   */
  bReNameFile(from: Text, to: Text): boolean;
  /**
   * Whether a file exists. 判断文件是否存在。
   * @param file File.
   */
  bFileIsExist(file: Text): boolean;
  /**
   * Whether a folder exists. 判断目录是否存在。
   * @param folder Folder.
   */
  bDirIsExist(folder: Text): boolean;
  /**
   * Opens a file on the screen with the desktop's default program. 用桌面程序打开文件。
   * @param file File.
   */
  OpenFile(file: Text): boolean;
  /**
   * Whether the program that opens files is installed. 查询打开文件所需的程序是否存在。
   */
  IsExeExist(): boolean;
  /**
   * Shows a folder on the screen. 在屏幕上显示目录。
   * @param folder Folder.
   */
  bDispPath(folder: Text): boolean;
  /**
   * Creates a folder and its parents; true also if it exists. 创建目录（含上级）；已存在也返回 true。
   * @param folder Folder.
   */
  bCreateDir(folder: Text): boolean;
  /**
   * Lists the files of a format in a folder. 列出目录中指定格式的文件名。
   * @param folder Folder.
   * @param format Extension or pattern, several joined with ";"; empty for all.
   */
  sGetAllFormatFiles(folder: Text, format: Text): string[];
  /**
   * The folder for temporary files, always /tmp. 获取临时目录，始终为 /tmp。
   */
  sGetTempPath(): string;
  /**
   * Asks the signature service for a signature on a document. 请求签名服务对文档签名。
   * True means that the request was sent; the service's answer is pushed later to every client, without a frame.
   * @param pdf PDF document to sign.
   * @param xml XML file for the record of the signing.
   * @param location At least four numbers separated by "."; the service receives them separated by ",".
   * @param retain Passed on unchanged.
   * @param timeout Passed on unchanged.
   */
  DoGWQ_StartSign(pdf: Text, xml: Text, location: Text, retain: Text, timeout: Numeric): boolean;
  /**
   * As DoGWQ_StartSign, but shows the whole document. 同 DoGWQ_StartSign，使用第二种请求类型。
   * True means that the request was sent; the service's answer is pushed later to every client, without a frame.
   * @param pdf PDF document to sign.
   * @param xml XML file for the record of the signing.
   * @param location At least four numbers separated by "."; the service receives them separated by ",".
   * @param retain Passed on unchanged.
   * @param timeout Passed on unchanged.
   */
  DoGWQ_StartSignEx(pdf: Text, xml: Text, location: Text, retain: Text, timeout: Numeric): boolean;
  /**
   * Shows the information exchange page on the customer's screen. 在客户屏显示信息交互页面。
   * @param data Data for the page, passed on unchanged.
   */
  DoGWQ_StartInfo(data: Text): boolean;
  /**
   * Shows the service evaluation page on the customer's screen. 在客户屏显示服务评价页面。
   * @param data Data for the page, passed on unchanged.
   */
  DoGWQ_StartEvaluator(data: Text): boolean;
  /**
   * Shows the teller information page on the customer's screen. 在客户屏显示柜员信息页面。
   * @param data Data for the page, passed on unchanged.
   */
  GWQ_TellerInfo(data: Text): boolean;
  /**
   * Shows the call number page on the customer's screen. 在客户屏显示叫号页面。
   * @param data Data for the page, passed on unchanged.
   */
  GWQ_CallNumber(data: Text): boolean;
  /**
   * Shows the payment page on the customer's screen. 在客户屏显示缴费页面。
   * @param data Data for the page, passed on unchanged.
   */
  GWQ_PaymentInfo(data: Text): boolean;
  /**
   * Shows a web page on the customer's screen. 在客户屏打开网页。
   * @param url Address.
   */
  OpenURL(url: Text): boolean;
  /**
   * Closes the connections to the signature service and the browser helper. 断开签名服务和浏览器助手的连接。
   */
  WebbrowserExit(): boolean;
}

/** What the server pushes. */
export interface PushedEvents {
  /** A preview frame, or a picture of AutoLivingBody. 预览帧，或 AutoLivingBody 的画面。 */
  frame: string;
  /** The camera's button: true when it was pressed. 摄像头按键：按下为 true。 */
  vSetCapturePin: boolean;
  /** The preview was stopped because a client disconnected. 因有页面断开，预览已停止。 */
  bStopPlay: boolean;
  /** The main preview has restarted after bAVPreview. bAVPreview 之后主预览重新启动。 */
  bStartPlay: boolean;
  /** The number of a shot of the automatic scan, once its file is complete. 自动扫描完成一张的序号。 */
  iAutoScan: number;
  /** The score of bImageMatchOnline; negative on failure. bImageMatchOnline 的分数；负数为失败。 */
  AfterbImageMatchOnline: number;
  /** The feature of bFaceFeatureGetOnline, base64; empty if no face appeared. bFaceFeatureGetOnline 的特征（base64）；未检测到人脸时为空。 */
  AfterbFaceFeatureGetOnline: string;
  /** The result of bLivingBodyDetectOnline. bLivingBodyDetectOnline 的结果。 */
  AfterbLivingBodyDetectOnline: boolean;
  /** The result of AutoLivingBody; its form is implementation-defined. AutoLivingBody 的结果，格式由设备库定义。 */
  AfterbLivingBodyDetectEvent2: any;
  /** The customer's answer on the information exchange page. 客户在信息交互页面的答复。 */
  AfterDoGWQ_StartInfo: string;
  /** The customer's opinion on the service evaluation page. 客户在服务评价页面的评价。 */
  AfterDoGWQ_StartEvaluator: string;
}

export interface CommandFacts {
  reply: 'boolean' | 'number' | 'text' | 'json' | 'list' | 'pair' | 'empty' | 'none';
  split?: 'whole' | 'comma';
  fields?: Record<string, 'text' | 'integer' | 'number' | 'boolean' | 'base64' | 'hex' | 'color'>;
  /** Number of required arguments, if some are optional. */
  required?: number;
  repeat?: true;
  /** Milliseconds. */
  timeout?: number;
  late?: true;
  to?: 'all';
  /** Why a page can't know whose request an answer is for. */
  mistakable?: 'broadcast' | 'unasked' | 'current';
  /** A command that is sent before: what arrives before its answer is of an earlier request. */
  mark?: string;
  alone?: true;
  dropped?: true;
  /** The only possible answer, of a late one. */
  always?: true;
  otherFrames?: string[];
  latin1?: true;
}
export const commands: Record<keyof Commands, CommandFacts>;
export const events: Record<string, CommandFacts['reply']>;
