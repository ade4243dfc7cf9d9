// SPDX-License-Identifier: MIT
#pragma once

#include <QRect>
#include <QVector>

QT_FORWARD_DECLARE_CLASS(QScreen)

/**
 * Finds the customer's screen: the first one, unless a later one is both narrower and lower than
 * the smallest so far.
 *
 * \param screens  their geometries, at least one, in pixels
 * \return an index into them
 */
int smallestScreen(const QVector<QRect> &screens);

/// The geometries of the desktop's screens, in Qt's order.
QVector<QRect> screenGeometries();

/// The customer's screen by the rule above. Needs the application object; null without a screen.
QScreen *customerScreen();
