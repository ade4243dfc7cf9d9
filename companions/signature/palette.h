// SPDX-License-Identifier: MIT
/// \file The colors of the window.
#pragma once

#include <QColor>

namespace palette {

const QColor ground(238, 241, 246);
const QColor header(18, 58, 104);
const QColor accent(24, 104, 190);
const QColor line(196, 205, 217);
const QColor placeholder(172, 183, 198);
const QColor text(38, 50, 66);
const QColor quiet(110, 122, 138);
const QColor urgent(255, 190, 92);

} // namespace palette
