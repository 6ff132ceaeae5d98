#include "files/CanvasFiles.h"

#include "common/Log.h"
#include "files/CanvasFolderRecord.h"
#include "files/PngEncode.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSet>

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <memory>

namespace CanvasFiles {

QString layerFileName(int index)
{
    return QStringLiteral("/canvas_layer_%1.png").arg(index);
}

QString indexFileName()
{
    return QStringLiteral("/canvas_layers.json");
}

QString flattenedFileName()
{
    return QStringLiteral("/canvas.png");
}

} // namespace CanvasFiles

using namespace CanvasFiles;

namespace {

void logLine(const QString &line)
{
    pdLog("%s", line.toUtf8().constData());
}

QString nativePath(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

// Names a save may give its layer files: the first format's
// "canvas_layer_<index>.png" and "canvas_layer_<index>_g<generation>.png".
bool isLayerFileName(const QString &name)
{
    static const QRegularExpression pattern(
        QStringLiteral("^canvas_layer_\\d{1,6}(_g\\d{1,19})?\\.png$"));
    return pattern.match(name).hasMatch();
}

// Opens only a regular file. On POSIX the open itself never waits (a FIFO
// put in place after a check would otherwise block it for good).
bool openRegularFile(QFile &file, const QString &path, QString *error)
{
#ifdef Q_OS_UNIX
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        *error = QString::fromLocal8Bit(strerror(errno));
        return false;
    }
    struct stat info{};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        *error = QStringLiteral("not a regular file");
        return false;
    }
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        *error = file.errorString();
        return false;
    }
    return true;
#else
    if (!QFileInfo(path).isFile()) {
        *error = QStringLiteral("not a regular file");
        return false;
    }
    file.setFileName(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = file.errorString();
        return false;
    }
    return true;
#endif
}

// An image of at most maxPixels, its size read from the header before
// anything is decoded. `fits` further limits the size.
QImage readBoundedImage(const QString &path, qint64 maxPixels, QString *error,
                        const std::function<bool(QSize)> &fits = {})
{
    QFile file;
    if (!openRegularFile(file, path, error))
        return QImage();
    QImageReader reader(&file);
    const QSize size = reader.size();
    if (!size.isValid()) {
        *error = reader.errorString();
        return QImage();
    }
    const qint64 pixels = qint64(size.width()) * size.height();
    if (pixels > maxPixels || (fits && !fits(size))) {
        *error = QStringLiteral("%1 x %2 is too large").arg(size.width()).arg(size.height());
        return QImage();
    }
    // A PNG of that size is never much larger than its raw pixels.
    if (file.size() > pixels * 5 + (1 << 20)) {
        *error = QStringLiteral("%1 bytes is too large for %2 x %3")
                     .arg(file.size())
                     .arg(size.width())
                     .arg(size.height());
        return QImage();
    }
    QImage image = reader.read();
    if (image.isNull())
        *error = reader.errorString();
    return image;
}

QImage blank(QSize size)
{
    QImage image(size, QImage::Format_RGBA8888);
    image.fill(Qt::transparent);
    return image;
}

// Canvas size and RGBA8888 already, so the canvas takes it without a copy;
// a larger image is cropped and a smaller one padded at the top left.
QImage normalised(const QImage &image, QSize size)
{
    if (image.isNull())
        return blank(size);
    if (image.size() == size)
        return image.convertToFormat(QImage::Format_RGBA8888);
    QImage out = blank(size);
    QPainter painter(&out);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(0, 0, image);
    return out;
}

enum class IndexState { Missing, Damaged, Usable };

// More entries than this in an index on disk mark it as damaged for a save.
constexpr int MaxCheckedEntries = 4096;

struct IndexEntry {
    QString name;
    bool visible = true;
    float opacity = 1.0f;
    QString file; // empty when the entry names no acceptable file
};

struct ParsedIndex {
    IndexState state = IndexState::Missing;
    QString problem;
    quint64 generation = 0;
    int activeLayer = 0;
    int listed = 0;
    QList<IndexEntry> entries; // at most maxEntries
};

