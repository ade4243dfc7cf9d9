// SPDX-License-Identifier: MIT
// How many pages are found, how exactly, and how fast, on generated photographs of desks.
//
//     bench_pagefinder                       all kinds, 20 pictures each
//     bench_pagefinder --count 50 --seed 7   other and more pictures
//     bench_pagefinder --kind card           only kinds whose name has this in it
//     bench_pagefinder --failures DIR        writes what is missed or wrong, drawn into the
//     pictures
#include "bench/pagecorpus/corpus.h"
#include "bench/table.h"
#include "portable/picture/pagefinder.h"

#include <QCommandLineParser>
#include <QGuiApplication>
#include <QImage>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

using pagecorpus::Kind;
using pagecorpus::Sample;

constexpr double exact = 0.01; // of the diagonal: the largest error of a page that counts as found

struct Tally
{
    int pictures = 0;
    int found = 0; ///< exactly
    int wrong = 0; ///< somewhere else, or where there is none
    std::vector<double> errors;
    std::vector<double> milliseconds; ///< of pictures of 1920 x 1080

    void add(const Tally &other)
    {
        pictures += other.pictures;
        found += other.found;
        wrong += other.wrong;
        errors.insert(errors.end(), other.errors.begin(), other.errors.end());
        milliseconds.insert(milliseconds.end(), other.milliseconds.begin(),
                            other.milliseconds.end());
    }
};

/// The time that this thread has run.
double milliseconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

double quantile(std::vector<double> values, double share)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return values[size_t(double(values.size() - 1) * share)];
}

void print(const std::string &name, const Tally &tally, bool hasPage)
{
    const std::string found =
        hasPage ? std::to_string(tally.found) + "/" + std::to_string(tally.pictures) : "-";
    std::printf("%-30s %9s %6d %8.2f %% %7.1f %7.1f\n", name.c_str(), found.c_str(), tally.wrong,
                100 * quantile(tally.errors, 0.5), quantile(tally.milliseconds, 0.5),
                quantile(tally.milliseconds, 0.95));
    std::fflush(stdout);
}

void draw(cv::Mat &picture, const pagecorpus::Corners &corners, const cv::Scalar &color)
{
    for (size_t i = 0; i < 4; ++i) {
        cv::line(picture, cv::Point(corners[i]), cv::Point(corners[(i + 1) % 4]), color, 3);
    }
}

void writeFailure(const QString &path, const Sample &sample,
                  const std::optional<portable::PageCorners> &found)
{
    cv::Mat picture = sample.picture.clone();
    for (const pagecorpus::Corners &page : sample.pages) {
        draw(picture, page, cv::Scalar(0, 200, 0));
    }
    if (found) {
        draw(picture, *found, cv::Scalar(0, 0, 255));
    }
    cv::cvtColor(picture, picture, cv::COLOR_BGR2RGB);
    QImage(picture.data, picture.cols, picture.rows, int(picture.step), QImage::Format_RGB888)
        .save(path);
}

Tally measured(const Kind &kind, int count, int seed, const QString &failures)
{
    Tally tally;
    for (int i = 0; i < count; ++i) {
        const Sample sample = pagecorpus::sample(kind.name, seed + i);
        const double start = milliseconds();
        const auto found = portable::findPage(sample.picture);
        const double time = milliseconds() - start;
        if (sample.picture.cols == 1920) {
            tally.milliseconds.push_back(time);
        }
        ++tally.pictures;
        const double error = found ? pagecorpus::error(sample, *found) : 1;
        const bool isFound = kind.hasPage && found && error <= exact;
        tally.found += int(isFound);
        tally.wrong += int(found && !isFound);
        if (isFound) {
            tally.errors.push_back(error);
        }
        if ((isFound != kind.hasPage || found.has_value() != kind.hasPage) && !failures.isEmpty()) {
            const QString name =
                QStringLiteral("%1-%2.jpg").arg(QString::fromStdString(kind.name)).arg(seed + i);
            writeFailure(failures + QLatin1Char('/')
                             + QString(name).replace(QLatin1Char(' '), QLatin1Char('_')),
                         sample, found);
        }
    }
    return tally;
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    cv::setNumThreads(1); // the time is that of one core
    QCommandLineParser options;
    const auto option = [&](const char *name, const char *value) {
        const QString key = QString::fromLatin1(name);
        options.addOption({key, QString(), key, QString::fromLatin1(value)});
    };
    option("count", "20");
    option("seed", "1");
    option("kind", "");
    option("failures", "");
    options.process(application);
    const auto value = [&](const char *name) { return options.value(QString::fromLatin1(name)); };

    std::printf("%-30s %9s %6s %10s %7s %7s\n", "kind", "found", "wrong", "error", "ms", "95 %");
    Tally sums[3][2]; // group, has a page
    const char *groups[] = {"", " (held out)", " (harsh)"};
    for (const Kind &kind : pagecorpus::kinds()) {
        if (!QString::fromStdString(kind.name).contains(value("kind"))) {
            continue;
        }
        const Tally tally =
            measured(kind, value("count").toInt(), value("seed").toInt(), value("failures"));
        print(kind.name + groups[int(kind.group)], tally, kind.hasPage);
        sums[int(kind.group)][int(kind.hasPage)].add(tally);
    }
    for (size_t group = 0; group < 3; ++group) {
        print(std::string("pages") + groups[group], sums[group][1], true);
        print(std::string("empty desks") + groups[group], sums[group][0], false);
    }
    const auto row = [](const char *measure, const Tally &tally, const char *goal) {
        printRow(measure, tally.found, tally.pictures, "pages", goal);
        for (const auto &[name, share] : {std::pair("median", 0.5), std::pair("99 %", 0.99)}) {
            printRow(std::string(measure) + ", time (" + name + ")",
                     quantile(tally.milliseconds, share), "ms", "<= 25 ms");
        }
    };
    row("pages found within 1 % of the diagonal", sums[0][1], ">= 0.95");
    row("held-out pages found within 1 %", sums[1][1], ">= 0.95");
    row("harsh pages found within 1 %", sums[2][1], "");
    printRow("pages found on empty desks", sums[0][0].wrong + sums[1][0].wrong + sums[2][0].wrong,
             "", "0");
    return 0;
}
