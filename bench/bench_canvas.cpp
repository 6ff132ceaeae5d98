#include "BenchDrawing.h"
#include "BenchSummary.h"
#include "TestImages.h"

#include "canvas/CanvasWidget.h"
#include "engine/CanvasDocument.h"

#include <QApplication>
#include <QMouseEvent>
#include <QMutex>
#include <QMutexLocker>

#include <pixman.h>

#include <cmath>
#include <memory>
#include <string>

namespace {

struct Size {
    const char *name;
    int w, h;
};
constexpr Size P720{"720p", 1280, 720};
constexpr Size P1080{"1080p", 1920, 1080};
constexpr Size P4K{"4K", 3840, 2160};

QList<CanvasLayer> drawnLayers(int count, int w, int h)
{
    QList<CanvasLayer> layers;
    for (int i = 0; i < count; ++i) {
        CanvasLayer layer;
        layer.name = QStringLiteral("Layer %1").arg(i + 1);
        layer.image = drawnLayer(100u + unsigned(i), 40, w, h);
        layers.append(layer);
    }
    return layers;
}

// pixman's view of a premultiplied ARGB32 image (the same bytes as a8r8g8b8).
struct PixmanImage {
    pixman_image_t *image;
    explicit PixmanImage(const QImage &from)
        : image(pixman_image_create_bits(
              PIXMAN_a8r8g8b8, from.width(), from.height(),
              reinterpret_cast<uint32_t *>(const_cast<uchar *>(from.constBits())),
              int(from.bytesPerLine())))
    {}
    ~PixmanImage() { pixman_image_unref(image); }
    PixmanImage(const PixmanImage &) = delete;
    PixmanImage &operator=(const PixmanImage &) = delete;
};

// The images bottom first, the first copied, the rest OVER: pixman's best
// way to flatten premultiplied layers.
void pixmanFlatten(const std::vector<std::unique_ptr<PixmanImage>> &layers, PixmanImage &out, int w,
                   int h)
{
    for (size_t i = 0; i < layers.size(); ++i)
        pixman_image_composite32(i == 0 ? PIXMAN_OP_SRC : PIXMAN_OP_OVER, layers[i]->image, nullptr,
                                 out.image, 0, 0, 0, 0, 0, 0, w, h);
}

// ---- composites -------------------------------------------------------------

// A document of `layers` drawn layers with the active one in the middle, and
// pixman's inputs: either the three images of the flat rebuild (the partials
// and the active layer) or every layer.
struct CompositeCase {
    std::unique_ptr<CanvasDocument> doc;
    std::vector<std::unique_ptr<PixmanImage>> pixmanInputs;
    QImage pixmanOut;
    std::unique_ptr<PixmanImage> pixmanTarget;
    std::vector<QImage> straight; // the three images in straight alpha
    bool threeBlits;

