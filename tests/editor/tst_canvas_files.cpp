#include "LogCapture.h"

#include "engine/CanvasDocument.h"
#include "files/CanvasDirectory.h"
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
    doc.activeImage() = image;
    doc.markPainted();
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

QJsonObject readIndex(const QString &dir)
{
    return QJsonDocument::fromJson(fileBytes(dir + "/canvas_layers.json")).object();
}

// The layer files the index names, in order.
QStringList indexedFiles(const QString &dir)
{
    QStringList out;
    for (const QJsonValue &layer : readIndex(dir).value("layers").toArray())
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

void writeFirstFormat(const QString &dir, int layers, const QJsonArray &index)
{
    for (int i = 0; i < layers; ++i)
        QVERIFY(pattern(i).save(dir + QString("/canvas_layer_%1.png").arg(i)));
    writeBytes(
        dir + "/canvas_layers.json",
        QJsonDocument(QJsonObject{{"version", 1}, {"activeLayer", 1}, {"layers", index}}).toJson());
}

// A valid RGBA PNG of side x side pixels, all zeros, written row by row: a
// few hundred kilobytes that decode to side * side * 4 bytes.
void writePngBomb(const QString &path, int side)
{
    QByteArray png("\x89PNG\r\n\x1a\n", 8);
    auto chunk = [&png](const char *type, const QByteArray &data) {
        QByteArray body = QByteArray(type, 4) + data;
        const uint crc =
            uint(crc32(0, reinterpret_cast<const Bytef *>(body.constData()), uInt(body.size())));
        const uint length = qToBigEndian(uint(data.size()));
        png += QByteArray(reinterpret_cast<const char *>(&length), 4) + body;
        const uint crcBig = qToBigEndian(crc);
        png += QByteArray(reinterpret_cast<const char *>(&crcBig), 4);
    };
    const uint sideBig = qToBigEndian(uint(side));
    QByteArray header(reinterpret_cast<const char *>(&sideBig), 4);
    chunk("IHDR", header + header + QByteArray("\x08\x06\0\0\0", 5));
    z_stream zs{};
    deflateInit(&zs, 9);
    QByteArray row(side * 4 + 1, '\0'), out(1 << 16, '\0'), idat;
    for (int y = 0; y < side; ++y) {
        zs.next_in = reinterpret_cast<Bytef *>(row.data());
        zs.avail_in = uInt(row.size());
        const int flush = y == side - 1 ? Z_FINISH : Z_NO_FLUSH;
        do {
            zs.next_out = reinterpret_cast<Bytef *>(out.data());
            zs.avail_out = uInt(out.size());
            deflate(&zs, flush);
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
    if (reset) {
        QFile clear("/proc/self/clear_refs");
        if (clear.open(QIODevice::WriteOnly))
            clear.write("5");
    }
    QFile status("/proc/self/status");
    status.open(QIODevice::ReadOnly);
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong() / 1024;
    }
    return 0;
}

// Generation k of the crash test's canvas: 3 or 4 layers; layer i changes
// only every (i + 1)-th generation, so unchanged layers are carried over.
constexpr int CrashSide = 192;
QImage crashLayer(int k, int i)
{
    return pattern((k / (i + 1)) * (i + 1) * 13 + i, CrashSide, CrashSide);
}
QImage crashFlat(int k)
{
    return filled(QColor::fromRgb(QRgb(0xff000000u | uint(k) * 2654435761u)), CrashSide, CrashSide);
}

// The crash test's writer: saves generations in a loop until it is killed.
int saveLoop(const QString &dir)
{
    CanvasDocument doc(CrashSide, CrashSide);
    loadCanvasAtStart(dir, doc);
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
        if (!save(dir, doc, crashFlat(k)))
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

    void roundTrip();
    void onlyChangedLayersAreWritten();
    void firstFormatFolderLoadsAndMigrates();
    void damagedIndexes_data();
    void damagedIndexes();
    void damagedFolderIsKeptAsideOnFirstChange_data();
    void damagedFolderIsKeptAsideOnFirstChange();
    void hostileFilesAreBounded_data();
    void hostileFilesAreBounded();
    void failedSaveKeepsPreviousSave_data();
    void failedSaveKeepsPreviousSave();
    void unwritableFolderIsLogged();
    void olderSnapshotNeverOverwritesNewer();
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

void TestCanvasFiles::roundTrip()
{
    const QString dir = freshDir();
    CanvasDocument doc(W, H);
    buildThreeLayers(doc);
    QVERIFY(save(dir, doc, pattern(99)));

    const QStringList files = indexedFiles(dir);
    QCOMPARE(entries(dir), (QStringList{"canvas.png"} + files + QStringList{"canvas_layers.json"}));
    QCOMPARE(QSet<QString>(files.begin(), files.end()).size(), 3);
    QCOMPARE(readPng(dir + "/canvas.png"), pattern(99));
    const QJsonObject index = readIndex(dir);
    QCOMPARE(index.value("activeLayer").toInt(), 1);
    QVERIFY(index.value("generation").toInteger() > 0);
    QVERIFY(LogCapture::lines().isEmpty());

    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Layers);
    QCOMPARE(names(loaded), QStringList({"Sky", "Hills", "Ink"}));
    QCOMPARE(loaded.activeLayer(), 1);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(loaded.layerImage(i), doc.layerImage(i));
        QCOMPARE(readPng(dir + "/" + files[i]), doc.layerImage(i));
        QCOMPARE(loaded.layerVisible(i), doc.layerVisible(i));
        QCOMPARE(loaded.layerOpacity(i), doc.layerOpacity(i));
    }
}

void TestCanvasFiles::onlyChangedLayersAreWritten()
{
    const QString dir = freshDir();
    CanvasDocument doc(W, H);
    buildThreeLayers(doc);
    QVERIFY(save(dir, doc, pattern(1)));
    const QStringList first = indexedFiles(dir);
    const QByteArray firstIndex = fileBytes(dir + "/canvas_layers.json");

    // Nothing changed (an editor opened and closed): nothing is written.
    QVERIFY(save(dir, doc, pattern(1)));
    QCOMPARE(fileBytes(dir + "/canvas_layers.json"), firstIndex);

    // One layer painted: only its file is new; the old one is swept.
    paint(doc, 1, pattern(7));
    QVERIFY(save(dir, doc, pattern(2)));
    const QStringList second = indexedFiles(dir);
    QCOMPARE(second[0], first[0]);
    QVERIFY(second[1] != first[1]);
    QCOMPARE(second[2], first[2]);
    QVERIFY(!QFileInfo::exists(dir + "/" + first[1]));

    // Same pixels painted again, layers reordered and one deleted: no file
    // is re-encoded, and the deleted layer's file goes.
    paint(doc, 1, pattern(7));
    doc.moveLayer(2, 0);
    doc.deleteLayer(2);
    QVERIFY(save(dir, doc, pattern(3)));
    QCOMPARE(indexedFiles(dir), (QStringList{second[2], second[0]}));
    QCOMPARE(entries(dir), (QStringList{"canvas.png", second[0], second[2], "canvas_layers.json"}));
    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Layers);
    QCOMPARE(names(loaded), QStringList({"Ink", "Sky"}));
    QCOMPARE(loaded.layerImage(0), pattern(81));
}

