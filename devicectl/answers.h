// SPDX-License-Identifier: MIT
/// \file Parsing of what the server sends.
#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

struct Answer
{
    QString name; ///< of the command, as the answer has it
    QString result;
};

/// Reads "Begin<name><result>End<name>" or {"code":..,"funcname":..,"data":..}; else nullopt.
std::optional<Answer> answerFrom(const QString &text);

/// Whether a text is a preview frame: the base64 text of a JPEG file.
bool isFrame(const QString &text);

/// Whether this is what the command answers when the device fails.
bool isFailure(const Answer &answer);

/// The bytes of a picture or file in base64, with or without "data:...,"; empty if it is none.
QByteArray bytesOf(const QString &result);
