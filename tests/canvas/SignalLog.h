#pragma once

#include <QObject>
#include <QStringList>

// Records a document's or surface's signals in order: "undo(1)", "layers", ...
template <typename T> QStringList *recordSignals(T *emitter, QStringList *log)
{
    QObject::connect(emitter, &T::strokesChanged, [log] { log->append("strokes"); });
    QObject::connect(emitter, &T::undoAvailabilityChanged,
                     [log](bool on) { log->append(QStringLiteral("undo(%1)").arg(int(on))); });
    QObject::connect(emitter, &T::redoAvailabilityChanged,
                     [log](bool on) { log->append(QStringLiteral("redo(%1)").arg(int(on))); });
    QObject::connect(emitter, &T::layersChanged, [log] { log->append("layers"); });
    QObject::connect(emitter, &T::activeLayerChanged,
                     [log](int i) { log->append(QStringLiteral("active(%1)").arg(i)); });
    return log;
}

// Also the surface's live ones: "updated", "committed(n)", "coop(n)" (n points).
template <typename T> QStringList *recordStrokeSignals(T *emitter, QStringList *log)
{
    recordSignals(emitter, log);
    QObject::connect(emitter, &T::strokeUpdated, [log] { log->append("updated"); });
    QObject::connect(emitter, &T::strokeCommitted, [log](const auto &stroke) {
        log->append(QStringLiteral("committed(%1)").arg(stroke.points.size()));
    });
    QObject::connect(emitter, &T::coopStrokeSegment, [log](const auto &stroke) {
        log->append(QStringLiteral("coop(%1)").arg(stroke.points.size()));
    });
    return log;
}
