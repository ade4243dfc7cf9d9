// SPDX-License-Identifier: MIT
//
// The command vocabulary, once, in the order of registration. No include guard: whoever includes
// this file defines COMMAND(command) first, and gets it expanded for every name. From here come
// the declarations of the callbacks (MessageRun), the registry, and the checks of the tests.
//
// The spellings are what pages send, odd ones included.

#ifndef COMMAND
#error "define COMMAND(command) before including commandlist.h"
#endif

// clang-format off
COMMAND(bStopPlay)
COMMAND(bStartPlay)
COMMAND(bStartPlay2)
COMMAND(bStartPlayRotate)
COMMAND(bStartPlay4)
COMMAND(bStopPlay4)
COMMAND(bStartPlay6)
COMMAND(vSetImageDispFlag)
COMMAND(bStartPlay3)
COMMAND(vZoomOut)
COMMAND(vZoomIn)
COMMAND(vZoomOriginal)
COMMAND(vSetPreViewSize)
COMMAND(vSetZoomFactor)
COMMAND(bStartPlayOpen)
COMMAND(bStartPlay5)
COMMAND(bStartPlay8)
COMMAND(bStartPlay9)
COMMAND(bAVPreview)
COMMAND(vSetPreviewEnable)
COMMAND(bGetPreviewEnable)
COMMAND(displayVideoPara)
// clang-format on

#undef COMMAND
