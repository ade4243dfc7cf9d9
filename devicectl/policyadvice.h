// SPDX-License-Identifier: MIT
#pragma once

#include "access/policy.h"

#include <QJsonArray>
#include <QString>
#include <QStringList>

#include <memory>

/// A policy in words, a line each: who may connect, and what each grant allows.
QStringList explained(const accesspolicy::Policy &policy);

/**
 * What a report (access-report.json) has, a line each, the most frequent first: how often which
 * rule refused, or would have refused, what to whom.
 */
QStringList reportLines(const QJsonArray &report);

/**
 * A policy whose grants also allow what the report says was refused by them, as the text of a file.
 * What other rules refused is named in comments, as it takes somebody's decision.
 */
QString proposal(const accesspolicy::Policy &policy, const QJsonArray &report);

/**
 * What the policy does with a text of a page of this origin ("file" and "none" are origins, too).
 * \return empty if it is carried out; else why not, with the line of the file
 */
QString refusalOf(const std::shared_ptr<const accesspolicy::Policy> &policy, const QString &origin,
                  const QString &text, const QString &ownPages);