void TestCanvasFiles::firstFormatFolderLoadsAndMigrates()
{
    const QString dir = freshDir();
    writeFirstFormat(dir, 4,
                     QJsonArray{QJsonObject{{"name", "A"}}, QJsonObject{{"name", "B"}},
                                QJsonObject{{"visible", false}, {"opacity", 3.5}},
                                QJsonObject{{"name", 5}, {"visible", "no"}, {"opacity", -1}}});
    CanvasDocument doc(W, H);
    QCOMPARE(loadCanvasAtStart(dir, doc), CanvasLoad::Layers);
    QCOMPARE(names(doc), QStringList({"A", "B", "Layer 3", "Layer 4"}));
    QCOMPARE(doc.activeLayer(), 1);
    QVERIFY(!doc.layerVisible(2));
    QVERIFY(doc.layerVisible(3));
    QCOMPARE(doc.layerOpacity(2), 1.0f);
    QCOMPARE(doc.layerOpacity(3), 0.0f);
    for (int i = 0; i < 4; ++i)
        QCOMPARE(doc.layerImage(i), pattern(i));

    // The first change writes the new format; unchanged layers keep their
    // files, the changed one's old file goes.
    paint(doc, 0, pattern(50));
    QVERIFY(save(dir, doc, pattern(60)));
    QCOMPARE(indexedFiles(dir).mid(1),
             (QStringList{"canvas_layer_1.png", "canvas_layer_2.png", "canvas_layer_3.png"}));
    QVERIFY(!QFileInfo::exists(dir + "/canvas_layer_0.png"));
    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Layers);
    QCOMPARE(loaded.layerImage(0), pattern(50));
    QCOMPARE(loaded.layerImage(3), pattern(3));
}

