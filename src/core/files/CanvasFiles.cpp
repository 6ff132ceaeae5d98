#include "files/CanvasFiles.h"

#include "common/Log.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QImageReader>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

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

struct StagedFile {
    QString target;
    std::unique_ptr<QSaveFile> file;
};

// Writes the content into a temporary file beside the target. Nothing
// replaces the target until commit().
bool stage(StagedFile &staged, const std::function<bool(QIODevice *)> &write, QString *error)
{
    staged.file = std::make_unique<QSaveFile>(staged.target);
    if (!staged.file->open(QIODevice::WriteOnly)) {
        *error = staged.file->errorString();
        return false;
    }
    if (!write(staged.file.get()) || staged.file->error() != QFileDevice::NoError) {
        *error = staged.file->error() != QFileDevice::NoError ? staged.file->errorString()
                                                              : QStringLiteral("encoding failed");
        staged.file->cancelWriting();
        return false;
    }
    return true;
}

QByteArray indexJson(const CanvasSaveSnapshot &s)
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
        layers.append(layer);
    }
    QJsonObject root;
    root.insert(QStringLiteral("version"), 1);
    root.insert(QStringLiteral("activeLayer"), s.activeLayer);
    root.insert(QStringLiteral("layers"), layers);
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

// Temporary files of a save that died before renaming them (where the
// platform gives them names at all). Young ones may belong to another process.
void removeAbandonedTemporaries(const QString &directory)
{
    const QStringList patterns{QStringLiteral("canvas_layer_*.png.??????"),
                               QStringLiteral("canvas_layers.json.??????"),
                               QStringLiteral("canvas.png.??????")};
    const QDateTime cutoff = QDateTime::currentDateTimeUtc().addSecs(-600);
    const QFileInfoList leftovers =
        QDir(directory).entryInfoList(patterns, QDir::Files | QDir::Hidden | QDir::System);
    for (const QFileInfo &info : leftovers) {
        if (info.lastModified().toUTC() < cutoff)
            QFile::remove(info.absoluteFilePath());
    }
}

QHash<QString, quint64> &writtenSequences()
{
    static QHash<QString, quint64> sequences;
    return sequences;
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
    static QMutex mutex;
    return mutex;
}

bool writeCanvasFiles(const CanvasSaveSnapshot &s)
{
    QMutexLocker lock(&canvasFileMutex());

    if (s.directory.isEmpty()) {
        logLine(QStringLiteral("[PD] Canvas not saved: no folder given"));
        return false;
    }
    const QString dir = QDir::cleanPath(s.directory);
    const quint64 written = writtenSequences().value(dir, 0);
    if (s.sequence != 0 && s.sequence < written)
        return true; // a newer snapshot of this canvas is already on disk

    if (!QDir().mkpath(dir)) {
        logLine(QStringLiteral("[PD] Canvas not saved: cannot create the folder %1")
                    .arg(nativePath(dir)));
        return false;
    }
    removeAbandonedTemporaries(dir);

    const int n = s.layerImages.size();
    std::vector<StagedFile> files(size_t(n) + 2);
    for (int i = 0; i < n; ++i)
        files[size_t(i)].target = dir + layerFileName(i);
    StagedFile &index = files[size_t(n)];
    StagedFile &flat = files[size_t(n) + 1];
    index.target = dir + indexFileName();
    flat.target = dir + flattenedFileName();

    auto png = [](const QImage &image) {
        return [image](QIODevice *device) { return image.save(device, "PNG", -1); };
    };
    const QByteArray json = indexJson(s);
    bool ok = true;
    bool indexStaged = true;
    for (size_t i = 0; i < files.size(); ++i) {
        std::function<bool(QIODevice *)> write;
        if (i < size_t(n))
            write = png(s.layerImages[int(i)]);
        else if (&files[i] == &index)
            write = [&json](QIODevice *device) { return device->write(json) == json.size(); };
        else
            write = png(s.flattened);
        QString error;
        if (stage(files[i], write, &error))
            continue;
        if (&files[i] == &index) {
            // The pictures matter more than the index: save them without it.
            logLine(QStringLiteral("[PD] Canvas save: %1 could not be written: %2; the layers and "
                                   "the flattened image are saved without it")
                        .arg(nativePath(files[i].target), error));
            indexStaged = false;
            ok = false;
            continue;
        }
        logLine(QStringLiteral("[PD] Canvas not saved: %1: %2; the previous files are kept")
                    .arg(nativePath(files[i].target), error));
        return false; // the staged files are discarded with `files`
    }

    // Every picture is written; from here on each rename replaces one file whole.
    auto commit = [&ok](StagedFile &staged) {
        if (!staged.file->commit()) {
            ok = false;
            logLine(QStringLiteral("[PD] Canvas save: %1 could not be replaced: %2")
                        .arg(nativePath(staged.target), staged.file->errorString()));
        }
    };
    for (int i = 0; i < n; ++i)
        commit(files[size_t(i)]);
    // The sweep stops at the first missing index, so a file beyond a gap stays.
    for (int k = n;; ++k) {
        const QString stale = dir + layerFileName(k);
        if (!QFileInfo::exists(stale))
            break;
        QFile file(stale);
        if (!file.remove()) {
            logLine(QStringLiteral("[PD] Canvas save: old layer file %1 could not be removed: %2")
                        .arg(nativePath(stale), file.errorString()));
            ok = false;
            break;
        }
    }
    if (indexStaged)
        commit(index);
    commit(flat);

    if (ok && s.sequence != 0)
        writtenSequences().insert(dir, std::max(written, s.sequence));
    return ok;
}

