// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>

/**
 * Base64 of bytes, RFC 4648, without line breaks.
 * \param url  false: the standard alphabet, filled up with "="; true: "-" and "_" in place of "+"
 *             and "/", filled up with "." (not the RFC's "=": pages expect it so)
 */
std::string base64_encode(const unsigned char *bytes, unsigned long length, bool url);

/// Base64 of bytes in the standard alphabet with "=".
std::string base64_encode(const unsigned char *bytes, unsigned int length);

/**
 * The bytes of a base64 text in the standard alphabet. Ends without an error at the end, the
 * first "=" or the first character outside the alphabet (a line break too). Two or three
 * characters left over give one or two bytes, a single one nothing.
 */
std::string base64_decode(const std::string &text);

/// Length of the base64 text of so many bytes.
constexpr std::size_t base64Length(std::size_t bytes)
{
    return (bytes + 2) / 3 * 4;
}

/**
 * The encoder itself, into memory of the caller: standard alphabet with "=".
 * \param text  room for base64Length(length) characters; no NUL is appended
 */
void base64EncodeInto(const unsigned char *bytes, std::size_t length, char *text);
