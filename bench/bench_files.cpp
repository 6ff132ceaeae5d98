// Canvas files: what closing an editor costs the UI thread, and what the
// background writer costs at the fast PNG setting against the old level 6,
// libpng with the same setting and a plain copy of the pixels.

#include "BenchDrawing.h"
#include "BenchSummary.h"

#include "engine/CanvasDocument.h"
#include "files/CanvasFiles.h"
#include "files/CanvasSaver.h"
#include "files/PngEncode.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <png.h>

#include <cstring>
#include <memory>

namespace {

constexpr int W = 1920;
constexpr int H = 1080;
constexpr int Layers = 5;

struct FilesFixture {
    QTemporaryDir dir;
    std::unique_ptr<CanvasDocument> doc;
    QList<QImage> frames; // two looks per layer, swapped each round

    FilesFixture()
    {
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir.path());
        doc = std::make_unique<CanvasDocument>(W, H);
        QList<CanvasLayer> layers;
        for (int i = 0; i < Layers; ++i) {
            CanvasLayer layer;
            layer.name = QStringLiteral("Layer %1").arg(i + 1);
            layer.image = drawnLayer(200u + unsigned(i));
            layers.append(layer);
            frames << layer.image << drawnLayer(300u + unsigned(i));
        }
        doc->setLayers(layers, 0);
        BenchSummary::setTarget("close_editor_5_layers_1080p_ui_thread", {16.0, 0.0});
        BenchSummary::addNote("close_editor_5_layers_1080p_ui_thread",
                              "ours: the snapshot handed to the writer after a stroke; "
                              "reference: copying the five frames (the floor of a deep copy)");
        BenchSummary::addNote("save_writer_5_layers_1080p",
                              "ours: every layer changed, fast PNG, generation switch; "
                              "reference: the previous writer, Qt's PNG at zlib level 6");
        BenchSummary::addNote("png_layer_1080p", "ours: our fast PNG of one drawn layer; "
                                                 "reference: libpng at zlib level 1, SUB filter");
        BenchSummary::addNote("png_layer_1080p_qt_level1",
                              "ours: Qt's PNG writer at zlib level 1 (all filters); "
                              "reference: memcpy of the frame (memory floor)");
    }

    // Paints a different look into every layer, as a session of drawing would.
    void changeAllLayers(int round)
    {
        for (int i = 0; i < Layers; ++i) {
            doc->setActiveLayer(i);
            doc->activeImage() = frames[i * 2 + round % 2].copy();
            doc->markPainted();
        }
    }
};

FilesFixture &fixture()
{
    static FilesFixture f;
    return f;
}

void closeEditorOurs(benchmark::State &state)
{
    FilesFixture &f = fixture();
    const CanvasSaver saver(QStringLiteral("bench-close"));
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        CanvasSaver::waitForPendingSaves();
        f.changeAllLayers(++round);
        f.doc->flatComposite(); // already built for the source after the last stroke
        state.ResumeTiming();
        // What the editor's close does on the UI thread.
        benchmark::DoNotOptimize(saver.saveNow(*f.doc, f.doc->flatComposite()));
    }
    CanvasSaver::waitForPendingSaves();
}

void closeEditorReference(benchmark::State &state)
{
    FilesFixture &f = fixture();
    QList<QImage> copies;
    for (int i = 0; i < Layers; ++i)
        copies << QImage(W, H, QImage::Format_RGBA8888);
    for (auto _ : state) {
        for (int i = 0; i < Layers; ++i)
            std::memcpy(copies[i].bits(), f.frames[i * 2].constBits(),
                        size_t(f.frames[i * 2].sizeInBytes()));
        benchmark::DoNotOptimize(copies);
    }
}

void writerOurs(benchmark::State &state)
{
    FilesFixture &f = fixture();
    const QString dir = f.dir.filePath(QStringLiteral("writer"));
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        f.changeAllLayers(++round);
        const CanvasSaveSnapshot snapshot = takeCanvasSnapshot(dir, *f.doc, f.doc->flatComposite());
        state.ResumeTiming();
        benchmark::DoNotOptimize(writeCanvasFiles(snapshot));
    }
}

// The previous writer: every layer and the flattened image through Qt's PNG
// writer at its default, zlib level 6.
void writerReference(benchmark::State &state)
{
    FilesFixture &f = fixture();
    const QString dir = f.dir.filePath(QStringLiteral("level6"));
    QDir().mkpath(dir);
    const QImage flat = f.doc->flatComposite();
    for (auto _ : state) {
        for (int i = 0; i < Layers; ++i)
            f.frames[i * 2].save(dir + QStringLiteral("/canvas_layer_%1.png").arg(i), "PNG", -1);
        flat.save(dir + QStringLiteral("/canvas.png"), "PNG", -1);
    }
}

template <typename Encode> void encodeFrame(benchmark::State &state, Encode encode)
{
    const QImage &frame = fixture().frames[0];
    qint64 bytes = 0;
    for (auto _ : state) {
        QBuffer buffer;
        buffer.open(QIODevice::WriteOnly);
        encode(frame, &buffer);
        bytes = buffer.size();
    }
    state.counters["bytes"] = double(bytes);
}

void pngOurs(benchmark::State &state)
{
    encodeFrame(state, writeFastPng);
}

void writeToVector(png_structp png, png_bytep data, png_size_t length)
{
    auto *out = static_cast<std::vector<unsigned char> *>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}

void pngReference(benchmark::State &state)
{
    const QImage &frame = fixture().frames[0];
    size_t bytes = 0;
    for (auto _ : state) {
        std::vector<unsigned char> out;
        png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
        png_infop info = png_create_info_struct(png);
        png_set_write_fn(png, &out, writeToVector, nullptr);
        png_set_compression_level(png, 1);
        png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
        png_set_IHDR(png, info, png_uint_32(W), png_uint_32(H), 8, PNG_COLOR_TYPE_RGBA,
                     PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE, PNG_FILTER_TYPE_BASE);
        png_write_info(png, info);
        for (int y = 0; y < H; ++y)
            png_write_row(png, frame.constScanLine(y));
        png_write_end(png, info);
        png_destroy_write_struct(&png, &info);
        bytes = out.size();
    }
    state.counters["bytes"] = double(bytes);
}

void pngQtLevel1(benchmark::State &state)
{
    // Quality 89 is zlib level (100 - 89) * 9 / 91 = 1.
    encodeFrame(state, [](const QImage &frame, QIODevice *out) { frame.save(out, "PNG", 89); });
}

void frameCopy(benchmark::State &state)
{
    const QImage &frame = fixture().frames[0];
    QImage copy(W, H, QImage::Format_RGBA8888);
    for (auto _ : state) {
        std::memcpy(copy.bits(), frame.constBits(), size_t(frame.sizeInBytes()));
        benchmark::DoNotOptimize(copy);
    }
}

} // namespace

BENCHMARK(closeEditorOurs)
    ->Name("close_editor_5_layers_1080p_ui_thread/ours")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(10);
BENCHMARK(closeEditorReference)
    ->Name("close_editor_5_layers_1080p_ui_thread/reference")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(writerOurs)
    ->Name("save_writer_5_layers_1080p/ours")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);
BENCHMARK(writerReference)
    ->Name("save_writer_5_layers_1080p/reference")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(2);
BENCHMARK(pngOurs)->Name("png_layer_1080p/ours")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(pngReference)
    ->Name("png_layer_1080p/reference")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(pngQtLevel1)
    ->Name("png_layer_1080p_qt_level1/ours")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(frameCopy)
    ->Name("png_layer_1080p_qt_level1/reference")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