    CompositeCase(const std::string &name, int layers, Size size, bool flatOnly)
        : threeBlits(flatOnly)
    {
        doc = std::make_unique<CanvasDocument>(size.w, size.h);
        doc->setLayers(drawnLayers(layers, size.w, size.h), layers / 2);
        const QImage ours = doc->flatComposite();
        std::vector<const QImage *> inputs;
        if (flatOnly)
            inputs = {&doc->belowComposite(), &doc->activeImage(), &doc->aboveComposite()};
        else
            for (const CanvasLayer &layer : doc->layers())
                inputs.push_back(&layer.image);
        for (const QImage *image : inputs) {
            pixmanInputs.push_back(std::make_unique<PixmanImage>(*image));
            straight.push_back(image->convertToFormat(QImage::Format_RGBA8888));
        }
        pixmanOut = QImage(size.w, size.h, QImage::Format_ARGB32_Premultiplied);
        pixmanTarget = std::make_unique<PixmanImage>(pixmanOut);
        pixmanFlatten(pixmanInputs, *pixmanTarget, size.w, size.h);
        const int diff = maxByteDifference(ours, pixmanOut);
        BenchSummary::setLibrary(name, "pixman OVER");
        BenchSummary::addNote(name,
                              "output within " + std::to_string(diff) + " per channel of pixman's");
    }
};

void registerComposite(const std::string &name, int layers, Size size, bool flatOnly,
                       BenchSummary::Target target)
{
    auto input = std::make_shared<std::unique_ptr<CompositeCase>>();
    auto get = [input, name, layers, size, flatOnly]() -> CompositeCase & {
        if (!*input)
            *input = std::make_unique<CompositeCase>(name, layers, size, flatOnly);
        return **input;
    };
    BenchSummary::setTarget(name, target);
    benchmark::RegisterBenchmark((name + "/ours").c_str(),
                                 [get](benchmark::State &state) {
                                     CompositeCase &c = get();
                                     for (auto _ : state) {
                                         if (c.threeBlits)
                                             c.doc->markPainted();
                                         else
                                             c.doc->markAllDirty();
                                         benchmark::DoNotOptimize(
                                             c.doc->flatComposite().constBits());
                                     }
                                 })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark((name + "/library").c_str(),
                                 [get, size](benchmark::State &state) {
                                     CompositeCase &c = get();
                                     for (auto _ : state)
                                         pixmanFlatten(c.pixmanInputs, *c.pixmanTarget, size.w,
                                                       size.h);
                                 })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    // What the engine did before: QPainter SourceOver on straight alpha,
    // converting every pixel it blends.
    benchmark::RegisterBenchmark((name + "/before").c_str(),
                                 [get, size](benchmark::State &state) {
                                     CompositeCase &c = get();
                                     for (auto _ : state) {
                                         QImage out(size.w, size.h, QImage::Format_RGBA8888);
                                         out.fill(Qt::transparent);
                                         QPainter painter(&out);
                                         for (const QImage &image : c.straight)
                                             painter.drawImage(0, 0, image);
                                         painter.end();
                                         benchmark::DoNotOptimize(out.constBits());
                                     }
                                 })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    registerFloor(name, size.w, size.h);
}

// ---- the editor during a brush drag ---------------------------------------

void mouse(QWidget *w, QEvent::Type type, QPointF pos, Qt::MouseButton button,
           Qt::MouseButtons buttons)
{
    QMouseEvent event(type, pos, w->mapToGlobal(pos), button, buttons, Qt::NoModifier);
    QApplication::sendEvent(w, &event);
}

// What the canvas source does with a live image: the editor's premultiplied
// image taken as it is (any other format converted), a shallow copy under its
// mutex.
struct LiveImageSink {
    QMutex mutex;
    QImage live;
    void setLiveImage(const QImage &image)
    {
        constexpr QImage::Format shown = QImage::Format_ARGB32_Premultiplied;
        const QImage kept = image.format() == shown ? image : image.convertToFormat(shown);
        QMutexLocker lock(&mutex);
        live = kept;
    }
};

struct DragFixture {
    std::unique_ptr<CanvasWidget> widget;
    double angle = 0;
    explicit DragFixture(int layers, Size size)
    {
        widget = std::make_unique<CanvasWidget>(size.w, size.h);
        widget->resize(1280, 720);
        widget->show();
        widget->setLayers(drawnLayers(layers, size.w, size.h), layers / 2);
        widget->setBrushColor(QColor(30, 90, 200));
        widget->setBrushSize(12);
    }
    QPointF point() const { return {640 + 250 * std::cos(angle), 360 + 200 * std::sin(angle)}; }
    void press()
    {
        mouse(widget.get(), QEvent::MouseButtonPress, point(), Qt::LeftButton, Qt::LeftButton);
    }
    void release()
    {
        mouse(widget.get(), QEvent::MouseButtonRelease, point(), Qt::LeftButton, Qt::NoButton);
    }
    // One pointer move a few pixels along a circle: a long drag goes round and
    // round over its own track.
    void move()
    {
        angle += 0.02;
        mouse(widget.get(), QEvent::MouseMove, point(), Qt::NoButton, Qt::LeftButton);
    }
};

DragFixture &drag()
{
    static DragFixture fixture = [] {
        DragFixture f(5, P1080);
        f.press();
        for (int i = 0; i < 10; ++i)
            f.move();
        BenchSummary::setTarget("live_update_drag_1080p", {4.0, 0, 0});
        BenchSummary::setTarget("paint_event_drag_1080p", {4.0, 0, 0});
        BenchSummary::addNote("live_update_drag_1080p",
                              "display composite plus the source's setLiveImage work "
                              "(the premultiplied image as it is, shallow copy under a mutex)");
        return f;
    }();
    return fixture;
}

void liveUpdate(benchmark::State &state)
{
    DragFixture &d = drag();
    LiveImageSink sink;
    for (auto _ : state) {
        state.PauseTiming();
        d.move();
        state.ResumeTiming();
        sink.setLiveImage(d.widget->displayComposite());
    }
}

// Counts the pixels the widget's paint events cover.
struct PaintedArea : QObject {
    qint64 pixels = 0;
    qint64 events = 0;
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint) {
            const QRect rect = static_cast<QPaintEvent *>(event)->rect();
            pixels += qint64(rect.width()) * rect.height();
            ++events;
        }
        return false;
    }
};