std::optional<CanvasLayerSet> readCanvasLayers(const QString &directory)
{
    const QString indexPath = directory + indexFileName();
    QFile file(indexPath);
    if (!file.exists())
        return std::nullopt;
    if (!file.open(QIODevice::ReadOnly)) {
        logLine(QStringLiteral("[PD] Canvas load: cannot open %1: %2; using the flattened image")
                    .arg(nativePath(indexPath), file.errorString()));
        return std::nullopt;
    }
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (doc.isNull()) {
        logLine(QStringLiteral("[PD] Canvas load: %1 is not valid JSON (%2); using the flattened "
                               "image")
                    .arg(nativePath(indexPath), parseError.errorString()));
        return std::nullopt;
    }
    const QJsonObject root = doc.object();
    const QJsonArray layers = root.value(QStringLiteral("layers")).toArray();
    if (layers.isEmpty()) {
        logLine(QStringLiteral("[PD] Canvas load: %1 lists no layers; using the flattened image")
                    .arg(nativePath(indexPath)));
        return std::nullopt;
    }

    int count = int(layers.size());
    if (count > MaxLoadedLayers) {
        logLine(QStringLiteral("[PD] Canvas load: %1 lists %2 layers; only the first %3 are loaded")
                    .arg(nativePath(indexPath))
                    .arg(count)
                    .arg(MaxLoadedLayers));
        count = MaxLoadedLayers;
    }

    CanvasLayerSet set;
    set.layers.reserve(count);
    for (int i = 0; i < count; ++i) {
        const QJsonObject entry = layers.at(i).toObject();
        CanvasLayer layer;
        layer.name =
            entry.value(QStringLiteral("name")).toString(QStringLiteral("Layer %1").arg(i + 1));
        layer.visible = entry.value(QStringLiteral("visible")).toBool(true);
        layer.opacity =
            float(std::clamp(entry.value(QStringLiteral("opacity")).toDouble(1.0), 0.0, 1.0));

        const QString path = directory + layerFileName(i);
        QImageReader reader(path);
        QImage image = reader.read();
        if (image.isNull()) {
            logLine(QStringLiteral("[PD] Canvas load: layer %1 could not be read from %2 (%3); it "
                                   "starts transparent")
                        .arg(i + 1)
                        .arg(nativePath(path), reader.errorString()));
        } else {
            layer.image = image.convertToFormat(QImage::Format_RGBA8888);
        }
        set.layers.append(std::move(layer));
    }
    set.activeLayer = root.value(QStringLiteral("activeLayer")).toInt(0);
    return set;
}

QImage readFlattenedCanvas(const QString &directory)
{
    const QString path = directory + flattenedFileName();
    if (!QFileInfo::exists(path))
        return QImage();
    QImageReader reader(path);
    const QImage image = reader.read();
    if (image.isNull()) {
        logLine(QStringLiteral("[PD] Canvas load: %1 could not be read (%2)")
                    .arg(nativePath(path), reader.errorString()));
        return QImage();
    }
    return image.convertToFormat(QImage::Format_RGBA8888);
}
