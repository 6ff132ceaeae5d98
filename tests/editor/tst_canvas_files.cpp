#include "LogCapture.h"

#include "engine/CanvasDocument.h"
#include "files/CanvasDirectory.h"
#include "files/CanvasFiles.h"
#include "files/CanvasSaver.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <thread>

namespace {

constexpr int W = 24;
constexpr int H = 16;

QImage filled(QColor color, int w = W, int h = H)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    image.fill(color);
    return image;
}

// A picture with a distinct, partly transparent pixel everywhere, so a
// premultiplication or a swapped channel shows.
QImage pattern(int seed)
{
    QImage image(W, H, QImage::Format_RGBA8888);
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x)
            image.setPixelColor(x, y,
                                QColor((x * 10 + seed) % 256, (y * 15 + seed * 3) % 256,
                                       (x * y + seed * 7) % 256, (x * 11 + y + 1) % 256));
    }
    return image;
}

void paint(CanvasDocument &doc, int index, const QImage &image)
{
    doc.setActiveLayer(index);
    doc.activeImage() = image.convertToFormat(LayerFormat);
    doc.markPainted();
}

// A straight picture as a layer file holds it after it was painted into a
// (premultiplied) layer.
QImage asStored(const QImage &straight)
{
    return straight.convertToFormat(LayerFormat).convertToFormat(QImage::Format_RGBA8888);
}

QImage readPng(const QString &path)
{
    return QImage(path).convertToFormat(QImage::Format_RGBA8888);
}

QByteArray fileBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeBytes(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
}

void writeJson(const QString &dir, const QJsonObject &root)
{
    writeBytes(dir + "/canvas_layers.json", QJsonDocument(root).toJson());
}

QStringList layerFiles(const QString &dir)
{
    return QDir(dir).entryList({"canvas_layer_*.png"}, QDir::Files | QDir::Dirs, QDir::Name);
}

QStringList names(const CanvasDocument &doc)
{
    QStringList out;
    for (int i = 0; i < doc.layerCount(); ++i)
        out << doc.layerName(i);
    return out;
}

// Three layers "Sky", "Hills", "Ink": the second hidden, the third at 0.25
// opacity, the second active.
void buildThreeLayers(CanvasDocument &doc)
{
    doc.addLayer();
    doc.addLayer();
    doc.renameLayer(0, "Sky");
    doc.renameLayer(1, "Hills");
    doc.renameLayer(2, "Ink");
    for (int i = 0; i < 3; ++i)
        paint(doc, i, pattern(i * 40 + 1));
    doc.setLayerVisible(1, false);
    doc.setLayerOpacity(2, 0.25f);
    doc.setActiveLayer(1);
}

} // namespace

class TestCanvasFiles : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void threeLayerFileSetAndJson();
    void roundTripThroughDocument();
    void staleLayerSweep_data();
    void staleLayerSweep();
    void sweepBlockedByDirectoryEnds();
    void emptyLayerListFallsBackToFlattened();
    void missingNameAndVersionSeven();
    void badTypesTakeDefaults();
    void hostileIndexesFallBack_data();
    void hostileIndexesFallBack();
    void truncatedJsonFallsBackToFlattened();
    void corruptLayerPngStartsTransparent();
    void tooManyLayersAreCapped();
    void nothingOnDiskLeavesCanvasBlank();
    void canvasKeyChoice_data();
    void canvasKeyChoice();
    void emptyKeyNeverWrites();
    void failedSaveKeepsPreviousCanvas();
    void unwritableIndexStillSavesPictures();
    void unwritableFolderIsLogged();
    void olderSnapshotNeverOverwritesNewer();
    void snapshotSharesPixels();
    void asyncSaveRunsOnWorkerThread();
    void closeSaveIsSynchronousAndWins();

private:
    QString freshDir();

    QTemporaryDir m_settingsDir;
    QTemporaryDir m_filesDir;
    int m_dirCounter = 0;
    LogCapture m_log;
};

void TestCanvasFiles::initTestCase()
{
    QVERIFY(m_settingsDir.isValid());
    QVERIFY(m_filesDir.isValid());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_settingsDir.path());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, m_settingsDir.path());
}

