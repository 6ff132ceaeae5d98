#include "BenchMemory.h"
#include "BenchSummary.h"

#include "engine/CanvasDocument.h"

#include <QCoreApplication>
#include <QFile>
#include <QPainter>
#include <QProcess>

#include <cstdio>

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
                                  ? std::string("memory_10_layers_full_undo: probe failed")
                                  : out.toStdString());
    }
}

} // namespace

int runMemoryProbe()
{
    const double baseline = peakResidentMiB();
    {
        CanvasDocument doc(1920, 1080);
        for (int i = 1; i < Layers; ++i)
            doc.addLayer();
        for (int layer = 0; layer < Layers; ++layer) {
            doc.setActiveLayer(layer);
            // Each action detaches the layer from its snapshot, so every undo
            // entry holds its own pixels, as after real strokes.
            for (int step = 0; step < UndoDepth + 1; ++step) {
                doc.captureSnapshot();
                QPainter painter(&doc.activeImage());
                painter.fillRect(step * 10, layer * 10, 40, 40, QColor(200, 20, 20));
                painter.end();
                doc.commitSnapshot();
            }
        }
        const double peak = peakResidentMiB();
        const double frame = 1920.0 * 1080 * 4 / (1024 * 1024);
        std::printf(
            "memory_10_layers_full_undo: peak resident %.0f MiB (%.0f MiB before the "
            "document; %d layers x (1 + %d undo) images of %.1f MiB = %.0f MiB of pixels)\n",
            peak, baseline, Layers, UndoDepth, frame, frame * Layers * (1 + UndoDepth));
    }
    return 0;
}

BENCHMARK(memoryReport)->Name("memory_10_layers_full_undo")->Iterations(1)->Repetitions(1);