// One pointer move as the UI thread pays for it, the 30 Hz hand-off to the
// source aside: the stroke's new piece painted, then the area it changed
// repainted when the event loop gets to the update the move scheduled.
void paintEvent(benchmark::State &state)
{
    DragFixture &d = drag();
    QCoreApplication::processEvents();
    PaintedArea area;
    d.widget->installEventFilter(&area);
    for (auto _ : state) {
        d.move();
        QCoreApplication::processEvents();
    }
    d.widget->removeEventFilter(&area);
    if (area.events > 0)
        BenchSummary::addNote("paint_event_drag_1080p",
                              "one move painted and its area repainted through the event loop: " +
                                  std::to_string(area.pixels / area.events) +
                                  " pixels per paint of the widget's " +
                                  std::to_string(d.widget->width() * d.widget->height()));
}

// A whole drag of `points` moves round a circle (self-overlapping after the
// first turn), each followed by the flat composite the next repaint needs.
void registerLongStroke(int points)
{
    const std::string name = "long_stroke_" + std::to_string(points) + "_points_1080p";
    BenchSummary::addScaling("long_stroke (per point)", name, points);
    benchmark::RegisterBenchmark((name + "/ours").c_str(),
                                 [points](benchmark::State &state) {
                                     static DragFixture fixture(1, P1080);
                                     for (auto _ : state) {
                                         fixture.press();
                                         for (int i = 0; i < points; ++i) {
                                             fixture.move();
                                             benchmark::DoNotOptimize(
                                                 fixture.widget->flatComposite().constBits());
                                         }
                                         fixture.release();
                                     }
                                 })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Iterations(1)
        ->Repetitions(3);
}

const bool registered = [] {
    for (const Size size : {P720, P1080, P4K}) {
        const std::string name = std::string("composite_3_blits_") + size.name;
        registerComposite(name, 5, size, true, {0, 1.3, 4.0});
        BenchSummary::addScaling("composite_3_blits (per megapixel)", name,
                                 size.w * double(size.h) / 1e6);
    }
    for (const int layers : {1, 3, 4, 16, 32}) {
        const std::string name = "composite_" + std::to_string(layers) + "_layers_1080p";
        registerComposite(name, layers, P1080, false, {0, 1.3, layers == 3 ? 4.0 : 0});
        // One layer is a copy, not a blend: the family starts where blending does.
        if (layers > 1)
            BenchSummary::addScaling("composite_layers (per layer)", name, layers);
    }
    benchmark::RegisterBenchmark("live_update_drag_1080p/ours", liveUpdate)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark("paint_event_drag_1080p/ours", paintEvent)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    for (const int points : {100, 1000, 10000})
        registerLongStroke(points);
    return true;
}();

} // namespace
