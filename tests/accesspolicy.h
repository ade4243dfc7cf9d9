// SPDX-License-Identifier: MIT
/// \file Policies as texts, for tests.
#pragma once

#include "access/doorkeeper.h"
#include "access/policyparser.h"

#include <memory>

/// "[policy] version=1" and what follows; sections are separated by blanks: "[origin] allow=file".
inline QByteArray policyText(QString sections)
{
    sections.replace(QLatin1String(" ["), QLatin1String("\n["));
    sections.replace(QLatin1String("] "), QLatin1String("]\n"));
    sections.replace(QLatin1Char('|'), QLatin1Char('\n'));
    return "[policy]\nversion=1\n" + sections.toUtf8() + '\n';
}

/// The policy of a text that is one.
inline std::shared_ptr<const accesspolicy::Policy>
policyOf(const QString &sections, const accesspolicy::NeverFolders &never = {})
{
    accesspolicy::PolicyError error;
    const auto policy = accesspolicy::parsePolicy(policyText(sections),
                                                  QStringLiteral("access.ini"), never, &error);
    if (!policy) {
        qFatal("%s", qPrintable(error.text()));
    }
    return std::make_shared<const accesspolicy::Policy>(*policy);
}