ParsedIndex parseIndex(const QString &dir, int maxEntries)
{
    ParsedIndex index;
    const QString path = dir + indexFileName();
    if (!QFileInfo::exists(path) && !QFileInfo(path).isSymLink())
        return index;
    index.state = IndexState::Damaged;
    QFile file;
    QString error;
    if (!openRegularFile(file, path, &error)) {
        index.problem = QStringLiteral("cannot open %1: %2").arg(nativePath(path), error);
        return index;
    }
    if (file.size() > MaxIndexBytes) {
        index.problem = QStringLiteral("%1 is too large").arg(nativePath(path));
        return index;
    }
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(file.read(MaxIndexBytes), &parseError);
    if (doc.isNull()) {
        index.problem = QStringLiteral("%1 is not valid JSON (%2)")
                            .arg(nativePath(path), parseError.errorString());
        return index;
    }
    const QJsonObject root = doc.object();
    const QJsonArray layers = root.value(QStringLiteral("layers")).toArray();
    if (layers.isEmpty()) {
        index.problem = QStringLiteral("%1 lists no layers").arg(nativePath(path));
        return index;
    }
    index.state = IndexState::Usable;
    index.generation =
        quint64(std::max<qint64>(0, root.value(QStringLiteral("generation")).toInteger()));
    index.activeLayer = root.value(QStringLiteral("activeLayer")).toInt(0);
    index.listed = int(layers.size());
    const int count = std::min(index.listed, maxEntries);
    for (int i = 0; i < count; ++i) {
        const QJsonObject object = layers.at(i).toObject();
        IndexEntry entry;
        entry.name =
            object.value(QStringLiteral("name")).toString(QStringLiteral("Layer %1").arg(i + 1));
        entry.visible = object.value(QStringLiteral("visible")).toBool(true);
        entry.opacity =
            float(std::clamp(object.value(QStringLiteral("opacity")).toDouble(1.0), 0.0, 1.0));
        // The first format names no files: layer i is in canvas_layer_<i>.png.
        const QString named =
            object.value(QStringLiteral("file")).toString(layerFileName(i).mid(1));
        if (isLayerFileName(named))
            entry.file = named;
        index.entries.append(entry);
    }
    return index;
}

QStringList layerFilesIn(const QString &dir)
{
    QStringList out;
    const QStringList names = QDir(dir).entryList({QStringLiteral("canvas_layer_*.png")},
                                                  QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : names) {
        if (isLayerFileName(name))
            out.append(name);
    }
    return out;
}

// Layer files of the first format with no index to name them.
bool hasOrphanedFirstFormatLayers(const QString &dir)
{
    const QStringList files = layerFilesIn(dir);
    return std::any_of(files.begin(), files.end(),
                       [](const QString &name) { return !name.contains(QStringLiteral("_g")); });
}

} // namespace

QString canvasKeyFor(const char *uuid, const char *name)
{
    if (uuid && *uuid)
        return QString::fromUtf8(uuid);
    if (name)
        return QString::fromUtf8(name);
    return QString();
}

QMutex &canvasFileMutex()
{
    static auto *mutex = new QMutex; // a writer may still run at exit
    return *mutex;
}

QImage loadCanvasImage(const QString &path, QSize expected)
{
    if (path.isEmpty() || expected.isEmpty() || !QFileInfo::exists(path))
        return QImage();
    QString error;
    const QImage image =
        readBoundedImage(path, qint64(expected.width()) * expected.height(), &error,
                         [expected](QSize size) { return size == expected; });
    return image.isNull() ? image : image.convertToFormat(QImage::Format_RGBA8888);
}

CanvasFolder readCanvasFolder(const QString &directory, QSize canvasSize)
{
    CanvasFolder folder;
    if (canvasSize.isEmpty())
        return folder;
    // Not while a save of this process switches files under the reader.
    QMutexLocker lock(&canvasFileMutex());
    const QString dir = QDir::cleanPath(directory);
    const qint64 canvasPixels = qint64(canvasSize.width()) * canvasSize.height();
    const int maxLayers = int(std::clamp<qint64>(MaxBudgetPixels / canvasPixels, 1, LayerBudget));
    const qint64 maxImagePixels = canvasPixels * MaxLayerScale;
    auto incomplete = [&folder](const QString &why) {
        folder.complete = false;
        logLine(QStringLiteral("[PD] Canvas load: %1").arg(why));
    };

    const ParsedIndex index = parseIndex(dir, maxLayers);
    QStringList files;
    if (index.state == IndexState::Usable) {
        folder.kind = CanvasLoad::Layers;
        folder.activeLayer = std::clamp(index.activeLayer, 0, int(index.entries.size()) - 1);
        if (index.listed > maxLayers)
            incomplete(QStringLiteral("%1 lists %2 layers; only the first %3 are loaded")
                           .arg(nativePath(dir + indexFileName()))
                           .arg(index.listed)
                           .arg(maxLayers));
        for (int i = 0; i < index.entries.size(); ++i) {
            const IndexEntry &entry = index.entries[i];
            CanvasLayer layer;
            layer.name = entry.name;
            layer.visible = entry.visible;
            layer.opacity = entry.opacity;
            QString error = QStringLiteral("no acceptable file name");
            const QImage image = entry.file.isEmpty() ? QImage()
                                                      : readBoundedImage(dir + u'/' + entry.file,
                                                                         maxImagePixels, &error);
            if (image.isNull())
                incomplete(QStringLiteral("layer %1 could not be read from %2 (%3); it starts "
                                          "transparent")
                               .arg(i + 1)
                               .arg(nativePath(dir + u'/' + entry.file), error));
            layer.image = normalised(image, canvasSize);
            files.append(image.isNull() ? QString() : entry.file);
            folder.layers.append(layer);
        }
    } else {
        if (index.state == IndexState::Damaged)
            incomplete(index.problem + QStringLiteral("; using the flattened image"));
        else if (hasOrphanedFirstFormatLayers(dir))
            incomplete(QStringLiteral("layer files in %1 have no index").arg(nativePath(dir)));
        const QString path = dir + flattenedFileName();
        QImage flat;
        if (QFileInfo::exists(path) || QFileInfo(path).isSymLink()) {
            QString error;
            flat = readBoundedImage(path, maxImagePixels, &error);
            if (flat.isNull())
                incomplete(
                    QStringLiteral("%1 could not be read (%2)").arg(nativePath(path), error));
        }
        CanvasLayer layer;
        layer.name = QStringLiteral("Layer 1");
        layer.image = normalised(flat, canvasSize);
        folder.layers.append(layer);
        files.append(QString());
        folder.kind = flat.isNull() ? CanvasLoad::Blank : CanvasLoad::Flattened;
    }
    noteFolderLoaded(dir, folder, files, index.state == IndexState::Usable ? index.generation : 0);
    return folder;
}

