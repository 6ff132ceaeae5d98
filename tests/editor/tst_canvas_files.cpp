#include "LogCapture.h"

#include "engine/CanvasDocument.h"
#include "files/CanvasFiles.h"
#include "files/CanvasSaver.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <future>
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

// A distinct, partly transparent pixel everywhere, so a premultiplication or
// a swapped channel shows.
QImage pattern(int seed, int w = W, int h = H)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    for (int y = 0; y < h; ++y) {
        uchar *row = image.scanLine(y);
        for (int x = 0; x < w; ++x) {
            const uchar px[4] = {uchar(x * 10 + seed), uchar(y * 15 + seed * 3),
                                 uchar(x * y + seed * 7), uchar(x * 11 + y + 1)};
            memcpy(row + x * 4, px, 4);
        }
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

// The layer files the index names, in order.
QStringList indexedFiles(const QString &dir)
{
    QStringList out;
    const QJsonDocument index = QJsonDocument::fromJson(fileBytes(dir + "/canvas_layers.json"));
    for (const QJsonValue &layer : index.object().value("layers").toArray())
        out << layer.toObject().value("file").toString();
    return out;
}

QStringList entries(const QString &dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
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

bool save(const QString &dir, const CanvasDocument &doc, const QImage &flat)
{
    return writeCanvasFiles(takeCanvasSnapshot(dir, doc, flat));
}

// A valid RGBA PNG of side x side pixels, all zeros: a few hundred kilobytes
// that decode to side * side * 4 bytes.
void writePngBomb(const QString &path, int side)
{
    auto be = [](uint v) {
        v = qToBigEndian(v);
        return QByteArray(reinterpret_cast<const char *>(&v), 4);
    };
    QByteArray png("\x89PNG\r\n\x1a\n", 8);
    auto chunk = [&](const char *type, const QByteArray &data) {
        const QByteArray body = QByteArray(type, 4) + data;
        const auto *bytes = reinterpret_cast<const Bytef *>(body.constData());
        png += be(uint(data.size())) + body + be(uint(crc32(0, bytes, uInt(body.size()))));
    };
    chunk("IHDR", be(uint(side)) + be(uint(side)) + QByteArray("\x08\x06\0\0\0", 5));
    QByteArray row(side * 4 + 1, '\0'), out(1 << 16, '\0'), idat; // filter byte, then zeros
    z_stream zs{};
    deflateInit(&zs, 9);
    for (int y = 0; y < side; ++y) {
        zs.next_in = reinterpret_cast<Bytef *>(row.data());
        zs.avail_in = uInt(row.size());
        do {
            zs.next_out = reinterpret_cast<Bytef *>(out.data());
            zs.avail_out = uInt(out.size());
            deflate(&zs, y + 1 == side ? Z_FINISH : Z_NO_FLUSH);
            idat += out.left(out.size() - int(zs.avail_out));
        } while (zs.avail_out == 0);
    }
    deflateEnd(&zs);
    chunk("IDAT", idat);
    chunk("IEND", QByteArray());
    writeBytes(path, png);
}

// Peak resident memory since the last reset, in MB (Linux).
qint64 peakMb(bool reset)
{
    QFile clear("/proc/self/clear_refs");
    if (reset && clear.open(QIODevice::WriteOnly))
        clear.write("5");
    QFile file("/proc/self/status");
    file.open(QIODevice::ReadOnly);
    const QByteArray status = file.readAll();
    const qsizetype at = status.indexOf("VmHWM:") + 6;
    return status.mid(at, status.indexOf("kB", at) - at).trimmed().toLongLong() / 1024;
}

// Generation k of the crash test's canvas: 3 or 4 layers; layer i changes
// only every (i + 1)-th generation, so unchanged layers are carried over.
constexpr int CrashSide = 192;
QImage crashLayer(int k, int i)
{
    return pattern((k / (i + 1)) * (i + 1) * 13 + i, CrashSide, CrashSide);
}

// The crash test's writer: saves generations in a loop until it is killed.
int saveLoop(const QString &dir)
{
    CanvasDocument doc(CrashSide, CrashSide);
    loadCanvasAtStart(dir, doc);
    fputs("saving\n", stdout);
    fflush(stdout);
    for (int k = doc.layerName(0).toInt() + 1;; ++k) {
        while (doc.layerCount() < 3 + k % 2)
            doc.addLayer();
        while (doc.layerCount() > 3 + k % 2)
            doc.deleteLayer(doc.layerCount() - 1);
        for (int i = 0; i < doc.layerCount(); ++i) {
            doc.renameLayer(i, QString::number(k));
            if (doc.layerImage(i) != crashLayer(k, i))
                paint(doc, i, crashLayer(k, i));
        }
        const QColor flat = QColor::fromRgb(QRgb(0xff000000u | uint(k) * 2654435761u));
        if (!save(dir, doc, filled(flat, CrashSide, CrashSide)))
            return 1;
    }
}

} // namespace

class TestCanvasFiles : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void saveLoadAndReuse();
    void firstFormatFolderLoadsAndMigrates();
    void damagedIndexes_data();
    void damagedIndexes();
    void damagedFolderIsKeptAsideOnFirstChange_data();
    void damagedFolderIsKeptAsideOnFirstChange();
    void hostileFilesAreBounded_data();
    void hostileFilesAreBounded();
    void failedSaveKeepsPreviousSave_data();
    void failedSaveKeepsPreviousSave();
    void canvasKeyChoice_data();
    void canvasKeyChoice();
    void closeHandsOffToTheWriter();
    void crashAtAnyPointLeavesOneCompleteSave();

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

void TestCanvasFiles::saveLoadAndReuse()
{
    const QString dir = freshDir();
    CanvasDocument doc(W, H);
    buildThreeLayers(doc);
    QVERIFY(save(dir, doc, pattern(99)));
    const QStringList first = indexedFiles(dir);
    QCOMPARE(entries(dir), (QStringList{"canvas.png"} + first + QStringList{"canvas_layers.json"}));
    QCOMPARE(QSet<QString>(first.begin(), first.end()).size(), 3);
    QCOMPARE(readPng(dir + "/canvas.png"), pattern(99));
    QVERIFY(LogCapture::lines().isEmpty());
    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Layers);
    QCOMPARE(names(loaded), QStringList({"Sky", "Hills", "Ink"}));
    QCOMPARE(loaded.activeLayer(), 1);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(loaded.layerImage(i), doc.layerImage(i));
        QCOMPARE(loaded.layerVisible(i), doc.layerVisible(i));
        QCOMPARE(loaded.layerOpacity(i), doc.layerOpacity(i));
    }

    // Nothing changed (an editor opened and closed): nothing is written.
    const QByteArray firstIndex = fileBytes(dir + "/canvas_layers.json");
    QVERIFY(save(dir, loaded, pattern(99)));
    QCOMPARE(fileBytes(dir + "/canvas_layers.json"), firstIndex);

    // One layer painted: only its file is new; the old one is swept.
    paint(doc, 1, pattern(7));
    QVERIFY(save(dir, doc, pattern(2)));
    const QStringList second = indexedFiles(dir);
    QCOMPARE(second, (QStringList{first[0], second[1], first[2]}));
    QVERIFY(second[1] != first[1] && !QFileInfo::exists(dir + "/" + first[1]));

    // Same pixels painted again, layers reordered and one deleted: no file
    // is re-encoded, and the deleted layer's file goes.
    paint(doc, 1, pattern(7));
    doc.moveLayer(2, 0);
    doc.deleteLayer(2);
    QVERIFY(save(dir, doc, pattern(3)));
    QCOMPARE(indexedFiles(dir), (QStringList{second[2], second[0]}));
    QCOMPARE(entries(dir), (QStringList{"canvas.png", second[0], second[2], "canvas_layers.json"}));
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Layers);
    QCOMPARE(names(loaded), QStringList({"Ink", "Sky"}));
    QCOMPARE(loaded.layerImage(0), pattern(81).convertToFormat(LayerFormat));
}

