#include "files/CanvasFolderRecord.h"

#include "engine/CanvasLayer.h"

#include <QFileInfo>
#include <QHash>
#include <QMutex>

#include <algorithm>

namespace {

struct FolderRecord {
    quint64 generation = 0;
    QList<LayerRecord> layers;
    QString meta;
    bool complete = true;
    quint64 writtenSequence = 0;
};

// Both outlive a writer that may still run at exit.
QMutex &recordsMutex()
{
    static auto *mutex = new QMutex;
    return *mutex;
}

QHash<QString, FolderRecord> &records()
{
    static auto *map = new QHash<QString, FolderRecord>;
    return *map;
}

// Everything of a save but the pixels, to tell an unchanged snapshot.
QString metaOf(const QStringList &names, const QList<bool> &visible, const QList<float> &opacity,
               int active)
{
    QString meta = QString::number(active);
    for (int i = 0; i < names.size(); ++i)
        meta += QStringLiteral("\x1f%1\x1e%2\x1e%3")
                    .arg(names[i])
                    .arg(i < visible.size() && visible[i])
                    .arg(double(i < opacity.size() ? opacity[i] : 1.0f));
    return meta;
}

QString metaOf(const CanvasSaveSnapshot &s)
{
    return metaOf(s.layerNames, s.layerVisible, s.layerOpacity, s.activeLayer);
}

LayerRecord recordOf(const QImage &image, size_t hash, const QString &file)
{
    return LayerRecord{image.cacheKey(), hash, image.size(), file};
}

} // namespace

// Hashed as a layer holds its pixels, so a picture read from a file and the
// same picture in a document compare equal.
size_t pixelHash(const QImage &image)
{
    const QImage pixels =
        image.format() == LayerFormat ? image : image.convertToFormat(LayerFormat);
    const size_t seed = size_t(pixels.width()) * 31 + size_t(pixels.height()) * 7;
    return qHashBits(pixels.constBits(), size_t(pixels.sizeInBytes()), seed);
}

SavePlan planSave(const QString &dir, const CanvasSaveSnapshot &s, quint64 diskGeneration,
                  bool diskDamaged)
{
    FolderRecord record;
    {
        QMutexLocker lock(&recordsMutex());
        record = records().value(dir);
    }
    SavePlan plan;
    if (s.sequence != 0 && s.sequence < record.writtenSequence) {
        plan.outcome = SavePlan::Superseded;
        return plan;
    }
    // Records describe the folder only while nobody else has switched it.
    const bool known = record.generation == diskGeneration;
    if (!known)
        record.layers.clear();

    const int n = int(s.layerImages.size());
    bool unchanged = known && n == record.layers.size() && metaOf(s) == record.meta;
    plan.generation = std::max(diskGeneration, record.generation) + 1;
    for (int i = 0; i < n; ++i) {
        const QImage &image = s.layerImages[i];
        const LayerRecord *same = nullptr;
        for (const LayerRecord &old : record.layers) {
            if (old.cacheKey == image.cacheKey()) {
                same = &old;
                break;
            }
        }
        const size_t hash = same ? same->hash : pixelHash(image);
        if (!same) {
            for (const LayerRecord &old : record.layers) {
                if (old.hash == hash && old.size == image.size()) {
                    same = &old;
                    break;
                }
            }
        }
        unchanged = unchanged && same && same->hash == record.layers[i].hash;
        const bool reuse =
            same && !same->file.isEmpty() && QFileInfo(dir + u'/' + same->file).isFile();
        plan.files.append(
            reuse ? same->file
                  : QStringLiteral("canvas_layer_%1_g%2.png").arg(i).arg(plan.generation));
        plan.encode.append(!reuse);
        plan.layers.append(recordOf(image, hash, plan.files.last()));
    }
    if (unchanged)
        plan.outcome = SavePlan::Unchanged;
    else if (diskDamaged || (known && !record.complete))
        plan.outcome = SavePlan::KeepAsideFirst;
    return plan;
}

void noteFolderLoaded(const QString &dir, const CanvasFolder &folder, const QStringList &files,
                      quint64 generation)
{
    FolderRecord fresh;
    fresh.generation = generation;
    fresh.complete = folder.complete;
    QStringList names;
    QList<bool> visible;
    QList<float> opacity;
    for (int i = 0; i < folder.layers.size(); ++i) {
        const CanvasLayer &layer = folder.layers[i];
        fresh.layers.append(recordOf(layer.image, pixelHash(layer.image), files.value(i)));
        names.append(layer.name);
        visible.append(layer.visible);
        opacity.append(layer.opacity);
    }
    fresh.meta = metaOf(names, visible, opacity, folder.activeLayer);
    QMutexLocker lock(&recordsMutex());
    FolderRecord &record = records()[dir];
    fresh.writtenSequence = record.writtenSequence;
    record = fresh;
}

void noteFolderWritten(const QString &dir, const CanvasSaveSnapshot &s, const SavePlan &plan)
{
    QMutexLocker lock(&recordsMutex());
    FolderRecord &record = records()[dir];
    record.generation = plan.generation;
    record.layers = plan.layers;
    record.meta = metaOf(s);
    record.complete = true;
    record.writtenSequence = std::max(record.writtenSequence, s.sequence);
}

void noteFolderKeptAside(const QString &dir)
{
    QMutexLocker lock(&recordsMutex());
    FolderRecord &record = records()[dir];
    record.generation = 0;
    record.layers.clear();
    record.complete = true;
}