void TestCanvasFiles::init()
{
    LogCapture::clear();
}

void TestCanvasFiles::cleanup()
{
    CanvasSaver::waitForPendingSaves();
}

QString TestCanvasFiles::freshDir()
{
    const QString dir = m_filesDir.filePath(QString("canvas%1").arg(++m_dirCounter));
    QDir().mkpath(dir);
    return dir;
}

void TestCanvasFiles::threeLayerFileSetAndJson()
{
    const QString dir = freshDir();
    CanvasDocument doc(W, H);
    buildThreeLayers(doc);
    const QImage flat = pattern(99);

    QVERIFY(writeCanvasFiles(takeCanvasSnapshot(dir, doc, flat)));

    QCOMPARE(
        QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name),
        QStringList({"canvas.png", "canvas_layer_0.png", "canvas_layer_1.png", "canvas_layer_2.png",
                     "canvas_layers.json"}));
    for (int i = 0; i < 3; ++i)
        QCOMPARE(readPng(dir + QString("/canvas_layer_%1.png").arg(i)),
                 asStored(pattern(i * 40 + 1)));
    QCOMPARE(readPng(dir + "/canvas.png"), flat);

    const QJsonObject expected{
        {"version", 1},
        {"activeLayer", 1},
        {"layers", QJsonArray{QJsonObject{{"name", "Sky"}, {"visible", true}, {"opacity", 1.0}},
                              QJsonObject{{"name", "Hills"}, {"visible", false}, {"opacity", 1.0}},
                              QJsonObject{{"name", "Ink"}, {"visible", true}, {"opacity", 0.25}}}}};
    const QByteArray bytes = fileBytes(dir + "/canvas_layers.json");
    QCOMPARE(QJsonDocument::fromJson(bytes).object(), expected);
    QCOMPARE(bytes, QJsonDocument(expected).toJson(QJsonDocument::Indented));
    QVERIFY(LogCapture::lines().isEmpty());
}

void TestCanvasFiles::roundTripThroughDocument()
{
    const QString dir = freshDir();
    CanvasDocument doc(W, H);
    buildThreeLayers(doc);
    doc.setLayerOpacity(0, 0.3f);
    QVERIFY(writeCanvasFiles(takeCanvasSnapshot(dir, doc, pattern(5))));

    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Layers);
    QCOMPARE(names(loaded), QStringList({"Sky", "Hills", "Ink"}));
    QCOMPARE(loaded.activeLayer(), 1);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(loaded.layerImage(i), doc.layerImage(i));
        QCOMPARE(loaded.layerVisible(i), doc.layerVisible(i));
        QCOMPARE(loaded.layerOpacity(i), doc.layerOpacity(i));
    }
}

void TestCanvasFiles::staleLayerSweep_data()
{
    QTest::addColumn<QList<int>>("onDisk");
    QTest::addColumn<int>("layers");
    QTest::addColumn<QStringList>("left");

    QTest::newRow("five files, two layers")
        << QList<int>{0, 1, 2, 3, 4} << 2
        << QStringList{"canvas_layer_0.png", "canvas_layer_1.png"};
    QTest::newRow("file beyond a gap survives")
        << QList<int>{0, 1, 5} << 1 << QStringList{"canvas_layer_0.png", "canvas_layer_5.png"};
    QTest::newRow("nothing stale")
        << QList<int>{} << 3
        << QStringList{"canvas_layer_0.png", "canvas_layer_1.png", "canvas_layer_2.png"};
}

void TestCanvasFiles::staleLayerSweep()
{
    QFETCH(QList<int>, onDisk);
    QFETCH(int, layers);
    QFETCH(QStringList, left);

    const QString dir = freshDir();
    for (int k : onDisk)
        QVERIFY(filled(Qt::red).save(dir + QString("/canvas_layer_%1.png").arg(k)));
    CanvasDocument doc(W, H);
    for (int i = 1; i < layers; ++i)
        doc.addLayer();
    QVERIFY(writeCanvasFiles(takeCanvasSnapshot(dir, doc, filled(Qt::transparent))));
    QCOMPARE(layerFiles(dir), left);
}