void TestCanvasFiles::firstFormatFolderLoadsAndMigrates()
{
    const QString dir = freshDir();
    for (int i = 0; i < 4; ++i)
        QVERIFY(pattern(i).save(dir + QString("/canvas_layer_%1.png").arg(i)));
    const QJsonArray layers{QJsonObject{{"name", "A"}}, QJsonObject{{"name", "B"}},
                            QJsonObject{{"visible", false}, {"opacity", 3.5}},
                            QJsonObject{{"name", 5}, {"visible", "no"}, {"opacity", -1}}};
    writeBytes(dir + "/canvas_layers.json",
               QJsonDocument(QJsonObject{{"version", 1}, {"activeLayer", 1}, {"layers", layers}})
                   .toJson());
    CanvasDocument doc(W, H);
    QCOMPARE(loadCanvasAtStart(dir, doc), CanvasLoad::Layers);
    QCOMPARE(names(doc), QStringList({"A", "B", "Layer 3", "Layer 4"}));
    QCOMPARE(doc.activeLayer(), 1);
    QVERIFY(!doc.layerVisible(2) && doc.layerVisible(3));
    QCOMPARE(doc.layerOpacity(2), 1.0f);
    QCOMPARE(doc.layerOpacity(3), 0.0f);
    QCOMPARE(doc.layerImage(3), pattern(3).convertToFormat(LayerFormat));

    // The first change writes the new format; unchanged layers keep their
    // files, the changed one's old file goes.
    paint(doc, 0, pattern(50));
    QVERIFY(save(dir, doc, pattern(60)));
    QCOMPARE(indexedFiles(dir).mid(1),
             (QStringList{"canvas_layer_1.png", "canvas_layer_2.png", "canvas_layer_3.png"}));
    QVERIFY(!QFileInfo::exists(dir + "/canvas_layer_0.png"));
    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Layers);
    QCOMPARE(loaded.layerImage(0), pattern(50).convertToFormat(LayerFormat));
    QCOMPARE(loaded.layerImage(3), pattern(3).convertToFormat(LayerFormat));
}