namespace {

// Moves the files of a folder that could not be read completely into a new
// dated folder inside it; "/canvas.png" is copied so the source keeps it.
bool keepAside(const QString &dir)
{
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString backup = dir + QStringLiteral("/damaged-") + stamp;
    for (int n = 2; QFileInfo::exists(backup); ++n)
        backup = dir + QStringLiteral("/damaged-%1-%2").arg(stamp).arg(n);
    if (!QDir().mkpath(backup)) {
        logLine(QStringLiteral("[PD] Canvas not saved: %1 could not be read completely and no "
                               "backup folder can be made in it")
                    .arg(nativePath(dir)));
        return false;
    }
    QStringList moved = layerFilesIn(dir);
    moved << indexFileName().mid(1);
    for (const QString &name : moved) {
        const QString from = dir + u'/' + name;
        const QString to = backup + u'/' + name;
        if (!QFileInfo(from).isFile() && !QFileInfo(from).isSymLink())
            continue;
        if (!QFile::rename(from, to) && !QFile::copy(from, to)) {
            logLine(QStringLiteral("[PD] Canvas not saved: %1 could not be kept aside in %2")
                        .arg(nativePath(from), nativePath(backup)));
            return false;
        }
    }
    const QString flat = dir + flattenedFileName();
    if (QFileInfo(flat).isFile())
        QFile::copy(flat, backup + flattenedFileName());
    logLine(QStringLiteral("[PD] Canvas folder %1 could not be read completely; its files are "
                           "kept in %2 and a new save is written")
                .arg(nativePath(dir), nativePath(backup)));
    return true;
}

// Temporary files of a save that died before renaming them (where the
// platform gives them names at all). Young ones may belong to another process.
void removeAbandonedTemporaries(const QString &dir)
{
    const QStringList patterns{QStringLiteral("canvas_layer_*.png.??????"),
                               QStringLiteral("canvas_layers.json.??????"),
                               QStringLiteral("canvas.png.??????")};
    const QDateTime cutoff = QDateTime::currentDateTimeUtc().addSecs(-600);
    const QFileInfoList leftovers =
        QDir(dir).entryInfoList(patterns, QDir::Files | QDir::Hidden | QDir::System);
    for (const QFileInfo &info : leftovers) {
        if (info.lastModified().toUTC() < cutoff)
            QFile::remove(info.absoluteFilePath());
    }
}

// Removes the layer files the index no longer names; the index is already
// switched, so none of them is part of the canvas any more.
bool sweep(const QString &dir, const QSet<QString> &keep)
{
    bool ok = true;
    for (const QString &name : layerFilesIn(dir)) {
        if (keep.contains(name))
            continue;
        QFile file(dir + u'/' + name);
        if (!file.remove()) {
            logLine(QStringLiteral("[PD] Canvas save: old layer file %1 could not be removed: %2")
                        .arg(nativePath(file.fileName()), file.errorString()));
            ok = false;
        }
    }
    removeAbandonedTemporaries(dir);
    return ok;
}

QByteArray indexJson(const CanvasSaveSnapshot &s, quint64 generation, const QStringList &files)
{
    QJsonArray layers;
    for (int i = 0; i < s.layerImages.size(); ++i) {
        QJsonObject layer;
        layer.insert(QStringLiteral("name"), i < s.layerNames.size()
                                                 ? s.layerNames[i]
                                                 : QStringLiteral("Layer %1").arg(i + 1));
        layer.insert(QStringLiteral("visible"),
                     i < s.layerVisible.size() ? s.layerVisible[i] : true);
        layer.insert(QStringLiteral("opacity"),
                     double(i < s.layerOpacity.size() ? s.layerOpacity[i] : 1.0f));
        layer.insert(QStringLiteral("file"), files[i]);
        layers.append(layer);
    }
    QJsonObject root;
    root.insert(QStringLiteral("version"), 2);
    root.insert(QStringLiteral("generation"), qint64(generation));
    root.insert(QStringLiteral("activeLayer"), s.activeLayer);
    root.insert(QStringLiteral("layers"), layers);
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

// Writes the bytes of `write` to a temporary file beside `target`; commit()
// of the returned file renames it into place.
std::unique_ptr<QSaveFile> stage(const QString &target,
                                 const std::function<bool(QIODevice *)> &write)
{
    auto file = std::make_unique<QSaveFile>(target);
    QString error;
    if (!file->open(QIODevice::WriteOnly))
        error = file->errorString();
    else if (!write(file.get()))
        error = file->error() != QFileDevice::NoError ? file->errorString()
                                                      : QStringLiteral("encoding failed");
    if (error.isEmpty())
        return file;
    file->cancelWriting();
    logLine(QStringLiteral("[PD] Canvas not saved: %1: %2; the previous save is kept")
                .arg(nativePath(target), error));
    return nullptr;
}

bool commitStaged(QSaveFile &file)
{
    if (file.commit())
        return true;
    logLine(QStringLiteral("[PD] Canvas not saved: %1 could not be replaced: %2; the previous "
                           "save is kept")
                .arg(nativePath(file.fileName()), file.errorString()));
    return false;
}

std::function<bool(QIODevice *)> png(const QImage &image)
{
    return [image](QIODevice *device) { return writeFastPng(image, device); };
}

} // namespace

bool writeCanvasFiles(const CanvasSaveSnapshot &s)
{
    QMutexLocker lock(&canvasFileMutex());

    if (s.directory.isEmpty()) {
        logLine(QStringLiteral("[PD] Canvas not saved: no folder given"));
        return false;
    }
    const QString dir = QDir::cleanPath(s.directory);
    if (!QDir().mkpath(dir)) {
        logLine(QStringLiteral("[PD] Canvas not saved: cannot create the folder %1")
                    .arg(nativePath(dir)));
        return false;
    }

    const ParsedIndex onDisk = parseIndex(dir, MaxCheckedEntries);
    bool readable = onDisk.state == IndexState::Usable && onDisk.listed <= MaxCheckedEntries;
    for (const IndexEntry &entry : onDisk.entries)
        readable = readable && !entry.file.isEmpty() && QFileInfo(dir + u'/' + entry.file).isFile();
    const bool damaged = onDisk.state == IndexState::Damaged ||
                         (onDisk.state == IndexState::Usable && !readable) ||
                         (onDisk.state == IndexState::Missing && hasOrphanedFirstFormatLayers(dir));

    SavePlan plan = planSave(dir, s, onDisk.generation, damaged);
    if (plan.outcome == SavePlan::Superseded || plan.outcome == SavePlan::Unchanged)
        return true;
    if (plan.outcome == SavePlan::KeepAsideFirst) {
        if (!keepAside(dir))
            return false;
        noteFolderKeptAside(dir);
        plan = planSave(dir, s, 0, false);
    }

    // New layer files first: nothing names them yet, so a save that dies
    // here leaves only files the next sweep removes.
    const int n = int(s.layerImages.size());
    for (int i = 0; i < n; ++i) {
        if (!plan.encode[i])
            continue;
        std::unique_ptr<QSaveFile> file = stage(dir + u'/' + plan.files[i], png(s.layerImages[i]));
        if (!file || !commitStaged(*file))
            return false;
    }
    std::unique_ptr<QSaveFile> flat = stage(dir + flattenedFileName(), png(s.flattened));
    const QByteArray json = indexJson(s, plan.generation, plan.files);
    std::unique_ptr<QSaveFile> index = stage(dir + indexFileName(), [&json](QIODevice *device) {
        return device->write(json) == json.size();
    });
    if (!flat || !index)
        return false;
    // The switch: from this rename on, the folder is this save.
    if (!commitStaged(*index))
        return false;
    noteFolderWritten(dir, s, plan);
    const bool flatOk = commitStaged(*flat);
    const bool swept = sweep(dir, QSet<QString>(plan.files.begin(), plan.files.end()));
    return flatOk && swept;
}
