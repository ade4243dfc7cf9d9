// SPDX-License-Identifier: MIT
/// \file Codes of what government cards say about their holder.
#pragma once

class QString;

namespace portable {

/// GB/T 2261.1: 1 is 男, 2 is 女; empty for any other.
QString sexOfCode(int code);

/// GB/T 3304: the nationality of China with this code, from 1; empty for any other.
QString nationOfCode(int code);

} // namespace portable