void TestCanvasFiles::sweepBlockedByDirectoryEnds()
{
    const QString dir = freshDir();
    QVERIFY(QDir().mkpath(dir + "/canvas_layer_1.png"));
    CanvasDocument doc(W, H);
    QVERIFY(!writeCanvasFiles(takeCanvasSnapshot(dir, doc, filled(Qt::blue))));
    QCOMPARE(readPng(dir + "/canvas.png"), filled(Qt::blue));
    QVERIFY(QFileInfo::exists(dir + "/canvas_layers.json"));
    const QStringList lines = LogCapture::matching("[PD] Canvas save: old layer file ");
    QCOMPARE(lines.size(), 1);
    QVERIFY(lines[0].contains(QDir::toNativeSeparators(dir + "/canvas_layer_1.png")));
}

void TestCanvasFiles::emptyLayerListFallsBackToFlattened()
{
    const QString dir = freshDir();
    QVERIFY(filled(Qt::red).save(dir + "/canvas_layer_0.png"));
    writeJson(dir, {{"version", 1}, {"activeLayer", 0}, {"layers", QJsonArray()}});
    QVERIFY(pattern(3).save(dir + "/canvas.png"));

    QVERIFY(!readCanvasLayers(dir));
    CanvasDocument doc(W, H);
    QCOMPARE(loadCanvasAtStart(dir, doc), CanvasLoad::Flattened);
    QCOMPARE(doc.layerCount(), 1);
    QCOMPARE(doc.layerName(0), QString("Layer 1"));
    QCOMPARE(doc.layerImage(0), pattern(3).convertToFormat(LayerFormat));
}

void TestCanvasFiles::missingNameAndVersionSeven()
{
    const QString dir = freshDir();
    for (int i = 0; i < 3; ++i)
        QVERIFY(pattern(i).save(dir + QString("/canvas_layer_%1.png").arg(i)));
    writeJson(dir, {{"version", 7},
                    {"activeLayer", 2},
                    {"layers", QJsonArray{QJsonObject{{"name", "A"}}, QJsonObject{{"name", "B"}},
                                          QJsonObject{{"visible", false}}}}});
    CanvasDocument doc(W, H);
    QVERIFY(loadCanvasFiles(dir, doc));
    QCOMPARE(names(doc), QStringList({"A", "B", "Layer 3"}));
    QCOMPARE(doc.activeLayer(), 2);
    QVERIFY(!doc.layerVisible(2));
    QCOMPARE(doc.layerOpacity(2), 1.0f);
    QCOMPARE(doc.layerImage(2), pattern(2).convertToFormat(LayerFormat));
}

void TestCanvasFiles::badTypesTakeDefaults()
{
    const QString dir = freshDir();
    QVERIFY(pattern(0).save(dir + "/canvas_layer_0.png"));
    writeJson(dir, {{"activeLayer", "1"},
                    {"layers",
                     QJsonArray{QJsonObject{{"name", 5}, {"visible", "no"}, {"opacity", "half"}},
                                42, QJsonObject{{"opacity", 3.5}},
                                QJsonObject{{"opacity", -1}, {"visible", false}}}}});
    const std::optional<CanvasLayerSet> set = readCanvasLayers(dir);
    QVERIFY(set);
    QCOMPARE(set->layers.size(), 4);
    QCOMPARE(set->activeLayer, 0);
    QCOMPARE(set->layers[0].name, QString("Layer 1"));
    QCOMPARE(set->layers[0].visible, true);
    QCOMPARE(set->layers[0].opacity, 1.0f);
    QCOMPARE(set->layers[0].image, pattern(0));
    QCOMPARE(set->layers[1].name, QString("Layer 2"));
    QVERIFY(set->layers[1].image.isNull());
    QCOMPARE(set->layers[2].opacity, 1.0f);
    QCOMPARE(set->layers[3].opacity, 0.0f);
    QCOMPARE(set->layers[3].visible, false);

    // Missing layer files load as transparent layers of the canvas size.
    LogCapture::clear();
    CanvasDocument doc(W, H);
    QVERIFY(loadCanvasFiles(dir, doc));
    QCOMPARE(doc.layerImage(1), filled(Qt::transparent).convertToFormat(LayerFormat));
    QCOMPARE(LogCapture::matching("[PD] Canvas load: layer ").size(), 3);
}