void TestCanvasFiles::damagedIndexes_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<CanvasLoad>("kind");
    QTest::newRow("empty file") << QByteArray() << CanvasLoad::Flattened;
    QTest::newRow("truncated") << QByteArray(R"({"layers":[{"name":"A"},{"na)")
                               << CanvasLoad::Flattened;
    QTest::newRow("array at the root") << QByteArray(R"([{"name":"A"}])") << CanvasLoad::Flattened;
    QTest::newRow("no layers") << QByteArray(R"({"layers":[]})") << CanvasLoad::Flattened;
    QTest::newRow("binary noise") << QByteArray("\x89PNG\r\n\x1a\n\0\0\xff", 11)
                                  << CanvasLoad::Flattened;
    QTest::newRow("2 MB index") << "{\"layers\":[" + QByteArray(2 << 20, ' ') + "{}]}"
                                << CanvasLoad::Flattened;
    QTest::newRow("file outside the folder")
        << QByteArray(R"({"layers":[{"file":"../canvas1/canvas.png"},{"file":"/etc/passwd"}]})")
        << CanvasLoad::Layers;
    QByteArray many = "{\"layers\":[{}";
    for (int i = 0; i < 300000; ++i)
        many += ",{}";
    QTest::newRow("300,000 layers") << many + "]}" << CanvasLoad::Layers;
}

void TestCanvasFiles::damagedIndexes()
{
    QFETCH(QByteArray, json);
    QFETCH(CanvasLoad, kind);
    const QString dir = freshDir();
    QVERIFY(pattern(0).save(dir + "/canvas_layer_0.png"));
    writeBytes(dir + "/canvas_layers.json", json);
    QVERIFY(pattern(8).save(dir + "/canvas.png"));

    CanvasDocument doc(W, H);
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(loadCanvasAtStart(dir, doc), kind);
    QVERIFY(timer.elapsed() < 2000);
    QVERIFY(doc.layerCount() <= CanvasFiles::LayerBudget);
    if (kind == CanvasLoad::Flattened)
        QCOMPARE(doc.layerImage(0), pattern(8).convertToFormat(LayerFormat));
    else if (doc.layerCount() == 2)
        QCOMPARE(doc.layerImage(0), filled(Qt::transparent).convertToFormat(LayerFormat));
    QVERIFY(!LogCapture::matching("[PD] Canvas load: ").isEmpty());
}

