// SPDX-License-Identifier: MIT
#include "base/mainthread.h"

#include <QThread>
#include <QtTest>

#include <thread>
#include <vector>

using base::postToMainThread;

namespace {

bool ranWithoutApplication = false;

} // namespace

class TestMainThread : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withoutAnApplicationNothingRuns()
    {
        QCoreApplication::processEvents();
        QVERIFY(!ranWithoutApplication);
    }

    void tasksRunLaterAndInOrder()
    {
        std::vector<int> order;
        postToMainThread([&] {
            postToMainThread([&] { order.push_back(3); });
            order.push_back(1);
        });
        postToMainThread([&] { order.push_back(2); });
        QVERIFY(order.empty());
        QTRY_COMPARE(order, (std::vector<int>{1, 2, 3}));
    }

    void tasksOfManyThreadsRunOnTheMainThread()
    {
        constexpr int threads = 4;
        constexpr int each = 1000;
        std::vector<int> next(threads, 0); // of each thread, the number expected next
        int ran = 0;
        int wrong = 0;
        std::vector<std::thread> posters;
        for (int poster = 0; poster < threads; ++poster) {
            posters.emplace_back([&, poster] {
                for (int number = 0; number < each; ++number) {
                    postToMainThread([&, poster, number] {
                        wrong += QThread::currentThread() != qApp->thread();
                        wrong += next[size_t(poster)]++ != number;
                        ++ran;
                    });
                }
            });
        }
        for (std::thread &poster : posters) {
            poster.join();
        }
        QCOMPARE(ran, 0);
        QTRY_COMPARE(ran, threads * each);
        QCOMPARE(wrong, 0);
    }
};

int main(int argc, char *argv[])
{
    postToMainThread([] { ranWithoutApplication = true; });
    QCoreApplication application(argc, argv);
    TestMainThread test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_mainthread.moc"