void TestCanvasFiles::hostileIndexesFallBack_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("empty file") << QByteArray();
    QTest::newRow("array at the root") << QByteArray(R"([{"name":"A"}])");
    QTest::newRow("layers is an object") << QByteArray(R"({"layers":{"name":"A"}})");
    QTest::newRow("layers is a string") << QByteArray(R"({"layers":"A"})");
    QTest::newRow("binary noise") << QByteArray("\x89PNG\r\n\x1a\n\0\0\xff", 11);
    QTest::newRow("NaN") << QByteArray(R"({"layers":[{"opacity":NaN}]})");
}

void TestCanvasFiles::hostileIndexesFallBack()
{
    QFETCH(QByteArray, json);
    const QString dir = freshDir();
    QVERIFY(pattern(0).save(dir + "/canvas_layer_0.png"));
    writeBytes(dir + "/canvas_layers.json", json);
    QVERIFY(pattern(8).save(dir + "/canvas.png"));

    CanvasDocument doc(W, H);
    QCOMPARE(loadCanvasAtStart(dir, doc), CanvasLoad::Flattened);
    QCOMPARE(doc.layerImage(0), pattern(8).convertToFormat(LayerFormat));
    QCOMPARE(LogCapture::matching("[PD] Canvas load: ").size(), 1);
}

void TestCanvasFiles::truncatedJsonFallsBackToFlattened()
{
    const QString dir = freshDir();
    CanvasDocument doc(W, H);
    buildThreeLayers(doc);
    QVERIFY(writeCanvasFiles(takeCanvasSnapshot(dir, doc, pattern(77))));
    const QByteArray json = fileBytes(dir + "/canvas_layers.json");
    writeBytes(dir + "/canvas_layers.json", json.left(json.size() / 2));

    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Flattened);
    QCOMPARE(loaded.layerCount(), 1);
    QCOMPARE(loaded.layerImage(0), pattern(77).convertToFormat(LayerFormat));
    const QStringList lines = LogCapture::matching("[PD] Canvas load: ");
    QCOMPARE(lines.size(), 1);
    QVERIFY(lines[0].contains("is not valid JSON"));
    QVERIFY(lines[0].endsWith("; using the flattened image"));
}

void TestCanvasFiles::corruptLayerPngStartsTransparent()
{
    const QString dir = freshDir();
    CanvasDocument doc(W, H);
    buildThreeLayers(doc);
    QVERIFY(writeCanvasFiles(takeCanvasSnapshot(dir, doc, pattern(77))));
    const QString second = dir + "/canvas_layer_1.png";
    const QByteArray png = fileBytes(second);
    writeBytes(second, png.left(png.size() / 2));
    writeBytes(dir + "/canvas_layer_2.png", "not a picture at all");

    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Layers);
    QCOMPARE(names(loaded), QStringList({"Sky", "Hills", "Ink"}));
    QCOMPARE(loaded.layerImage(0), doc.layerImage(0));
    QCOMPARE(loaded.layerImage(2), filled(Qt::transparent).convertToFormat(LayerFormat));
    QCOMPARE(loaded.layerImage(1).size(), QSize(W, H)); // whatever rows decoded, never bigger
    QCOMPARE(loaded.layerOpacity(2), 0.25f);
    const QStringList lines = LogCapture::matching("[PD] Canvas load: layer ");
    QVERIFY(lines.size() >= 1);
    QVERIFY(lines.last().startsWith("[PD] Canvas load: layer 3 could not be read from "));
    QVERIFY(lines.last().endsWith("; it starts transparent"));
}

