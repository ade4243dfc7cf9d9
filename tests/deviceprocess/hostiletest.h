// SPDX-License-Identifier: MIT
#pragma once

#include "base/memorylimit.h"
#include "deviceprocess/stub/devicehost.h"
#include "tests/files.h"
#include "tests/pages.h"

#include <QCoreApplication>
#include <QFile>
#include <QtTest>

#include <csignal>

/// Of the usual times; under a sanitizer everything is slower. Calls are hurried only where the
/// library does wrong: on a busy machine others would fail.
constexpr double hurry = canLimitMemory ? 0.02 : 0.1;
constexpr deviceprocess::TimeLimits usualLimits{1, hurry};

/// For tests of a device process with the hostile library.
class HostileTest : public QObject
{
    Q_OBJECT

protected Q_SLOTS:
    void initTestCase()
    {
        QFile ini(QCoreApplication::applicationDirPath() + QStringLiteral("/devices.ini"));
        QVERIFY(ini.open(QIODevice::WriteOnly));
        ini.write("[library]\ncamera=" HOSTILE_LIBRARY "\ncards=" HOSTILE_LIBRARY
                  "\nmemory=512\ntimeFactor=3\n");
        ini.close();
        const auto limits = deviceprocess::DeviceHost::instance().timeLimits();
        QCOMPARE(limits.callFactor, 3.0);
        QCOMPARE(qint64(limits.start.count()), 3 * deviceprocess::TimeLimits().start.count());
        m_order = QCoreApplication::applicationDirPath() + QStringLiteral("/order");
        qputenv("HOSTILE_ORDER", m_order.toLocal8Bit());
        order("none none");
    }

    void init()
    {
        order("none none");
        deviceprocess::DeviceHost::instance().setTimeLimits(usualLimits);
        QVERIFY(waitFor(isAnswered));
    }

protected:
    /// What the library does from now on: a function's name, or "any", a deed, and a number.
    void order(const QByteArray &text) { writeFile(m_order, text); }

    /// The calls that obeyed.
    QByteArray ordered() const { return contentOf(m_order + QLatin1String("ed")); }

    static bool isAnswered()
    {
        deviceprocess::Message reply;
        return deviceprocess::DeviceHost::instance().call(deviceprocess::FunctionId::iGetRotate,
                                                          deviceprocess::FunctionKind::Query,
                                                          deviceprocess::Writer(), &reply);
    }

    /// Kills or stops the process once it answers, and waits until the next one does.
    void signalProcess(int signal)
    {
        QVERIFY(waitFor(isAnswered));
        QFile::remove(m_order + QLatin1String("ed"));
        const int restarts = deviceprocess::DeviceHost::instance().restarts();
        kill(deviceprocess::DeviceHost::instance().processId(), signal);
        QVERIFY(waitFor([=] {
            return isAnswered() && deviceprocess::DeviceHost::instance().restarts() > restarts;
        }));
    }

    QString m_order; ///< A file: what the library is ordered to do.
};
