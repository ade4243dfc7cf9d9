// SPDX-License-Identifier: MIT
// The portable library's faces: the liveness check by itself, and the exported functions with
// painted faces; those need the weights of the networks (scripts/fetch-face-models.sh).
#include "devicelib/biometrics.h"
#include "portable/camera/cameraset.h"
#include "portable/face/faceengine.h"
#include "portable/face/liveness.h"
#include "portable/face/livenesspage.h"
#include "portable/face/modelweights.h"
#include "portable/picture/imageconversion.h"
#include "portable/video/videofile.h"
#include "tests/drawnface.h"
#include "tests/manualclock.h"
#include "tests/portabletest.h"

#include <QWindow>
#include <QtTest>
#include <opencv2/imgproc.hpp>

#include <functional>

using namespace portable;

/// Skips the test without the weights of the networks.
#define NEED_MODELS                                                                                \
    if (!QFile::exists(QStringLiteral(MODELS_DIR "/face_recognition_model.bin")))                  \
    QSKIP("the models aren't installed: scripts/fetch-face-models.sh " MODELS_DIR)

namespace {

/// Two people as different as paint allows.
DrawnFace oneFace()
{
    return {};
}

DrawnFace otherFace()
{
    DrawnFace face;
    face.skin = QColor(240, 205, 180);
    face.hair = QColor(190, 140, 70);
    face.height = 1.14;
    face.eyeDistance = 0.5;
    face.noseLength = 0.17;
    face.mouthWidth = 0.26;
    face.browHeight = 0.19;
    return face;
}

QImage portrait(const DrawnFace &face)
{
    return drawFace(face, {640, 480}, {320, 240}, 190);
}

/// What the listeners received; they have no context of their own.
struct Heard
{
    QList<int> results;
    QList<QByteArray> features;
    int frames = 0;
    QByteArray lastFrame;
    QByteArray report;
    int reports = 0;
    int ends = 0;
    int framesAfterEnd = 0;
};
Heard heard;
std::mutex heardMutex; // AutoLivingBody reports on its thread

void onResult(int result, void *)
{
    heard.results << result;
}

void onPage(int result)
{
    heard.results << result;
}

void onFeature(const char *feature, void *)
{
    heard.features << feature;
}

void onData(const char *data, int length, int kind)
{
    const std::lock_guard<std::mutex> lock(heardMutex);
    if (kind == 0) {
        ++heard.frames;
        heard.framesAfterEnd += heard.ends;
        heard.lastFrame = QByteArray(data, length);
    } else if (kind == 1) {
        heard.report = QByteArray(data, length);
        ++heard.reports;
    }
}

void onEnd()
{
    const std::lock_guard<std::mutex> lock(heardMutex);
    ++heard.ends;
}

template <class Value> Value locked(Value Heard::*value)
{
    const std::lock_guard<std::mutex> lock(heardMutex);
    return heard.*value;
}

/// What a liveness check measures of a person, twelve times a second.
struct Person
{
    std::function<float(double seconds)> eyeContrast = [](double) { return 0.4F; };
    std::function<float(double seconds)> turn = [](double) { return 0.F; };
    std::function<float(double seconds)> x = [](double) { return 300.F; };
    std::function<float(double seconds)> nod = [](double) { return 0.5F; };
};

FaceSample sampleAt(const Person &person, double seconds)
{
    FaceSample sample;
    sample.seconds = seconds;
    sample.center = {person.x(seconds), 200};
    sample.eyeDistance = 100;
    sample.eyeContrast = person.eyeContrast(seconds);
    sample.turn = person.turn(seconds);
    sample.nod = person.nod(seconds);
    return sample;
}

LivenessCheck checked(const Person &person, double seconds)
{
    LivenessCheck check;
    for (int i = 0; i < int(seconds * 12); ++i) {
        check.add(sampleAt(person, i / 12.0));
    }
    return check;
}

/// Eyes that are closed from `begin` to `end`.
std::function<float(double)> closedBetween(double begin, double end, float closed = 0.2F)
{
    return [=](double seconds) {
        const float tremble = 0.01F * float(std::sin(40 * seconds));
        return (seconds > begin && seconds < end ? closed : 0.4F) + tremble;
    };
}

std::function<float(double)> turning(float amount)
{
    return [=](double seconds) { return amount * float(std::sin(2 * seconds)); };
}

} // namespace