void TestCanvasFiles::damagedIndexes_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<CanvasLoad>("kind");
    QTest::newRow("empty file") << QByteArray() << CanvasLoad::Flattened;
    QTest::newRow("truncated") << QByteArray(R"({"layers":[{"name":"A"},{"na)")
                               << CanvasLoad::Flattened;
    QTest::newRow("array at the root") << QByteArray(R"([{"name":"A"}])") << CanvasLoad::Flattened;
    QTest::newRow("layers is an object")
        << QByteArray(R"({"layers":{"name":"A"}})") << CanvasLoad::Flattened;
    QTest::newRow("no layers") << QByteArray(R"({"layers":[]})") << CanvasLoad::Flattened;
    QTest::newRow("binary noise") << QByteArray("\x89PNG\r\n\x1a\n\0\0\xff", 11)
                                  << CanvasLoad::Flattened;
    QTest::newRow("NaN") << QByteArray(R"({"layers":[{"opacity":NaN}]})") << CanvasLoad::Flattened;
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
        QCOMPARE(doc.layerImage(0), pattern(8));
    else if (doc.layerCount() == 2)
        QCOMPARE(doc.layerImage(0), filled(Qt::transparent));
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
    QHash<QString, QByteArray> before;
    for (const QString &name : entries(dir))
        before.insert(name,
                      QFileInfo(dir + "/" + name).isFile() ? fileBytes(dir + "/" + name) : "");

    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), kind);
    QVERIFY(save(dir, loaded, loaded.flatComposite())); // closed without drawing
    QStringList names = before.keys();
    names.sort();
    QCOMPARE(entries(dir), names);
    for (auto it = before.cbegin(); it != before.cend(); ++it)
        QVERIFY2(QFileInfo(dir + "/" + it.key()).isFile() ? fileBytes(dir + "/" + it.key()) == *it
                                                          : it->isEmpty(),
                 qPrintable(it.key()));

    LogCapture::clear();
    paint(loaded, 0, pattern(70));
    QVERIFY(save(dir, loaded, pattern(71)));
    const QStringList aside = QDir(dir).entryList({"damaged-*"}, QDir::Dirs);
    QCOMPARE(aside.size(), 1);
    const QString backup = dir + "/" + aside[0];
    for (auto it = before.cbegin(); it != before.cend(); ++it) {
        if (QFileInfo(backup + "/" + it.key()).isFile())
            QCOMPARE(fileBytes(backup + "/" + it.key()), *it);
        else
            QVERIFY2(damage == "fifo" && it.key() == "canvas_layers.json", qPrintable(it.key()));
    }
    QCOMPARE(
        LogCapture::matching("[PD] Canvas folder "),
        QStringList(QString("[PD] Canvas folder %1 could not be read completely; its files "
                            "are kept in %2 and a new save is written")
                        .arg(QDir::toNativeSeparators(dir), QDir::toNativeSeparators(backup))));
    CanvasDocument reloaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, reloaded), CanvasLoad::Layers);
    QCOMPARE(reloaded.layerImage(0), pattern(70));
    QCOMPARE(readPng(dir + "/canvas.png"), pattern(71));
}

void TestCanvasFiles::hostileFilesAreBounded_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("hostile");
    for (const char *file : {"layer", "flattened"}) {
        QTest::newRow(qPrintable(QString("%1: 8000 x 8000 PNG bomb").arg(file))) << file << "bomb";
        QTest::newRow(qPrintable(QString("%1: FIFO").arg(file))) << file << "fifo";
        QTest::newRow(qPrintable(QString("%1: link to /dev/zero").arg(file))) << file << "zero";
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
    if (hostile == "zero")
        QVERIFY(QFile::link("/dev/zero", path));

    const qint64 peakBefore = peakMb(true);
    QElapsedTimer timer;
    timer.start();
    std::future<QImage> source = std::async(std::launch::async, [dir] {
        return loadCanvasImage(dir + "/canvas.png", QSize(1920, 1080));
    });
    std::future<CanvasFolder> editor =
        std::async(std::launch::async, [dir] { return readCanvasFolder(dir, QSize(W, H)); });
    const bool done = editor.wait_for(std::chrono::seconds(5)) == std::future_status::ready &&
                      source.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    if (!done) // let a reader stuck on the FIFO go before failing
        ::close(::open(QFile::encodeName(path), O_WRONLY | O_NONBLOCK));
    QVERIFY2(done, "a load hung");
    qInfo("loaded in %lld ms, peak %lld MB more", static_cast<long long>(timer.elapsed()),
          static_cast<long long>(peakMb(false) - peakBefore));
    QVERIFY(peakMb(false) - peakBefore < 64);
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
    QVERIFY(LogCapture::matching("[PD] Canvas not saved: ")
                .first()
                .startsWith("[PD] Canvas not saved: " +
                            QDir::toNativeSeparators(dir + "/" + squatted)));

    CanvasDocument loaded(W, H);
    QCOMPARE(loadCanvasAtStart(dir, loaded), CanvasLoad::Layers);
    QCOMPARE(loaded.layerCount(), 2);
    QCOMPARE(loaded.layerImage(1), pattern(20));
}

