// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>

/**
 * Encodes bytes as base64, RFC 4648, without line breaks.
 * \param url  false: the standard alphabet, padded with "="; true: "-" and "_" instead of "+" and
 *             "/", padded with "." (not the RFC's "=", but what pages expect)
 */
std::string base64_encode(const unsigned char *bytes, unsigned long length, bool url);

/// Encodes bytes as base64 in the standard alphabet, padded with "=".
std::string base64_encode(const unsigned char *bytes, unsigned int length);

/**
 * Decodes a base64 text in the standard alphabet. Stops, without an error, at the first "=" or
 * other character outside the alphabet, line breaks included. Two or three characters left over
 * give one or two bytes, a single one gives none.
 */
std::string base64_decode(const std::string &text);

/// Length of the base64 text of this many bytes.
constexpr std::size_t base64Length(std::size_t bytes)
{
    return (bytes + 2) / 3 * 4;
}

/**
 * Encodes into the caller's memory: standard alphabet, padded with "=".
 * \param text  has room for base64Length(length) characters; no NUL is appended
 */
void base64EncodeInto(const unsigned char *bytes, std::size_t length, char *text);
