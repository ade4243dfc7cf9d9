// A device library with two functions; the server answers "false" for those that it doesn't have.
#include "devicelib/doccamera.h"

#include <QImage>

static bool isOpen = false;

bool bStartPlay(short)
{
    return isOpen = true;
}

bool getVideoFrame(QImage &frame)
{
    frame = isOpen ? QImage(640, 480, QImage::Format_RGB888) : QImage();
    frame.fill(Qt::blue);
    return isOpen;
}