void TestCanvasFiles::tooManyLayersAreCapped()
{
    const QString dir = freshDir();
    QJsonArray layers;
    for (int i = 0; i < CanvasFiles::MaxLoadedLayers + 50; ++i)
        layers.append(QJsonObject{{"name", QString("L%1").arg(i)}});
    writeJson(dir, {{"layers", layers}, {"activeLayer", 100000}});
    CanvasDocument doc(2, 2);
    QVERIFY(loadCanvasFiles(dir, doc));
    QCOMPARE(doc.layerCount(), CanvasFiles::MaxLoadedLayers);
    QCOMPARE(doc.activeLayer(), CanvasFiles::MaxLoadedLayers - 1);
    QCOMPARE(LogCapture::matching("[PD] Canvas load: ").first(),
             QString("[PD] Canvas load: %1 lists 306 layers; only the first 256 are loaded")
                 .arg(QDir::toNativeSeparators(dir + "/canvas_layers.json")));
}

void TestCanvasFiles::nothingOnDiskLeavesCanvasBlank()
{
    const QString dir = freshDir();
    CanvasDocument doc(W, H);
    doc.addLayer();
    QCOMPARE(loadCanvasAtStart(dir, doc), CanvasLoad::Blank);
    QCOMPARE(doc.layerCount(), 2);
    QVERIFY(LogCapture::lines().isEmpty());

    // An unreadable flattened image also leaves it blank, but says so.
    writeBytes(dir + "/canvas.png", "junk");
    QCOMPARE(loadCanvasAtStart(dir, doc), CanvasLoad::Blank);
    QCOMPARE(LogCapture::matching("[PD] Canvas load: ").size(), 1);
}

void TestCanvasFiles::canvasKeyChoice_data()
{
    QTest::addColumn<QByteArray>("uuid");
    QTest::addColumn<bool>("hasUuid");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("hasName");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("folder");

    QTest::newRow("uuid wins") << QByteArray("6f1c-22ab") << true << QByteArray("Canvas") << true
                               << "6f1c-22ab"
                               << "6f1c-22ab";
    QTest::newRow("no uuid: name")
        << QByteArray() << false << QByteArray("My Canvas/1") << true << "My Canvas/1"
        << "My_Canvas_1";
    QTest::newRow("empty uuid: name")
        << QByteArray("") << true << QByteArray("Zeichnung ä") << true
        << QString::fromUtf8("Zeichnung ä") << QString::fromUtf8("Zeichnung_ä");
    QTest::newRow("neither") << QByteArray() << false << QByteArray() << false << QString()
                             << QString();
}

void TestCanvasFiles::canvasKeyChoice()
{
    QFETCH(QByteArray, uuid);
    QFETCH(bool, hasUuid);
    QFETCH(QByteArray, name);
    QFETCH(bool, hasName);
    QFETCH(QString, key);
    QFETCH(QString, folder);

    const QString chosen =
        canvasKeyFor(hasUuid ? uuid.constData() : nullptr, hasName ? name.constData() : nullptr);
    QCOMPARE(chosen, key);
    const QString base = m_settingsDir.path() + "/PennoriaDraw";
    QCOMPARE(CanvasSaver(chosen).directory(), key.isEmpty() ? QString() : base + "/" + folder);
}

void TestCanvasFiles::emptyKeyNeverWrites()
{
    CanvasSaver saver(canvasKeyFor(nullptr, nullptr));
    QVERIFY(!saver.isEnabled());
    CanvasDocument doc(W, H);
    bool called = false;
    QVERIFY(!saver.saveAsync(doc, filled(Qt::red), [&called](bool) { called = true; }));
    QVERIFY(!saver.saveNow(doc, filled(Qt::red)));
    CanvasSaver::waitForPendingSaves();
    QVERIFY(!called);
    const QString base = canvasDirectory(QString());
    QVERIFY(!QFileInfo::exists(base + "/canvas.png"));
    QVERIFY(!QFileInfo::exists(base + "/canvas_layers.json"));
    QVERIFY(!QFileInfo::exists(base + "/canvas_layer_0.png"));
}

