#pragma once

#include "files/CanvasFiles.h"

#include <QImage>
#include <QList>
#include <QString>
#include <QStringList>

// What this process knows a canvas folder holds, as loaded or last written:
// which layer files hold which pixels. A save re-encodes only the layers
// whose pixels no file of the current save holds yet, and writes nothing at
// all when the snapshot equals the folder.
struct LayerRecord {
    qint64 cacheKey = 0; // of an image known to hold these pixels
    size_t hash = 0;     // of the pixels
    QSize size;
    QString file; // the file in the folder that holds them; empty when none
};

struct SavePlan {
    enum Outcome { Write, Unchanged, Superseded, KeepAsideFirst };
    Outcome outcome = Write;
    quint64 generation = 0;
    QStringList files;         // per layer: its file name in the folder
    QList<bool> encode;        // per layer: the file is new and must be written
    QList<LayerRecord> layers; // the records once the save is in place
};

// Content hash of an image's pixels, size and format.
size_t pixelHash(const QImage &image);

// What a save of `snapshot` into `dir` must do. `diskGeneration` is the
// generation of the index now on disk (0 for none) and `diskDamaged` tells
// that what is on disk cannot be read back completely.
SavePlan planSave(const QString &dir, const CanvasSaveSnapshot &snapshot, quint64 diskGeneration,
                  bool diskDamaged);

void noteFolderLoaded(const QString &dir, const CanvasFolder &folder, const QStringList &files,
                      quint64 generation);
void noteFolderWritten(const QString &dir, const CanvasSaveSnapshot &snapshot,
                       const SavePlan &plan);
// The folder's files were moved away: nothing in it can be reused.
void noteFolderKeptAside(const QString &dir);