void TestCanvasFiles::damagedFolderIsKeptAsideOnFirstChange_data()
{
    QTest::addColumn<QString>("damage");
    QTest::addColumn<CanvasLoad>("kind");
    QTest::newRow("truncated index") << "truncate" << CanvasLoad::Flattened;
    QTest::newRow("index is a FIFO") << "fifo" << CanvasLoad::Flattened;
    QTest::newRow("layer file missing") << "missing" << CanvasLoad::Layers;
    QTest::newRow("layer file corrupt") << "corrupt" << CanvasLoad::Layers;
    QTest::newRow("layer files without index") << "no index" << CanvasLoad::Flattened;
}

// The editor falls back to what it could read; that must never cost the
// files it could not.
void TestCanvasFiles::damagedFolderIsKeptAsideOnFirstChange()
{
    QFETCH(QString, damage);
    QFETCH(CanvasLoad, kind);
    const QString dir = freshDir();
    CanvasDocument doc(W, H);
    buildThreeLayers(doc);
    doc.addLayer();
    paint(doc, 3, pattern(33));
    QVERIFY(save(dir, doc, pattern(9)));
    const QString index = dir + "/canvas_layers.json";
    const QStringList files = indexedFiles(dir);
    if (damage == "truncate")
        writeBytes(index, fileBytes(index).left(100));
    if (damage == "fifo")
        QVERIFY(QFile::remove(index) && mkfifo(QFile::encodeName(index), 0600) == 0);
    if (damage == "missing")
        QVERIFY(QFile::remove(dir + "/" + files[2]));
    if (damage == "corrupt")
        writeBytes(dir + "/" + files[2], "not a picture");
    if (damage == "no index")
        QVERIFY(QFile::remove(index) &&
                QFile::rename(dir + "/" + files[0], dir + "/canvas_layer_0.png"));
    auto contents = [](const QString &folder) { // a FIFO reads as empty
        QMap<QString, QByteArray> out;
        for (const QString &name : QDir(folder).entryList(QDir::Files | QDir::System))
            out.insert(name, QFileInfo(folder + "/" + name).isFile()
                                 ? fileBytes(folder + "/" + name)
                                 : "");
        return out;
    };
    const QMap<QString, QByteArray> before = contents(dir);

    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), kind);
    QVERIFY(save(dir, loaded, loaded.flatComposite())); // closed without drawing
    QCOMPARE(contents(dir), before);

    LogCapture::clear();
    paint(loaded, 0, pattern(70));
    QVERIFY(save(dir, loaded, pattern(71)));
    const QStringList aside = QDir(dir).entryList({"damaged-*"}, QDir::Dirs);
    QCOMPARE(aside.size(), 1);
    const QString backup = dir + "/" + aside[0];
    QMap<QString, QByteArray> kept = before;
    if (damage == "fifo")
        kept.remove("canvas_layers.json"); // nothing in it to keep
    QCOMPARE(contents(backup), kept);
    QCOMPARE(
        LogCapture::matching("[PD] Canvas folder "),
        QStringList(QString("[PD] Canvas folder %1 could not be read completely; its files "
                            "are kept in %2 and a new save is written")
                        .arg(QDir::toNativeSeparators(dir), QDir::toNativeSeparators(backup))));
    CanvasDocument reloaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, reloaded), CanvasLoad::Layers);
    QCOMPARE(reloaded.layerImage(0), pattern(70).convertToFormat(LayerFormat));
    QCOMPARE(readPng(dir + "/canvas.png"), pattern(71));
}