Q_DECLARE_METATYPE(Person)

class TestPortableFaces : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        PortableTest::init();
        heard = {};
        useCamera(line("none"));
    }

    void cleanup()
    {
        const int ends = locked(&Heard::ends);
        CloseLivingBody(onEnd);
        QTRY_COMPARE(locked(&Heard::ends), ends + 1);
        m_cameras.stopMain();
        m_cameras.stopFourth();
        base::Clock::setShared(nullptr);
        m_clock.reset();
        PortableTest::cleanup();
    }

    void livenessBySamples_data()
    {
        const Rows<Person, bool, bool> row("person", "blinked", "moved");
        const auto open = closedBetween(0, 0);
        const auto blink = closedBetween(2, 2.3);
        const auto still = turning(0.02F);
        const auto place = Person().x;
        row("blinks and turns", {blink, turning(0.12F), place}, true, true);
        row("only blinks", {blink, still, place}, true, false);
        row("only turns", {open, turning(0.12F), place}, false, true);
        row("a photograph", {open, still, place}, false, false);
        row("closes the eyes for long", {closedBetween(2, 4), still, place}, false, false);
        row("narrows the eyes", {closedBetween(2, 2.3, 0.34F), still, place}, false, false);
        row("before the eyes are known", {closedBetween(0.2, 0.4), still, place}, false, false);
        row("swings about, blurred meanwhile",
            {blink, still, [](double seconds) { return 300 + 60 * float(std::sin(9 * seconds)); }},
            false, false);
        row("blinks and nods", {blink, still, place, turning(0.12F)}, true, true);
        row("nods meanwhile", {blink, still, place, turning(0.5F)}, false, true);
        row("turns meanwhile", {blink, turning(0.5F), place}, false, true);
        row("slips of one picture",
            {open, [](double seconds) { return seconds > 2 && seconds < 2.05 ? 0.4F : 0.F; },
             place},
            false, false);
    }

    void livenessBySamples()
    {
        QFETCH(Person, person);
        const LivenessCheck check = checked(person, 4.5);
        QTEST(check.hasBlinked(), "blinked");
        QTEST(check.hasMoved(), "moved");
        QCOMPARE(check.hasPassed(), check.hasBlinked() && check.hasMoved());
    }

    void livenessIsOfOnePerson()
    {
        const Person alive{closedBetween(2, 2.3), turning(0.12F), Person().x};
        Person elsewhere;
        elsewhere.x = [](double) { return 500.F; };
        LivenessCheck check = checked(alive, 4.5);
        QVERIFY(check.hasPassed());
        LivenessCheck replaced = check;
        QVERIFY(replaced.add(sampleAt(alive, 4.6)));
        for (const auto &[eyeDistance, isSame] :
             {std::pair<float, bool>(190, true), {210, false}, {60, true}, {40, false}}) {
            FaceSample sample = sampleAt(alive, 4.7);
            sample.eyeDistance = eyeDistance;
            QCOMPARE(LivenessCheck(replaced).add(sample), isSame);
        }
        QVERIFY(!replaced.add(sampleAt(elsewhere, 4.7)));
        QVERIFY(!replaced.hasBlinked() && !replaced.hasMoved() && !replaced.hasPassed());
        QVERIFY(!check.add(sampleAt(alive, 6))); // was away meanwhile
        QVERIFY(!check.hasPassed());
        QVERIFY(!checked(alive, 0.3).hasPassed());
        Person drifting; // too slowly for a movement
        drifting.turn = [](double seconds) { return 0.02F * float(seconds); };
        QVERIFY(!checked(drifting, 9).hasMoved());
    }

    void sampleOfAFace()
    {
        cv::Mat picture(200, 300, CV_8UC3, cv::Scalar::all(120));
        SeenFace face;
        face.points[36] = {100, 80};
        face.points[39] = {130, 80};
        face.points[42] = {170, 80};
        face.points[45] = {200, 80};
        face.points[30] = {160, 130};
        const FaceSample flat = sampleOf(picture, face, 2.5);
        QCOMPARE(flat.seconds, 2.5);
        QCOMPARE(flat.center, cv::Point2f(150, 80));
        QCOMPARE(flat.eyeDistance, 100.F);
        QCOMPARE(flat.turn, 0.1F);
        QCOMPARE(flat.nod, 0.5F);
        QCOMPARE(flat.eyeContrast, 0.F);
        // The contrast is the mean of both eyes and doesn't depend on the light.
        cv::circle(picture, {115, 80}, 4, cv::Scalar::all(0), cv::FILLED);
        const float one = sampleOf(picture, face, 0).eyeContrast;
        cv::circle(picture, {185, 80}, 4, cv::Scalar::all(0), cv::FILLED);
        const float both = sampleOf(picture, face, 0).eyeContrast;
        const float dim = sampleOf(picture / 2, face, 0).eyeContrast;
        QVERIFY(one > 0.1F && std::abs(both - 2 * one) < 0.05F && std::abs(dim - both) < 0.05F);
    }

    void featuresAndScores()
    {
        FaceDescriptor one{};
        for (size_t i = 0; i < one.size(); ++i) {
            one[i] = float(i) * 0.01F - 0.6F;
        }
        FaceDescriptor other = one;
        const QByteArray feature = faceFeature(one);
        QVERIFY(feature.size() > 100 && !feature.contains('\0'));
        QCOMPARE(int(lFaceFeatureMatch(feature.constData(), feature.constData())), 100);
        for (const auto &[apart, score] :
             {std::pair<float, int>(0.1F, 92), {0.51F, 59}, {1.F, 17}, {2.F, 0}}) {
            other[7] = one[7] - apart;
            QVERIFY(std::abs(faceScore(one, other) - score) <= 1);
            QVERIFY(
                std::abs(int(lFaceFeatureMatch(feature.constData(), faceFeature(other).constData()))
                         - score)
                <= 1);
        }
    }

    void brokenFeatures()
    {
        const QByteArray good = faceFeature({});
        QList<QByteArray> broken{"",         "FAC1",   QByteArray(500, 'A'),
                                 good + 'A', "FIN1AA", QByteArray(101, '\xff')};
        for (int length = 0; length < good.size(); length += 7) {
            broken << good.left(length); // a copy that ends there, which the sanitizer watches
            QByteArray changed = good;
            changed[length] = 'B';
            broken << changed;
        }
        for (const QByteArray &feature : qAsConst(broken)) {
            QCOMPARE(int(lFaceFeatureMatch(feature.constData(), good.constData())), -5);
            QCOMPARE(int(lFaceFeatureMatch(good.constData(), feature.constData())), -5);
        }
        QCOMPARE(int(lFaceFeatureMatch(nullptr, nullptr)), -5);
        QCOMPARE(m_log->takeLines().last(),
                 line("lFaceFeatureMatch: not a face feature of this library"));
    }

    /// The same numbers in OpenCV's order of axes.
    void weights()
    {
        QByteArray data;
        for (char i = 0; i < 12; ++i) {
            data += i;
        }
        writeModel(R"({"name":"a","shape":[1,2,3,2],"quantization":{"min":0,"scale":1}},)"
                   R"({"name":"b","shape":[2]},{"name":"c","shape":[1]})",
                   data + QByteArray::fromHex("0000C03F000010C000000040"));
        ModelWeights weights;
        QString error;
        QVERIFY2(weights.read(m_folder->path(), line("m"), &error), qPrintable(error));
        const cv::Mat filters = weights.filters("a"); // [out, in, rows, columns]
        QCOMPARE(std::vector<int>(filters.size.p, filters.size.p + 4),
                 (std::vector<int>{2, 3, 1, 2}));
        const auto *values = filters.ptr<float>();
        QCOMPARE(std::vector<float>(values, values + 12),
                 (std::vector<float>{0, 6, 2, 8, 4, 10, 1, 7, 3, 9, 5, 11}));
        const cv::Mat vector = weights.vector("b");
        QCOMPARE(vector.size(), cv::Size(2, 1));
        QCOMPARE(vector.at<float>(0, 0), 1.5F);
        QCOMPARE(vector.at<float>(0, 1), -2.25F);
        QCOMPARE(weights.vector("c").at<float>(0, 0), 2.F);

        writeModel(R"({"name":"a","shape":[2,2,3,1],"quantization":{"min":0,"scale":1}})", data);
        QVERIFY2(weights.read(m_folder->path(), line("m"), &error), qPrintable(error));
        const cv::Mat channels = weights.channelFilters("a"); // [n, 1, rows, columns]
        QCOMPARE(std::vector<int>(channels.size.p, channels.size.p + 4),
                 (std::vector<int>{3, 1, 2, 2}));
        QCOMPARE(channels.ptr<float>()[5], 4.F); // channel 1, second column of the first row
    }

    void brokenWeights()
    {
        const auto write = [this](const QByteArray &manifest, int bytes) {
            writeModel(manifest, QByteArray(bytes, '\2'));
        };
        const QByteArray tensor =
            R"({"name":"a","shape":[2,3],"quantization":{"min":1,"scale":2}})";
        ModelWeights weights;
        QString error;
        write(tensor, 6);
        QVERIFY(weights.read(m_folder->path(), line("m"), &error));
        QCOMPARE(weights.matrix("a").size(), cv::Size(2, 3));
        QCOMPARE(weights.matrix("a").at<float>(2, 1), 5.F);
        QVERIFY_EXCEPTION_THROWN(weights.filters("a"), cv::Exception);
        QVERIFY_EXCEPTION_THROWN(weights.matrix("b"), cv::Exception);
        for (const char *shape : {"[2,4]", "[2,2]", "[-1,-6]", "[0]", "[65536,65536,65536]", "6"}) {
            write(QByteArray(tensor).replace("[2,3]", shape), 6);
            error.clear();
            QVERIFY2(!weights.read(m_folder->path(), line("m"), &error), shape);
            QVERIFY(!error.isEmpty());
        }
        QVERIFY(!weights.read(m_folder->path(), line("absent"), &error));
        QVERIFY(!FaceNets::load(m_folder->path(), &error));
    }

    // Before any test that has loaded the networks.
    void withoutWeights()
    {
        useIni("[faces]\nmodels=/nowhere\n");
        QVERIFY(portrait(oneFace()).save(path("face.png")));
        const Utf8 face = utf8("face.png");
        QCOMPARE(lImageMatch(face, face), -3);
        QCOMPARE(int(lFaceMatch(face)), -3);
        QVERIFY(!bImageMatch(face, face));
        QVERIFY(!bFaceFeatureGet(true, face, "", onFeature, nullptr));
        QVERIFY(!bImageMatchOnline(face, 1, 0, 0, onResult));
        QVERIFY(!bFaceFeatureGetOnline(1, 0, [](const char *, void *) {}));
        QVERIFY(!bLivingBodyDetect());
        QVERIFY(!bLivingBodyDetectOnline(1, 0, onResult));
        QVERIFY(!AutoLivingBody(onData));
        QCOMPARE(m_log->lines().size(), 9);
        QCOMPARE(
            m_log->takeLines().first(),
            line(
                "no face engine: /nowhere/tiny_face_detector_model-weights_manifest.json: there is "
                "no such file (scripts/fetch-face-models.sh installs the models)"));
        DemoUIShow(0, onPage);
        QTRY_COMPARE(heard.results, QList<int>{0});
        QVERIFY(heard.features.isEmpty());
    }

    /// The corners and tips that drawFace() paints, within a tenth of the face's width.
    void findsEyesNoseAndMouth()
    {
        NEED_MODELS;
        FaceEngine engine([] { return line(MODELS_DIR); });
        constexpr double width = 190;
        const cv::Point2d middle(320, 240);
        for (const double turn : {0.0, 0.3}) {
            DrawnFace drawn = oneFace();
            drawn.turn = turn;
            const cv::Mat picture = toMat(portrait(drawn));
            SeenFace face;
            QCOMPARE(engine.find(picture, &face), FaceFailure::None);
            QVERIFY(face.box.confidence > 0.5F && face.box.confidence <= 1);
            QVERIFY(face.box.box.contains(cv::Point2f(middle)));
            QVERIFY(std::abs(face.box.box.width - float(width)) < 50);
            const std::pair<size_t, cv::Point2d> expected[] = {
                {36, {-0.315, -0.1}}, {39, {-0.105, -0.1}}, {42, {0.105, -0.1}},
                {45, {0.315, -0.1}},  {30, {0.0, 0.2}},     {48, {-0.18, 0.42}},
                {54, {0.18, 0.42}},
            };
            for (const auto &[number, place] : expected) {
                const cv::Point2d shift(0.14 * turn * (number == 30 ? 1.7 : 1), 0);
                const cv::Point2d should = middle + (place + shift) * width;
                const double gap = cv::norm(cv::Point2d(face.points[number]) - should);
                QVERIFY2(gap < width / 10,
                         qPrintable(QStringLiteral("%1: %2 pixels").arg(number).arg(gap)));
            }
        }
    }

    void comparesFiles()
    {
        NEED_MODELS;
        DrawnFace moved = oneFace();
        moved.turn = 0.3;
        drawFace(moved, {800, 600}, {500, 300}, 150).save(path("one again.jpg"), "JPG", 60);
        portrait(oneFace()).save(path("one.png"));
        portrait(otherFace()).save(path("other.png"));
        drawFace(oneFace(), {120, 150}, {60, 78}, 112)
            .save(path("证件照.png")); // fills the picture
        const Utf8 one = utf8("one.png");
        const int same = lImageMatch(one, utf8("one again.jpg"));
        const int card = int(lImageIdMatch(one, utf8("证件照.png")));
        const int other = lImageMatch(one, utf8("other.png"));
        const QString scores =
            QStringLiteral("same %1, card %2, other %3").arg(same).arg(card).arg(other);
        QVERIFY2(same >= samePersonScore && card >= samePersonScore, qPrintable(scores));
        QVERIFY2(other >= 0 && other < samePersonScore, qPrintable(scores));
        QVERIFY(bImageMatch(one, utf8("one again.jpg")));
        QVERIFY(!bImageMatch(one, utf8("other.png")));
    }

    void picturesWithoutFace()
    {
        NEED_MODELS;
        portrait(oneFace()).save(path("face.png"));
        QImage gray(640, 480, QImage::Format_RGB32);
        gray.fill(Qt::gray);
        gray.save(path("gray.png"));
        gray.copy(0, 0, 1, 1).save(path("dot.png"));
        gray.copy(0, 0, 3000, 2).save(path("line.png"));
        QImage huge(9000, 9000, QImage::Format_Mono);
        huge.fill(0);
        huge.save(path("huge.png"));
        const Utf8 face = utf8("face.png");
        QCOMPARE(lImageMatch(utf8("dot.png"), face), -2);
        QCOMPARE(lImageMatch(utf8("line.png"), face), -2);
        QCOMPARE(lImageMatch(face, utf8("gray.png")), -2);
        QCOMPARE(m_log->takeLines().last(),
                 line("lImageMatch: ") + path("gray.png")
                     + line(": there is no face in the picture"));
        for (const char *file : {"absent.png", "huge.png", ""}) {
            QCOMPARE(lImageMatch(utf8(file), face), -1);
        }
        QCOMPARE(lImageMatch(face, utf8("absent.png")), -1);
        QCOMPARE(int(lImageIdMatch(nullptr, nullptr)), -1);
    }

    /// What OpenCV can't do fails like missing weights, so the log has to give the reason.
    void failureInsideOpenCV()
    {
        NEED_MODELS;
        FaceEngine engine([] { return line(MODELS_DIR); });
        SeenFace face;
        QCOMPARE(engine.findFast({}, &face), FaceFailure::NoEngine);
        const QString log = m_log->takeLines().join(QLatin1Char('\n'));
        QVERIFY2(log.startsWith(line("the face engine failed: resize: "))
                     && log.endsWith(line("(OpenCV " CV_VERSION ")")),
                 qPrintable(log));
    }

    void livePictureWithFile()
    {
        NEED_MODELS;
        portrait(oneFace()).save(path("one.png"));
        portrait(otherFace()).save(path("other.png"));
        const Utf8 one = utf8("one.png");
        const Utf8 other = utf8("other.png");
        QCOMPARE(int(lFaceMatch(one)), -4); // no camera is open, and none is opened
        useCamera(line("image:") + path("one.png"));
        QVERIFY(m_cameras.start(1));
        QCOMPARE(int(lFaceMatch(one)), 100);
        QVERIFY(lFaceMatch(other) < samePersonScore);
        m_cameras.stopMain();
        QVERIFY(!bFaceFeatureGet(false, "", "", onFeature, nullptr));
        QVERIFY(m_cameras.start(4));
        QVERIFY(bFaceFeatureGet(false, "", "", onFeature, nullptr));
        QVERIFY(bFaceFeatureGet(true, other, "", onFeature, nullptr));
        QCOMPARE(heard.features.size(), 2);
        const QByteArray live = QByteArray::fromBase64(heard.features[0]);
        const QByteArray file = QByteArray::fromBase64(heard.features[1]);
        QCOMPARE(int(lFaceFeatureMatch(live.constData(), live.constData())), 100);
        QVERIFY(lFaceFeatureMatch(live.constData(), file.constData()) < samePersonScore);
    }

    void waitsForAFace()
    {
        NEED_MODELS;
        portrait(oneFace()).save(path("one.png"));
        const Utf8 one = utf8("one.png");
        // There is no camera 2, so 1 is opened, and closed again.
        useIni("[cameras]\n2=none\n1=image:" + utf8("one.png").bytes
               + "\n[faces]\nmodels=" MODELS_DIR "\n");
        QVERIFY(bImageMatchOnline(one, 0, 0, 0, onResult));
        QVERIFY(!bFaceFeatureGetOnline(0, 0, onFeature)); // one at a time
        QVERIFY(!bLivingBodyDetect());
        QVERIFY(m_log->takeLines().contains(
            line("bLivingBodyDetect: another check is using the camera")));
        QTRY_COMPARE_WITH_TIMEOUT(heard.results.size(), 1, 30000);
        QVERIFY(heard.results[0] > 85);
        QVERIFY(!m_cameras.isOpen());

        QVERIFY(bFaceFeatureGetOnline(0, 0, onFeature));
        QTRY_COMPARE_WITH_TIMEOUT(heard.features.size(), 1, 30000);
        const QByteArray feature = QByteArray::fromBase64(heard.features[0]);
        QCOMPARE(int(lFaceFeatureMatch(feature.constData(), feature.constData())), 100);
    }

    void nobodyComes()
    {
        NEED_MODELS;
        portrait(oneFace()).save(path("one.png"));
        QImage gray(640, 480, QImage::Format_RGB32);
        gray.fill(Qt::gray);
        gray.save(path("gray.png"));
        useCamera(line("image:") + path("gray.png"));
        useFreeClock();
        QVERIFY(m_cameras.start(1));
        QVERIFY(bFaceFeatureGetOnline(1, 0, onFeature));
        QTRY_COMPARE_WITH_TIMEOUT(heard.features, QList<QByteArray>{""}, 30000);
        QVERIFY(bImageMatchOnline(utf8("one.png"), 1, 0, 0, onResult));
        QTRY_COMPARE_WITH_TIMEOUT(heard.results, QList<int>{-2}, 30000);
        QCOMPARE(m_log->takeLines().last(),
                 line("bImageMatchOnline: live pictures: there is no face in the picture"));
        QVERIFY(bLivingBodyDetectOnline(1, 0, onResult));
        QTRY_COMPARE_WITH_TIMEOUT(heard.results, (QList<int>{-2, 0}), 30000);
        QCOMPARE(m_log->takeLines().last(),
                 line("bLivingBodyDetectOnline: live pictures: there is no face in the picture"));
        QVERIFY(m_cameras.isOpen()); // a preview that was open stays open
    }

    void withoutCamera()
    {
        NEED_MODELS;
        useFreeClock();
        QVERIFY(bImageMatchOnline("/nowhere/a.png", 1, 0, 0, onResult));
        QTRY_COMPARE_WITH_TIMEOUT(heard.results, QList<int>{-1}, 30000);
        QVERIFY(bLivingBodyDetectOnline(1, 0, onResult));
        QTRY_COMPARE_WITH_TIMEOUT(heard.results, (QList<int>{-1, 0}), 30000);
        QCOMPARE(m_log->takeLines().last(),
                 line("bLivingBodyDetectOnline: live pictures: no camera is delivering frames"));
        QVERIFY(AutoLivingBody(onData));
        QTRY_COMPARE_WITH_TIMEOUT(locked(&Heard::reports), 1, 30000);
        const QJsonObject report = QJsonDocument::fromJson(heard.report).object();
        QCOMPARE(report[line("result")].toInt(-1), 0);
        QVERIFY(!report[line("blink")].toBool(true) && !report[line("move")].toBool(true));
        QCOMPARE(report[line("msg")].toString(), line("摄像头不可用"));
        QCOMPARE(heard.frames, 0);
    }

    /// In real time, as its camera plays a video.
    void livingFace()
    {
        NEED_MODELS;
        useCamera(line("video:") + livingVideo());
        QVERIFY(m_cameras.start(1)); // as a preview that was never ended
        QVERIFY(AutoLivingBody(onData));
        QTRY_COMPARE_WITH_TIMEOUT(locked(&Heard::reports), 1, 40000);
        QVERIFY(!m_cameras.isOpen()); // taken over
        const QJsonObject report = QJsonDocument::fromJson(heard.report).object();
        QVERIFY2(report[line("result")].toInt() == 1, heard.report.left(120).constData());
        QVERIFY(report[line("blink")].toBool() && report[line("move")].toBool());
        QCOMPARE(report[line("msg")].toString(), line("活体检测通过"));
        QVERIFY(heard.frames >= 8);
        for (const QByteArray &text :
             {heard.lastFrame, report[line("image")].toString().toLatin1()}) {
            QImage image;
            QVERIFY(image.loadFromData(QByteArray::fromBase64(text), "JPG"));
            QCOMPARE(image.size(), QSize(640, 480));
        }
        CloseLivingBody(onEnd); // nothing to end
        QTRY_COMPARE(locked(&Heard::ends), 1);
    }

    void stillFace()
    {
        NEED_MODELS;
        portrait(oneFace()).save(path("photo.png"));
        useCamera(line("image:") + path("photo.png"));
        useFreeClock();
        QVERIFY(bLivingBodyDetectOnline(2, 0, onResult));
        QTRY_COMPARE_WITH_TIMEOUT(heard.results, QList<int>{0}, 30000);
    }

    void closedWhileItRuns()
    {
        NEED_MODELS;
        portrait(oneFace()).save(path("photo.png"));
        useCamera(line("image:") + path("photo.png"));
        for (int round = 1; round <= 3; ++round) { // each replaces the one before
            QVERIFY(AutoLivingBody(onData));
            const int before = locked(&Heard::frames);
            QTRY_VERIFY_WITH_TIMEOUT(locked(&Heard::frames) > before, 20000);
        }
        CloseLivingBody(onEnd);
        QTRY_COMPARE(locked(&Heard::ends), 1);
        QVERIFY(!m_cameras.isOpen());

        // One that has promised a result gives it.
        DemoUIShow(0, onPage);
        CloseLivingBody(onEnd);
        QTRY_COMPARE(locked(&Heard::ends), 2);
        QCOMPARE(heard.results, QList<int>{0});
        QCOMPARE(locked(&Heard::framesAfterEnd), 0);
        QCOMPARE(locked(&Heard::reports), 0);
    }

    /// Its window opens with the check and ends with it; closing the window ends the check.
    void pageOfTheCheck()
    {
        NEED_MODELS;
        portrait(oneFace()).save(path("photo.png"));
        useCamera(line("image:") + path("photo.png"));
        const auto page = []() -> QWindow * {
            for (QWindow *window : QGuiApplication::topLevelWindows()) {
                if (window->title() == line("活体检测") && window->isExposed()) {
                    return window;
                }
            }
            return nullptr;
        };
        for (const bool isClosedByPerson : {true, false}) {
            heard.results.clear();
            DemoUIShow(0, onPage);
            QTRY_VERIFY_WITH_TIMEOUT(page(), 20000);
            if (isClosedByPerson) {
                page()->close();
            } else {
                CloseLivingBody(onEnd);
            }
            QTRY_COMPARE_WITH_TIMEOUT(heard.results, QList<int>{0},
                                      5000); // without waiting its time
            QTRY_VERIFY(!page());
        }
        QVERIFY(m_log->lines().contains(
            line("the page of the liveness check isn't seen: there is no display")));
    }

    void contentOfThePage()
    {
        QImage picture(640, 480, QImage::Format_RGB888);
        picture.fill(Qt::blue);
        QPainter(&picture).fillRect(0, 0, 320, 480, Qt::red);
        const auto greenOf = [&](const LivenessResult &progress) {
            const QImage page = paintLivenessPage({960, 720}, picture, progress);
            const int middle = 280; // of the camera's picture
            if (qBlue(page.pixel(380, middle)) < 200 || qRed(page.pixel(580, middle)) < 200) {
                return -1; // it isn't a mirror
            }
            int count = 0;
            for (int y = 600; y < 720; ++y) { // the steps
                for (int x = 0; x < 960; ++x) {
                    const QRgb pixel = page.pixel(x, y);
                    count += qGreen(pixel) > qRed(pixel) + 60 ? 1 : 0;
                }
            }
            return count;
        };
        LivenessResult progress;
        QStringList hints;
        QList<int> greens;
        const auto look = [&] {
            hints << livenessHint(progress);
            greens << greenOf(progress);
        };
        look();
        progress.failure = FaceFailure::None;
        look();
        progress.hasBlinked = true;
        look();
        progress.hasMoved = true;
        look();
        QCOMPARE(hints.removeDuplicates(), 0);
        QVERIFY(greens[0] == 0 && greens[1] == 0);
        QVERIFY(greens[2] > 1000 && greens[3] > 1.9 * greens[2]);
    }

