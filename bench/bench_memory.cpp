#include "BenchMemory.h"
#include "BenchSummary.h"

#include "engine/CanvasDocument.h"
#include "engine/StrokePainter.h"

#include <QCoreApplication>
#include <QFile>
#include <QPainter>
#include <QProcess>

#include <cstdio>
#include <random>

namespace {

constexpr int Layers = 10;
constexpr int UndoDepth = 20;

// Peak resident set of this process in MiB, from VmHWM.
double peakResidentMiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toDouble() / 1024.0;
    return -1;
}

void memoryReport(benchmark::State &state)
{
    for (auto _ : state) {
        QProcess probe;
        probe.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(MemoryProbeArg)});
        probe.waitForFinished(240000);
        const QString out = QString::fromLatin1(probe.readAllStandardOutput()).trimmed();
        BenchSummary::addLine(out.isEmpty()
                                  ? std::string("memory_10_layers_full_undo_1080p: probe failed")
                                  : out.toStdString());
    }
}

} // namespace

// Ten 1080p layers, each with a full history: 21 brush strokes of 12 points
// (about 300 px long, 12 px wide) per layer, so every undo stack holds 20
// entries.
int runMemoryProbe()
{
    const double baseline = peakResidentMiB();
    {
        CanvasDocument doc(1920, 1080);
        for (int i = 1; i < Layers; ++i)
            doc.addLayer();
        std::mt19937 rng(9);
        qsizetype undoBytes = 0;
        for (int layer = 0; layer < Layers; ++layer) {
            doc.setActiveLayer(layer);
            for (int step = 0; step < UndoDepth + 1; ++step) {
                Stroke stroke;
                stroke.color = QColor(200, 20, 20, 220);
                stroke.width = 12;
                QPointF p(100 + rng() % 1700, 100 + rng() % 880);
                for (int k = 0; k < 12; ++k) {
                    p += QPointF(int(rng() % 51) - 25, int(rng() % 51) - 25);
                    stroke.points.append(p);
                }
                doc.captureSnapshot();
                paintStroke(doc.activeImage(), stroke, 0);
                doc.markPainted(strokeBounds(stroke, doc.size()));
                doc.commitSnapshot();
            }
        }
        for (const CanvasLayer &layer : doc.layers())
            for (const LayerEdit &edit : layer.undoStack)
                undoBytes += edit.bytes();
        const double peak = peakResidentMiB();
        const double frame = 1920.0 * 1080 * 4 / (1024 * 1024);
        std::printf("memory_10_layers_full_undo_1080p: peak resident %.0f MiB [target <= 300 MiB: "
                    "%s] (%.0f MiB before the document; layers %.0f MiB; undo tiles of the "
                    "inactive layers %.1f MiB; full frames would be %.0f MiB)\n",
                    peak, peak <= 300 ? "met" : "NOT MET", baseline, frame * Layers,
                    double(undoBytes) / (1024 * 1024), frame * Layers * (1 + UndoDepth));
    }
    return 0;
}

BENCHMARK(memoryReport)->Name("memory_10_layers_full_undo")->Iterations(1)->Repetitions(1);