void TestCanvasFiles::hostileFilesAreBounded_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("hostile");
    for (const char *file : {"layer", "flattened"}) {
        QTest::newRow(qPrintable(QString("%1: 8000 x 8000 PNG bomb").arg(file))) << file << "bomb";
        QTest::newRow(qPrintable(QString("%1: FIFO").arg(file))) << file << "fifo";
    }
}

void TestCanvasFiles::hostileFilesAreBounded()
{
    QFETCH(QString, file);
    QFETCH(QString, hostile);
    const QString dir = freshDir();
    const QString path = dir + (file == "layer" ? "/canvas_layer_0.png" : "/canvas.png");
    if (file == "layer")
        writeBytes(dir + "/canvas_layers.json", R"({"layers":[{"name":"A"}]})");
    if (hostile == "bomb")
        writePngBomb(path, 8000);
    if (hostile == "fifo")
        QCOMPARE(mkfifo(QFile::encodeName(path), 0600), 0);

    const qint64 peakBefore = peakMb(true);
    auto source = std::async(std::launch::async, [dir] {
        return loadCanvasImage(dir + "/canvas.png", QSize(1920, 1080));
    });
    auto editor =
        std::async(std::launch::async, [dir] { return readCanvasFolder(dir, QSize(W, H)); });
    const bool done = editor.wait_for(std::chrono::seconds(5)) == std::future_status::ready &&
                      source.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    if (!done) // let a reader stuck on the FIFO go before failing
        ::close(::open(QFile::encodeName(path), O_WRONLY | O_NONBLOCK));
    QVERIFY2(done, "a load hung");
    QVERIFY2(peakMb(false) - peakBefore < 64, qPrintable(QString::number(peakMb(false))));
    QVERIFY(source.get().isNull());
    const CanvasFolder folder = editor.get();
    QVERIFY(!folder.complete);
    QCOMPARE(folder.layers.size(), 1);
    QCOMPARE(folder.layers[0].image, filled(Qt::transparent));
}

void TestCanvasFiles::failedSaveKeepsPreviousSave_data()
{
    QTest::addColumn<QString>("squatted");
    QTest::newRow("new layer file") << "canvas_layer_2_g2.png";
    QTest::newRow("flattened image") << "canvas.png";
}

void TestCanvasFiles::failedSaveKeepsPreviousSave()
{
    QFETCH(QString, squatted);
    const QString dir = freshDir();
    CanvasDocument before(W, H);
    before.addLayer();
    paint(before, 1, pattern(20));
    QVERIFY(save(dir, before, pattern(30)));
    const QByteArray index = fileBytes(dir + "/canvas_layers.json");

    // A folder squats on a name the save needs, so that file cannot be put
    // in place.
    QFile::remove(dir + "/" + squatted);
    QVERIFY(QDir().mkpath(dir + "/" + squatted));
    CanvasDocument after(W, H);
    buildThreeLayers(after);
    QVERIFY(!save(dir, after, pattern(40)));
    QCOMPARE(fileBytes(dir + "/canvas_layers.json"), index);
    const QString path = QDir::toNativeSeparators(dir + "/" + squatted);
    QVERIFY(LogCapture::matching("[PD] Canvas not saved: " + path).size() == 1);

    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Layers);
    QCOMPARE(loaded.layerCount(), 2);
    QCOMPARE(loaded.layerImage(1), pattern(20).convertToFormat(LayerFormat));
}

void TestCanvasFiles::canvasKeyChoice_data()
{
    QTest::addColumn<QByteArray>("uuid"); // null: none
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("folder"); // empty: never written
    QTest::newRow("uuid wins") << QByteArray("6f1c-22ab") << QByteArray("Canvas") << "6f1c-22ab";
    QTest::newRow("empty uuid: name")
        << QByteArray("") << QByteArray("My Canvas/1") << "My_Canvas_1";
    QTest::newRow("neither") << QByteArray() << QByteArray() << QString();
}