private:
    void writeModel(const QByteArray &tensors, const QByteArray &data) const
    {
        writeFile(path("m-weights_manifest.json"), "[{\"weights\":[" + tensors + "]}]");
        writeFile(path("m.bin"), data);
    }

    /// From now on no wait takes longer than a moment.
    void useFreeClock()
    {
        m_clock = std::make_unique<ManualClock>();
        m_clock->runFree();
        base::Clock::setShared(m_clock.get());
    }

    /// All cameras show this; the models are those of the build.
    static void useCamera(const QString &source)
    {
        QString text = line("[cameras]\n");
        for (const int camera : {1, 2, 4}) {
            text += QStringLiteral("%1=%2\n").arg(camera).arg(source);
        }
        useIni(text.toUtf8() + "[faces]\nmodels=" MODELS_DIR "\n");
    }

    /// A face that blinks in the first second and turns in the second one.
    QString livingVideo() const
    {
        QString file = path("living.avi");
        QString error;
        const auto video = VideoFile::create(file, VideoFormat::Legacy, {640, 480}, false, &error);
        for (int i = 0; video && i < 2 * videoFrameRate; ++i) {
            DrawnFace face = oneFace();
            face.turn = i > videoFrameRate ? std::sin(i * 2 * CV_PI / videoFrameRate) : 0;
            face.eyesOpen = i >= 16 && i < 23 ? 0 : 1;
            video->add(i, toMat(portrait(face)), &error);
        }
        if (!video || !video->finish(&error)) {
            QTest::qFail(qPrintable(error), __FILE__, __LINE__);
        }
        return file;
    }

    CameraSet &m_cameras = CameraSet::instance();
    std::unique_ptr<ManualClock> m_clock; // null: real time
};

QTEST_MAIN(TestPortableFaces)
#include "tst_portablefaces.moc"
