// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

class QByteArray;

namespace base {

/**
 * Resizes a buffer that is used again and again. One that is much too large gives its memory back:
 * a single huge picture would keep it for good.
 */
void resizeBuffer(QByteArray &buffer, int size);

/**
 * From now on gives free memory back to the system once a minute; without it glibc keeps between
 * the blocks in use what a burst of frames or clients needed. Once, on the main thread, after the
 * application object was made.
 * \param further  gives back what else there is, before; on the main thread
 */
void returnFreeMemory(const std::function<void()> &further = [] {});

} // namespace base