void TestCanvasFiles::failedSaveKeepsPreviousCanvas()
{
    const QString dir = freshDir();
    CanvasDocument before(W, H);
    before.addLayer();
    paint(before, 0, pattern(10));
    paint(before, 1, pattern(20));
    before.renameLayer(1, "Before");
    QVERIFY(writeCanvasFiles(takeCanvasSnapshot(dir, before, pattern(30))));
    const QStringList files = QDir(dir).entryList(QDir::Files, QDir::Name);
    QHash<QString, QByteArray> saved;
    for (const QString &f : files)
        saved.insert(f, fileBytes(dir + "/" + f));

    // A directory squats on the third layer's name, so that file cannot be
    // put in place; the first two could.
    QVERIFY(QDir().mkpath(dir + "/canvas_layer_2.png"));
    CanvasDocument after(W, H);
    buildThreeLayers(after);
    QVERIFY(!writeCanvasFiles(takeCanvasSnapshot(dir, after, pattern(40))));

    QCOMPARE(QDir(dir).entryList(QDir::Files, QDir::Name), files);
    for (const QString &f : files)
        QVERIFY2(fileBytes(dir + "/" + f) == saved.value(f), qPrintable(f));
    QCOMPARE(LogCapture::matching("[PD] Canvas not saved: "),
             QStringList(QString("[PD] Canvas not saved: %1: %2; the previous files are kept")
                             .arg(QDir::toNativeSeparators(dir + "/canvas_layer_2.png"),
                                  "Filename refers to a directory")));

    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Layers);
    QCOMPARE(names(loaded), QStringList({"Layer 1", "Before"}));
    QCOMPARE(loaded.layerImage(0), pattern(10).convertToFormat(LayerFormat));
    QCOMPARE(loaded.layerImage(1), pattern(20).convertToFormat(LayerFormat));
}

void TestCanvasFiles::unwritableIndexStillSavesPictures()
{
    const QString dir = freshDir();
    CanvasDocument before(W, H);
    before.addLayer();
    before.addLayer();
    QVERIFY(writeCanvasFiles(takeCanvasSnapshot(dir, before, pattern(1))));

    // A folder squats on the index's name, so the index cannot be written.
    QVERIFY(QFile::remove(dir + "/canvas_layers.json"));
    QVERIFY(QDir().mkpath(dir + "/canvas_layers.json"));
    CanvasDocument after(W, H);
    after.addLayer();
    paint(after, 0, pattern(10));
    paint(after, 1, pattern(20));
    QVERIFY(!writeCanvasFiles(takeCanvasSnapshot(dir, after, pattern(30))));

    QCOMPARE(readPng(dir + "/canvas.png"), pattern(30));
    QCOMPARE(readPng(dir + "/canvas_layer_0.png"), asStored(pattern(10)));
    QCOMPARE(readPng(dir + "/canvas_layer_1.png"), asStored(pattern(20)));
    QVERIFY(!QFileInfo::exists(dir + "/canvas_layer_2.png"));
    QVERIFY(QFileInfo(dir + "/canvas_layers.json").isDir());
    QCOMPARE(LogCapture::matching("[PD] Canvas save: "),
             QStringList(QString("[PD] Canvas save: %1 could not be written: %2; the layers and "
                                 "the flattened image are saved without it")
                             .arg(QDir::toNativeSeparators(dir + "/canvas_layers.json"),
                                  "Filename refers to a directory")));
    QVERIFY(LogCapture::matching("[PD] Canvas not saved: ").isEmpty());

    // Without a readable index the editor opens the flattened picture.
    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Flattened);
    QCOMPARE(loaded.layerImage(0), pattern(30).convertToFormat(LayerFormat));
}

void TestCanvasFiles::unwritableFolderIsLogged()
{
    // A plain file where the canvas folder should be.
    const QString blocker = m_filesDir.filePath("blocked");
    writeBytes(blocker, "x");
    CanvasDocument doc(W, H);
    QVERIFY(!writeCanvasFiles(takeCanvasSnapshot(blocker + "/canvas", doc, filled(Qt::red))));
    QCOMPARE(LogCapture::matching("[PD] Canvas not saved: "),
             QStringList("[PD] Canvas not saved: cannot create the folder " +
                         QDir::toNativeSeparators(blocker + "/canvas")));

    LogCapture::clear();
    QVERIFY(!writeCanvasFiles(takeCanvasSnapshot(QString(), doc, filled(Qt::red))));
    QCOMPARE(LogCapture::lines(), QStringList("[PD] Canvas not saved: no folder given"));
}