void TestCanvasFiles::unwritableFolderIsLogged()
{
    // A plain file where the canvas folder should be.
    const QString blocker = m_filesDir.filePath("blocked");
    writeBytes(blocker, "x");
    CanvasDocument doc(W, H);
    QVERIFY(!save(blocker + "/canvas", doc, filled(Qt::red)));
    QCOMPARE(LogCapture::lines(), QStringList("[PD] Canvas not saved: cannot create the folder " +
                                              QDir::toNativeSeparators(blocker + "/canvas")));
}

void TestCanvasFiles::olderSnapshotNeverOverwritesNewer()
{
    const QString dir = freshDir();
    CanvasDocument doc(W, H);
    paint(doc, 0, pattern(1));
    const CanvasSaveSnapshot older = takeCanvasSnapshot(dir, doc, pattern(1));
    paint(doc, 0, pattern(2));
    QVERIFY(save(dir, doc, pattern(2)));
    QVERIFY(writeCanvasFiles(older)); // superseded: nothing to do
    QCOMPARE(readPng(dir + "/" + indexedFiles(dir)[0]), pattern(2));
    QCOMPARE(readPng(dir + "/canvas.png"), pattern(2));
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
    QTest::newRow("neither: never written")
        << QByteArray() << false << QByteArray() << false << QString() << QString();
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
    CanvasDocument doc(W, H);
    QCOMPARE(CanvasSaver(chosen).saveNow(doc, filled(Qt::red)), !key.isEmpty());
    CanvasSaver::waitForPendingSaves();
    QCOMPARE(QFileInfo::exists(canvasDirectory(chosen) + "/canvas.png"), !key.isEmpty());
}

void TestCanvasFiles::closeHandsOffToTheWriter()
{
    CanvasSaver saver("closing-canvas");
    CanvasDocument doc(W, H);
    paint(doc, 0, pattern(50));

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
    QVERIFY(saver.saveAsync(doc, pattern(50)));
    paint(doc, 0, pattern(60));
    QVERIFY(saver.saveNow(doc, pattern(60)));
    QVERIFY2(timer.elapsed() < 500, "closing waited for the writer");
    QVERIFY(!CanvasSaver::waitForPendingSaves(std::chrono::milliseconds(100)));
    QVERIFY(CanvasSaver::waitForPendingSaves(std::chrono::seconds(10)));
    holder.join();
    QCOMPARE(readPng(saver.directory() + "/" + indexedFiles(saver.directory())[0]), pattern(60));
    QCOMPARE(readPng(saver.directory() + "/canvas.png"), pattern(60));
}

// A writer killed at random points of its saves: every load afterwards must
// be exactly one generation, and "canvas.png" always a whole picture.
void TestCanvasFiles::crashAtAnyPointLeavesOneCompleteSave()
{
    const QString dir = freshDir();
    int torn = 0;
    for (int trial = 0; trial < 40; ++trial) {
        QProcess writer;
        writer.start(QCoreApplication::applicationFilePath(), {"--save-loop", dir});
        QVERIFY(writer.waitForStarted());
        QTest::qWait(int(QRandomGenerator::global()->bounded(60, 260)));
        writer.kill();
        QVERIFY(writer.waitForFinished());

        CanvasDocument loaded(CrashSide, CrashSide);
        if (loadCanvasAtStart(dir, loaded) != CanvasLoad::Layers)
            continue; // killed before its first save
        const int k = loaded.layerName(0).toInt();
        bool whole = loaded.layerCount() == 3 + k % 2;
        for (int i = 0; whole && i < loaded.layerCount(); ++i)
            whole = loaded.layerName(i) == QString::number(k) &&
                    loaded.layerImage(i) == crashLayer(k, i);
        const QImage flat = readPng(dir + "/canvas.png");
        whole = whole && flat == filled(flat.pixelColor(0, 0), CrashSide, CrashSide);
        torn += whole ? 0 : 1;
    }
    QCOMPARE(torn, 0);
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
