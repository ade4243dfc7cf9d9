// SPDX-License-Identifier: MIT
#include "dispatch/clientqueue.h"
#include "tests/manualclock.h"

#include <QtTest>

#include <functional>
#include <map>

using namespace std::chrono_literals;

class TestClientQueue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_clock = std::make_unique<ManualClock>();
        base::Clock::setShared(m_clock.get());
        m_queue = std::make_unique<ClientQueue>();
        m_queue->setTurn(50ms);
        m_done.clear();
        m_onText.clear();
        m_queue->setRun([this](QObject *client, const QString &text) {
            m_done << (client == &m_a ? QStringLiteral("a") : QStringLiteral("b")) + text;
            if (const auto action = m_onText[text]) {
                action();
            }
        });
    }

    void cleanup()
    {
        m_queue.reset();
        base::Clock::setShared(nullptr);
    }

    void textsAreCarriedOutAtOnce()
    {
        arrive(&m_a, {"1", "2"});
        arrive(&m_b, {"1"});
        QCOMPARE(done(), "a1 a2 b1");
        QCOMPARE(m_queue->waitingBytes(), 0);
    }

    void whatTakesLongLetsOthersBetween()
    {
        m_onText[QStringLiteral("slow")] = [this] { m_clock->advance(60ms); };
        arrive(&m_a, {"slow", "2", "slow", "4"});
        QCOMPARE(done(), "aslow");
        QCOMPARE(m_queue->waitingTexts(&m_a), 3);
        arrive(&m_b, {"1"}); // at once, though others wait
        QCOMPARE(done(), "b1");

        arrive(&m_b, {"slow", "5", "6"});
        arrive(&m_a, {"7"}); // behind its others
        QCOMPARE(done(), "bslow");
        turn();
        QCOMPARE(m_done.size(), 1);
        turn(5);
        QCOMPARE(done(), "a2 b5 aslow b6 a4 a7");
        QCOMPARE(m_queue->waitingBytes(), 0);
    }

    void aTextThatNobodyRunsIsCarriedOutLater()
    {
        m_queue->push(&m_a, QStringLiteral("1"));
        QCOMPARE(done(), "");
        turn();
        QCOMPARE(done(), "a1");
    }

    void heldClientsWait()
    {
        arrive(&m_a, {"1"});
        ClientQueue::Hold first = m_queue->hold(&m_a);
        ClientQueue::Hold second = m_queue->hold(&m_a);
        arrive(&m_a, {"2", "3"});
        arrive(&m_b, {"1"});
        turn(3);
        QCOMPARE(done(), "a1 b1");
        first.release();
        first.release();
        turn(3);
        QCOMPARE(done(), "");
        second = ClientQueue::Hold();
        turn(3);
        QCOMPARE(done(), "a2 a3");
    }

    void aCommandThatHoldsItsClient()
    {
        ClientQueue::Hold hold;
        m_onText[QStringLiteral("upload")] = [&] { hold = m_queue->hold(&m_a); };
        arrive(&m_a, {"upload", "2"});
        turn(2);
        QCOMPARE(done(), "aupload");
        hold.release();
        turn();
        QCOMPARE(done(), "a2");
    }

    void clientsThatHaveGone()
    {
        arrive(&m_a, {"1"});
        ClientQueue::Hold hold = m_queue->hold(&m_a);
        arrive(&m_a, {"2", "3"});
        QCOMPARE(m_queue->waitingTexts(&m_a), 2);
        QCOMPARE(m_queue->waitingBytes(&m_a), 4);
        m_queue->forget(&m_a);
        QCOMPARE(m_queue->waitingBytes(), 0);
        // Another client at the same address has nothing to do with that hold.
        arrive(&m_a, {"4"});
        ClientQueue::Hold other = m_queue->hold(&m_a);
        hold.release();
        arrive(&m_a, {"5"});
        turn(2);
        QCOMPARE(done(), "a1 a4");
        m_queue.reset();
        other.release();
    }

    void clientsThatLeave()
    {
        m_queue->setFarewell(100ms);
        m_onText[QStringLiteral("slow")] = [this] { m_clock->advance(60ms); };
        arrive(&m_a, {"slow", "2", "3"});
        QCOMPARE(m_queue->leave(&m_a), 0); // though its turn is over
        QCOMPARE(done(), "aslow a2 a3");
        arrive(&m_a, {"slow", "slow", "slow", "4", "5"});
        QCOMPARE(m_queue->leave(&m_a), 2); // too much
        QCOMPARE(done(), "aslow aslow aslow");
        QCOMPARE(m_queue->waitingBytes(), 0);
        arrive(&m_a, {"1"});
        const ClientQueue::Hold hold = m_queue->hold(&m_a);
        arrive(&m_a, {"2"});
        QCOMPARE(m_queue->leave(&m_a), 1);
        QCOMPARE(m_queue->leave(&m_a), 0);
        QCOMPARE(done(), "a1");
    }

    void aClientThatGoesDuringItsCommand()
    {
        m_onText[QStringLiteral("leave")] = [this] { QCOMPARE(m_queue->leave(&m_a), 1); };
        arrive(&m_a, {"leave", "2"});
        turn(2);
        QCOMPARE(done(), "aleave");
        QVERIFY(!m_queue->hold(&m_a));
    }

    void anEventLoopWithinACommand()
    {
        m_onText[QStringLiteral("nested")] = [this] {
            arrive(&m_a, {"2"}); // keeps its order: the command is not done
            arrive(&m_b, {"1"});
            turn(3);
            QCOMPARE(done(), "anested b1");
        };
        arrive(&m_a, {"nested"});
        QCOMPARE(done(), "a2");
    }

private:
    /// What the transport does with texts that have come.
    void arrive(QObject *client, std::initializer_list<const char *> texts)
    {
        for (const char *text : texts) {
            m_queue->push(client, QString::fromLatin1(text));
        }
        m_queue->run(client);
    }

    static void turn(int times = 1)
    {
        for (int i = 0; i < times; ++i) {
            QCoreApplication::processEvents();
        }
    }

    QByteArray done() { return std::exchange(m_done, {}).join(QLatin1Char(' ')).toUtf8(); }

    QObject m_a;
    QObject m_b;
    std::unique_ptr<ManualClock> m_clock;
    std::unique_ptr<ClientQueue> m_queue;
    QStringList m_done;
    std::map<QString, std::function<void()>> m_onText;
};

QTEST_GUILESS_MAIN(TestClientQueue)
#include "tst_clientqueue.moc"
