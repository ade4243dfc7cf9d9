// SPDX-License-Identifier: MIT
#pragma once

/// \name When the program was built, as __DATE__ and __TIME__ have it; see cmake/builddate.cmake
///@{
extern const char *const buildDate;
extern const char *const buildTime;
///@}
