// SPDX-License-Identifier: MIT
/// \file Painted faces for tests, so that the tree needs no photographs of people.
#pragma once

#include <QColor>
#include <QImage>
#include <QPainter>
#include <QPainterPath>

/// A face, its expression and pose.
struct DrawnFace
{
    // Who. Lengths are relative to the width of the face.
    QColor skin{224, 172, 138};
    QColor hair{45, 32, 26};
    double height = 1.32; ///< Of the face.
    double eyeDistance = 0.42; ///< Between the centers of the eyes.
    double noseLength = 0.26;
    double mouthWidth = 0.36;
    double browHeight = 0.13; ///< Above the eyes.
    bool hasBeard = false;

    // Expression and pose.
    double eyesOpen = 1; ///< 0 closed, 1 open.
    double turn = 0; ///< -1 to 1, from the left of the picture to the right.
};

/**
 * Paints a face upright.
 * \param size   of the picture in pixels
 * \param place  center of the face, in pixels
 * \param width  of the face in pixels
 */
inline QImage drawFace(const DrawnFace &face, const QSize &size, const QPointF &place, double width)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(QColor(150, 165, 175));
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(place);
    painter.scale(width, width); // from here on the face is 1 wide, centered at (0, 0)
    painter.setPen(Qt::NoPen);
    const double half = face.height / 2;
    const double shift = 0.14 * face.turn; // of what protrudes from the face
    const auto ellipse = [&](const QBrush &brush, double x, double y, double w, double h) {
        painter.setBrush(brush);
        painter.drawEllipse(QPointF(x, y), w / 2, h / 2);
    };
    const auto shade = [&](double x, double y, double w, double h, int strength) {
        QRadialGradient gradient(QPointF(0, 0), 0.5);
        gradient.setColorAt(0, QColor(60, 20, 10, strength));
        gradient.setColorAt(1, QColor(60, 20, 10, 0));
        painter.save();
        painter.translate(x, y);
        painter.scale(w, h);
        ellipse(gradient, 0, 0, 1, 1);
        painter.restore();
    };

    // Shoulders, neck, hair behind, ears.
    ellipse(QColor(60, 70, 110), 0, half + 0.95, 2.4, 1.3);
    painter.setBrush(face.skin.darker(118));
    painter.drawRoundedRect(QRectF(-0.24, 0.3, 0.48, half), 0.1, 0.1);
    ellipse(face.hair, 0, -0.16, 1.14, face.height * 0.98);
    ellipse(face.skin.darker(110), -0.5 + shift / 3, 0.02, 0.14, 0.28);
    ellipse(face.skin.darker(110), 0.5 + shift / 3, 0.02, 0.14, 0.28);

    // The face, lit from the upper left.
    QRadialGradient light(QPointF(-0.1 + shift, -0.15), 0.8);
    light.setColorAt(0, face.skin.lighter(112));
    light.setColorAt(0.6, face.skin);
    light.setColorAt(1, face.skin.darker(150));
    QPainterPath outline;
    outline.moveTo(-0.48, -0.2);
    outline.cubicTo(-0.48, -half * 1.12, 0.48, -half * 1.12, 0.48, -0.2);
    outline.cubicTo(0.48, 0.35, 0.25, half, 0, half);
    outline.cubicTo(-0.25, half, -0.48, 0.35, -0.48, -0.2);
    painter.setBrush(light);
    painter.drawPath(outline);
    painter.setClipPath(outline);
    ellipse(face.hair, shift / 2, -half - 0.02, 1.05, 0.5);
    if (face.hasBeard) {
        ellipse(QColor(face.hair.red(), face.hair.green(), face.hair.blue(), 170), shift / 2,
                half - 0.08, 0.7, 0.46);
    }

    // Eyes: sockets, white, iris, lids, brows.
    const double eyeY = -0.1;
    for (const double side : {-1.0, 1.0}) {
        const double x = side * face.eyeDistance / 2 + shift;
        const double open = 0.085 * face.eyesOpen;
        shade(x, eyeY - 0.01, 0.32, 0.24, 90);
        if (face.eyesOpen > 0.1) {
            QPainterPath white;
            white.moveTo(x - 0.105, eyeY + 0.01);
            white.quadTo(x, eyeY - open * 1.3, x + 0.105, eyeY + 0.005);
            white.quadTo(x, eyeY + open * 1.0, x - 0.105, eyeY + 0.01);
            painter.save();
            painter.setClipPath(white, Qt::IntersectClip);
            painter.setBrush(QColor(240, 236, 230));
            painter.drawPath(white);
            ellipse(QColor(70, 45, 30), x + shift / 4, eyeY, 0.085, 0.085);
            ellipse(QColor(10, 8, 8), x + shift / 4, eyeY, 0.042, 0.042);
            ellipse(QColor(255, 255, 255), x + shift / 4 - 0.015, eyeY - 0.015, 0.016, 0.016);
            painter.restore();
        }
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(QColor(40, 22, 18), 0.018, Qt::SolidLine, Qt::RoundCap));
        QPainterPath lid;
        lid.moveTo(x - 0.11, eyeY + 0.012);
        lid.quadTo(x, eyeY + 0.03 - (open * 1.3 + 0.03) * face.eyesOpen, x + 0.11, eyeY + 0.007);
        painter.drawPath(lid);
        painter.setPen(QPen(face.hair, 0.04, Qt::SolidLine, Qt::RoundCap));
        QPainterPath brow;
        brow.moveTo(x - 0.13, eyeY - face.browHeight + (side < 0 ? 0.02 : 0));
        brow.quadTo(x, eyeY - face.browHeight - 0.05, x + 0.13,
                    eyeY - face.browHeight + (side > 0 ? 0.02 : 0));
        painter.drawPath(brow);
        painter.setPen(Qt::NoPen);
    }

    // Nose: a shaded side, tip, nostrils.
    const double tip = eyeY + 0.06 + face.noseLength;
    const double nose = shift * 1.7;
    shade(nose + 0.06, tip - 0.1, 0.14, 0.36, 70);
    shade(nose, tip + 0.045, 0.3, 0.1, 110);
    QRadialGradient bulb(QPointF(nose - 0.02, tip - 0.03), 0.12);
    bulb.setColorAt(0, face.skin.lighter(120));
    bulb.setColorAt(1, QColor(face.skin.red(), face.skin.green(), face.skin.blue(), 0));
    ellipse(bulb, nose - 0.02, tip - 0.03, 0.24, 0.24);
    ellipse(QColor(90, 45, 35), nose - 0.055, tip + 0.03, 0.055, 0.03);
    ellipse(QColor(90, 45, 35), nose + 0.055, tip + 0.03, 0.055, 0.03);

    // Mouth and chin.
    const double mouthY = tip + 0.2;
    QPainterPath lips;
    lips.moveTo(shift - face.mouthWidth / 2, mouthY);
    lips.quadTo(shift - 0.05, mouthY - 0.07, shift, mouthY - 0.045);
    lips.quadTo(shift + 0.05, mouthY - 0.07, shift + face.mouthWidth / 2, mouthY);
    lips.quadTo(shift, mouthY + 0.12, shift - face.mouthWidth / 2, mouthY);
    painter.setBrush(QColor(176, 88, 80));
    painter.drawPath(lips);
    painter.setPen(QPen(QColor(100, 40, 40), 0.014));
    painter.drawLine(QPointF(shift - face.mouthWidth / 2, mouthY),
                     QPointF(shift + face.mouthWidth / 2, mouthY));
    painter.setPen(Qt::NoPen);
    shade(shift, mouthY + 0.11, 0.3, 0.08, 80);
    painter.end();

    // Soften the sharp edges of paint a little.
    return image.scaled(size / 2, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
        .scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}
