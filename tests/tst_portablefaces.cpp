// SPDX-License-Identifier: MIT
// The portable library's faces: the liveness check by itself, and the exported functions with
// painted faces; those need the weights of the networks (scripts/fetch-face-models.sh).
#include "devicelib/biometrics.h"
#include "devicelib/doccamera.h"
#include "portable/face/faceengine.h"
#include "portable/face/liveness.h"
#include "portable/face/modelweights.h"
#include "portable/picture/imageconversion.h"
#include "tests/drawnface.h"
#include "tests/portabletest.h"

#include <QtTest>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include <functional>

using namespace portable;

/// Leaves the test when the networks can't be built.
#define NEED_MODELS                                                                                \
    if (!QFile::exists(QStringLiteral(MODELS_DIR "/face_recognition_model.bin")))                  \
    QSKIP("the models aren't installed: scripts/fetch-face-models.sh " MODELS_DIR)

namespace {

/// Two people as unlike as paint allows.
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

/// What the listeners have got: those of the library have no or a foreign context.
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

/// What a check sees of a person, twelve times a second.
struct Person
{
    std::function<float(double seconds)> eyeContrast = [](double) { return 0.4F; };
    std::function<float(double seconds)> turn = [](double) { return 0.F; };
    std::function<float(double seconds)> x = [](double) { return 300.F; };
};

FaceSample sampleAt(const Person &person, double seconds)
{
    FaceSample sample;
    sample.seconds = seconds;
    sample.centre = {person.x(seconds), 200};
    sample.eyeDistance = 100;
    sample.eyeContrast = person.eyeContrast(seconds);
    sample.turn = person.turn(seconds);
    sample.nod = 0.5F;
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
        bStopPlay();
        bStopPlay4();
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
        QVERIFY(!replaced.add(sampleAt(elsewhere, 4.7)));
        QVERIFY(!replaced.hasBlinked() && !replaced.hasMoved() && !replaced.hasPassed());
        QVERIFY(!check.add(sampleAt(alive, 6))); // was away meanwhile
        QVERIFY(!check.hasPassed());
        QVERIFY(!checked(alive, 0.3).hasPassed());
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
             {std::pair<float, int>(0.25F, 80), {0.51F, 59}, {2.F, 0}}) {
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

    void brokenWeights()
    {
        const auto write = [this](const QByteArray &manifest, int bytes) {
            writeFile(path("m-weights_manifest.json"), "[{\"weights\":[" + manifest + "]}]");
            writeFile(path("m.bin"), QByteArray(bytes, '\2'));
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
        QCOMPARE(m_log->takeLines().first(),
                 line("no face engine: /nowhere/tiny_face_detector_model-weights_manifest.json: No "
                      "such file or directory (scripts/fetch-face-models.sh installs the models)"));
        DemoUIShow(0, onPage);
        QTRY_COMPARE(heard.results, QList<int>{0});
        QVERIFY(heard.features.isEmpty());
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
        const auto score = [this](const char *a, const char *b) {
            return lImageMatch(Utf8(path(a)), Utf8(path(b)));
        };
        const int same = score("one.png", "one again.jpg");
        const int card = score("one.png", "证件照.png");
        const int other = score("one.png", "other.png");
        const QByteArray scores = QByteArray("same ") + QByteArray::number(same) + ", card "
            + QByteArray::number(card) + ", other " + QByteArray::number(other);
        QVERIFY2(same >= samePersonScore && card >= samePersonScore, scores.constData());
        QVERIFY2(other >= 0 && other < samePersonScore, scores.constData());
        QCOMPARE(score("one.png", "one.png"), 100);
        const Utf8 one = utf8("one.png");
        QCOMPARE(int(lImageIdMatch(one, utf8("证件照.png"))), card);
        QVERIFY(bImageMatch(one, utf8("one again.jpg")));
        QVERIFY(!bImageMatch(one, utf8("other.png")));
    }

    void picturesWithoutFace()
    {
        NEED_MODELS;
        portrait(oneFace()).save(path("face.png"));
        QImage grey(640, 480, QImage::Format_RGB32);
        grey.fill(Qt::gray);
        grey.save(path("grey.png"));
        grey.copy(0, 0, 1, 1).save(path("dot.png"));
        grey.copy(0, 0, 3000, 2).save(path("line.png"));
        grey.scaled(9000, 9000).save(path("huge.bmp"));
        const Utf8 face = utf8("face.png");
        const auto both = [&](const char *file) {
            const Utf8 other(path(file));
            return QList<int>{lImageMatch(face, other), lImageMatch(other, face)};
        };
        for (const char *file : {"grey.png", "dot.png", "line.png"}) {
            QCOMPARE(both(file), (QList<int>{-2, -2}));
        }
        QCOMPARE(m_log->takeLines().last(),
                 line("lImageMatch: ") + path("line.png")
                     + line(": there is no face in the picture"));
        for (const char *file : {"absent.png", "huge.bmp", ""}) {
            QCOMPARE(both(file), (QList<int>{-1, -1}));
        }
        QCOMPARE(int(lImageIdMatch(nullptr, nullptr)), -1);
        QVERIFY(!bImageMatch(face, utf8("grey.png")));
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
        QVERIFY(bStartPlay(0));
        QCOMPARE(int(lFaceMatch(one)), 100);
        QVERIFY(lFaceMatch(other) < samePersonScore);
        QVERIFY(bStopPlay());
        QVERIFY(!bFaceFeatureGet(false, "", "", onFeature, nullptr));
        QVERIFY(bStartPlay4());
        QCOMPARE(int(lFaceMatch(one)), 100);
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
        // Camera 2 isn't there, so 1 is opened, and closed again.
        useIni("[cameras]\n2=none\n1=image:" + utf8("one.png").bytes
               + "\n[faces]\nmodels=" MODELS_DIR "\n");
        QVERIFY(bImageMatchOnline(one, 0, 0, 0, onResult));
        QVERIFY(!bFaceFeatureGetOnline(0, 0, onFeature)); // one at a time
        QVERIFY(!bLivingBodyDetect());
        QVERIFY(m_log->takeLines().contains(
            line("bLivingBodyDetect: another check is using the camera")));
        QTRY_COMPARE_WITH_TIMEOUT(heard.results.size(), 1, 30000);
        QVERIFY(heard.results[0] > 85);
        QVERIFY(!isCameraOpen());

        QVERIFY(bFaceFeatureGetOnline(0, 0, onFeature));
        QTRY_COMPARE_WITH_TIMEOUT(heard.features.size(), 1, 30000);
        const QByteArray feature = QByteArray::fromBase64(heard.features[0]);
        QCOMPARE(int(lFaceFeatureMatch(feature.constData(), feature.constData())), 100);

        // A preview that is open stays open; nobody comes.
        useCamera(line("scene"));
        QVERIFY(bStartPlay(0));
        QVERIFY(bFaceFeatureGetOnline(1, 0, onFeature));
        QTRY_COMPARE_WITH_TIMEOUT(heard.features.size(), 2, 30000);
        QVERIFY(heard.features[1].isEmpty());
        QVERIFY(isCameraOpen());
        QVERIFY(bImageMatchOnline(one, 1, 0, 0, onResult));
        QTRY_COMPARE_WITH_TIMEOUT(heard.results.size(), 2, 30000);
        QCOMPARE(heard.results[1], -2);
        QCOMPARE(m_log->takeLines().last(),
                 line("bImageMatchOnline: live pictures: there is no face in the picture"));
    }

    void withoutCamera()
    {
        NEED_MODELS;
        QVERIFY(bImageMatchOnline("/nowhere/a.png", 1, 0, 0, onResult));
        QTRY_COMPARE_WITH_TIMEOUT(heard.results, QList<int>{-1}, 30000);
        QVERIFY(bLivingBodyDetectOnline(1, 0, onResult));
        QTRY_COMPARE_WITH_TIMEOUT(heard.results, (QList<int>{-1, 0}), 30000);
        QCOMPARE(m_log->takeLines().last(),
                 line("bLivingBodyDetectOnline: live pictures: no "
                      "camera is delivering frames"));
        QVERIFY(AutoLivingBody(onData));
        QTRY_COMPARE_WITH_TIMEOUT(locked(&Heard::reports), 1, 30000);
        const QJsonObject report = QJsonDocument::fromJson(heard.report).object();
        QCOMPARE(report[line("result")].toInt(-1), 0);
        QCOMPARE(report[line("msg")].toString(), line("摄像头不可用"));
        QCOMPARE(heard.frames, 0);
    }

    void livingFace()
    {
        NEED_MODELS;
        useCamera(line("video:") + livingVideo());
        QVERIFY(bStartPlay(0)); // as a preview that was ended without a word
        QVERIFY(AutoLivingBody(onData));
        QTRY_COMPARE_WITH_TIMEOUT(locked(&Heard::reports), 1, 40000);
        QVERIFY(!isCameraOpen()); // taken over
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
        QVERIFY(bLivingBodyDetectOnline(3, 0, onResult));
        QTRY_COMPARE_WITH_TIMEOUT(heard.results, QList<int>{0}, 30000);
    }

    void closedWhileItRuns()
    {
        NEED_MODELS;
        portrait(oneFace()).save(path("photo.png"));
        useCamera(line("image:") + path("photo.png"));
        for (int round = 1; round <= 3; ++round) { // the second one replaces the first
            QVERIFY(AutoLivingBody(onData));
            const int before = locked(&Heard::frames);
            QTRY_VERIFY_WITH_TIMEOUT(locked(&Heard::frames) > before, 20000);
        }
        CloseLivingBody(onEnd);
        QTRY_COMPARE(locked(&Heard::ends), 1);
        QVERIFY(!isCameraOpen());
        QTest::qWait(200);
        QCOMPARE(heard.framesAfterEnd, 0);
        QCOMPARE(heard.reports, 0);

        // One that had promised a result gives it.
        DemoUIShow(0, onPage);
        CloseLivingBody(onEnd);
        QTRY_COMPARE(locked(&Heard::ends), 2);
        QCOMPARE(heard.results, QList<int>{0});
    }

private:
    static bool isCameraOpen()
    {
        cv::Mat frame;
        return getVideoFrameMat(frame);
    }

    /// All cameras show this; the networks are those of the build.
    static void useCamera(const QString &source)
    {
        QString text = line("[cameras]\n");
        for (const int camera : {1, 2, 4}) {
            text += QStringLiteral("%1=%2\n").arg(camera).arg(source);
        }
        useIni(text.toUtf8() + "[faces]\nmodels=" MODELS_DIR "\n");
    }

    /// Four seconds of a face that looks about and blinks.
    QString livingVideo() const
    {
        const QString file = path("living.avi");
        constexpr int framesPerSecond = 15;
        cv::VideoWriter writer(file.toStdString(), cv::CAP_OPENCV_MJPEG,
                               cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), framesPerSecond,
                               {640, 480});
        for (int i = 0; i < 4 * framesPerSecond; ++i) {
            DrawnFace face = oneFace();
            const bool isTurning = i > 2 * framesPerSecond;
            face.turn = isTurning ? std::sin(i * 2 * CV_PI / (2 * framesPerSecond)) : 0;
            face.eyesOpen = i >= 20 && i < 25 ? 0 : 1;
            writer.write(toMat(portrait(face)));
        }
        return file;
    }
};

QTEST_MAIN(TestPortableFaces)
#include "tst_portablefaces.moc"