void TestCanvasFiles::olderSnapshotNeverOverwritesNewer()
{
    const QString dir = freshDir();
    CanvasDocument doc(W, H);
    paint(doc, 0, pattern(1));
    const CanvasSaveSnapshot older = takeCanvasSnapshot(dir, doc, pattern(1));
    paint(doc, 0, pattern(2));
    const CanvasSaveSnapshot newer = takeCanvasSnapshot(dir, doc, pattern(2));
    QVERIFY(newer.sequence > older.sequence);

    QVERIFY(writeCanvasFiles(newer));
    QVERIFY(writeCanvasFiles(older)); // superseded: nothing to do
    QCOMPARE(readPng(dir + "/canvas_layer_0.png"), asStored(pattern(2)));
    QCOMPARE(readPng(dir + "/canvas.png"), pattern(2));

    // The snapshot keeps the pixels it was taken with although the layer changed.
    QCOMPARE(older.layerImages[0], pattern(1).convertToFormat(LayerFormat));
}

void TestCanvasFiles::snapshotSharesPixels()
{
    CanvasDocument doc(W, H);
    buildThreeLayers(doc);
    const QImage flat = pattern(4);
    const CanvasSaveSnapshot s = takeCanvasSnapshot("/x", doc, flat);
    QCOMPARE(s.layerImages.size(), 3);
    for (int i = 0; i < 3; ++i)
        QCOMPARE(s.layerImages[i].constBits(), doc.layers()[i].image.constBits());
    QCOMPARE(s.flattened.constBits(), flat.constBits());
    QCOMPARE(s.layerNames, QList<QString>({"Sky", "Hills", "Ink"}));
    QCOMPARE(s.layerVisible, QList<bool>({true, false, true}));
    QCOMPARE(s.layerOpacity, QList<float>({1.0f, 1.0f, 0.25f}));
    QCOMPARE(s.activeLayer, 1);
    QCOMPARE(s.directory, QString("/x"));
}

void TestCanvasFiles::asyncSaveRunsOnWorkerThread()
{
    CanvasSaver saver("worker-canvas");
    CanvasDocument doc(W, H);
    buildThreeLayers(doc);

    std::thread::id writer;
    bool written = false;
    QVERIFY(saver.saveAsync(doc, pattern(6), [&](bool ok) {
        writer = std::this_thread::get_id();
        written = ok;
    }));
    CanvasSaver::waitForPendingSaves();
    QVERIFY(written);
    QVERIFY(writer != std::thread::id());
    QVERIFY(writer != std::this_thread::get_id());

    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(saver.directory(), loaded), CanvasLoad::Layers);
    for (int i = 0; i < 3; ++i)
        QCOMPARE(loaded.layerImage(i), doc.layerImage(i));
    QCOMPARE(readPng(saver.directory() + "/canvas.png"), pattern(6));
}

void TestCanvasFiles::closeSaveIsSynchronousAndWins()
{
    CanvasSaver saver("closing-canvas");
    CanvasDocument doc(W, H);
    paint(doc, 0, pattern(50));

    // A debounced save still waits for the file lock when the window closes.
    canvasFileMutex().lock();
    std::thread::id writer;
    QVERIFY(saver.saveAsync(doc, pattern(50),
                            [&writer](bool) { writer = std::this_thread::get_id(); }));
    paint(doc, 0, pattern(60));
    canvasFileMutex().unlock();
    QVERIFY(saver.saveNow(doc, pattern(60)));

    // Written by the time saveNow returns, on this thread.
    QCOMPARE(readPng(saver.directory() + "/canvas_layer_0.png"), asStored(pattern(60)));
    QCOMPARE(readPng(saver.directory() + "/canvas.png"), pattern(60));

    // Whichever got the lock first, the older snapshot never lands last.
    CanvasSaver::waitForPendingSaves();
    QVERIFY(writer != std::this_thread::get_id());
    QCOMPARE(readPng(saver.directory() + "/canvas_layer_0.png"), asStored(pattern(60)));
    QCOMPARE(readPng(saver.directory() + "/canvas.png"), pattern(60));
}

QTEST_GUILESS_MAIN(TestCanvasFiles)
#include "tst_canvas_files.moc"