void TestCanvasFiles::canvasKeyChoice()
{
    QFETCH(QByteArray, uuid);
    QFETCH(QByteArray, name);
    QFETCH(QString, folder);
    const CanvasSaver saver(canvasKeyFor(uuid.isNull() ? nullptr : uuid.constData(),
                                         name.isNull() ? nullptr : name.constData()));
    const QString base = m_settingsDir.path() + "/PennoriaDraw";
    QCOMPARE(saver.directory(), folder.isEmpty() ? QString() : base + "/" + folder);
    CanvasDocument doc(W, H);
    QCOMPARE(saver.saveNow(doc, filled(Qt::red)), !folder.isEmpty());
    CanvasSaver::waitForPendingSaves();
    QCOMPARE(QFileInfo::exists(base + "/" + folder + "/canvas.png"), !folder.isEmpty());
    QVERIFY(!QFileInfo::exists(base + "/canvas.png"));
}

void TestCanvasFiles::closeHandsOffToTheWriter()
{
    CanvasSaver saver("closing-canvas");
    CanvasDocument doc(W, H);
    paint(doc, 0, pattern(50));
    const CanvasSaveSnapshot older = takeCanvasSnapshot(saver.directory(), doc, pattern(50));

    // Another save holds the file lock for a while.
    std::promise<void> locked;
    std::thread holder([&locked] {
        QMutexLocker lock(&canvasFileMutex());
        locked.set_value();
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    });
    locked.get_future().wait();
    QElapsedTimer timer;
    timer.start();
    QVERIFY(saver.saveAsync(doc, pattern(50))); // a debounced save, then the close
    paint(doc, 0, pattern(60));
    QVERIFY(saver.saveNow(doc, pattern(60)));
    QVERIFY2(timer.elapsed() < 500, "closing waited for the writer");
    QVERIFY(!CanvasSaver::waitForPendingSaves(std::chrono::milliseconds(100)));
    QVERIFY(CanvasSaver::waitForPendingSaves(std::chrono::seconds(10)));
    holder.join();
    QVERIFY(writeCanvasFiles(older)); // a superseded snapshot changes nothing
    QCOMPARE(readPng(saver.directory() + "/" + indexedFiles(saver.directory())[0]),
             asStored(pattern(60)));
    QCOMPARE(readPng(saver.directory() + "/canvas.png"), pattern(60));
}

// A writer killed at random points of its saves: every load afterwards must
// be exactly one generation, and "canvas.png" always a whole picture.
void TestCanvasFiles::crashAtAnyPointLeavesOneCompleteSave()
{
    const QString dir = freshDir();
    int torn = 0;
    QSet<int> seen;
    for (int trial = 0; trial < 40; ++trial) {
        QProcess writer;
        writer.start(QCoreApplication::applicationFilePath(), {"--save-loop", dir});
        QVERIFY(writer.waitForReadyRead()); // started and loaded
        QTest::qWait(int(QRandomGenerator::global()->bounded(5, 150)));
        writer.kill();
        QVERIFY(writer.waitForFinished());

        CanvasDocument loaded(CrashSide, CrashSide);
        if (loadCanvasAtStart(dir, loaded) != CanvasLoad::Layers)
            continue; // killed before its first save
        const int k = loaded.layerName(0).toInt();
        seen.insert(k);
        bool whole = loaded.layerCount() == 3 + k % 2;
        for (int i = 0; whole && i < loaded.layerCount(); ++i)
            whole = loaded.layerName(i) == QString::number(k) &&
                    loaded.layerImage(i) == crashLayer(k, i).convertToFormat(LayerFormat);
        const QImage flat = readPng(dir + "/canvas.png");
        whole = whole && flat == filled(flat.pixelColor(0, 0), CrashSide, CrashSide);
        torn += whole ? 0 : 1;
    }
    qInfo("40 kills: %lld distinct generations loaded, %d torn", qint64(seen.size()), torn);
    QCOMPARE(torn, 0);
    QVERIFY(seen.size() >= 10);
    QVERIFY(QDir(dir).entryList({"damaged-*"}, QDir::Dirs).isEmpty());
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--save-loop") == 0)
        return saveLoop(QString::fromLocal8Bit(argv[2]));
    TestCanvasFiles test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_canvas_files.moc"
