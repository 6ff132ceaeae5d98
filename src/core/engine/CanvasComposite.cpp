// <execution> pulls in TBB, whose headers must come before Qt's "emit" macro.
#include <execution>

#include "engine/CanvasDocument.h"

#include "common/Log.h"

#include <QElapsedTimer>
#include <QPainter>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <thread>
#include <vector>

namespace {

// Below this many pixels a composite runs on the calling thread.
constexpr qsizetype ParallelPixels = 256 * 256;

// Rows [y0, y0 + rows) and columns of rect of a premultiplied image, wrapped
// without a copy.
QImage bandOf(const QImage &image, const QRect &rect, int y0, int rows)
{
    return QImage(image.constScanLine(y0) + rect.left() * 4, rect.width(), rows,
                  image.bytesPerLine(), image.format());
}

// The layers drawn SourceOver into one band of out, bottom first: the first
// one copied when it needs no blending, otherwise everything over
// transparent.
void composeBand(uchar *outBits, qsizetype stride, const QRect &rect, int y0, int rows,
                 const std::vector<CanvasDocument::BlendSource> &sources)
{
    QImage target(outBits + y0 * stride + rect.left() * 4, rect.width(), rows, stride, LayerFormat);
    size_t first = 0;
    if (!sources.empty() && sources[0].opacity >= 1.0f) {
        const size_t bytes = size_t(rect.width()) * 4;
        for (int y = 0; y < rows; ++y)
            std::memcpy(target.scanLine(y),
                        sources[0].image->constScanLine(y0 + y) + rect.left() * 4, bytes);
        first = 1;
    } else {
        for (int y = 0; y < rows; ++y)
            std::memset(target.scanLine(y), 0, size_t(rect.width()) * 4);
    }
    if (first == sources.size())
        return;
    QPainter painter(&target);
    for (size_t i = first; i < sources.size(); ++i) {
        painter.setOpacity(qreal(sources[i].opacity));
        painter.drawImage(0, 0, bandOf(*sources[i].image, rect, y0, rows));
    }
}

} // namespace

void CanvasDocument::compose(QImage &out, const QRect &area,
                             const std::vector<BlendSource> &sources)
{
    const QRect rect = area.intersected(out.rect());
    if (rect.isEmpty())
        return;
    const bool native = std::all_of(sources.begin(), sources.end(), [&out](const BlendSource &s) {
        return s.image->size() == out.size() && s.image->format() == out.format();
    });
    if (!native) {
        // A layer of another size (a drawing loaded at its own size).
        QPainter painter(&out);
        painter.setClipRect(rect);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(rect, Qt::transparent);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        for (const BlendSource &s : sources) {
            painter.setOpacity(qreal(s.opacity));
            painter.drawImage(0, 0, *s.image);
        }
        return;
    }
    uchar *bits = out.bits(); // detached once, before the bands share it
    const qsizetype stride = out.bytesPerLine();
    if (qsizetype(rect.width()) * rect.height() < ParallelPixels) {
        composeBand(bits, stride, rect, rect.top(), rect.height(), sources);
        return;
    }
    const int threads = int(std::max(1u, std::thread::hardware_concurrency()));
    const int bandRows = std::max(16, rect.height() / (threads * 4));
    std::vector<int> bands(size_t((rect.height() + bandRows - 1) / bandRows));
    std::iota(bands.begin(), bands.end(), 0);
    std::for_each(std::execution::par, bands.begin(), bands.end(), [&](int band) {
        const int y0 = rect.top() + band * bandRows;
        composeBand(bits, stride, rect, y0, std::min(bandRows, rect.bottom() + 1 - y0), sources);
    });
}

// A canvas-size LayerFormat image that nobody else holds, to be drawn over
// in full: the old buffer when it can be, saving the allocation and the page
// faults of a new one.
static void reuseOrAllocate(QImage &image, const QSize &size)
{
    if (image.size() != size || image.format() != LayerFormat || !image.isDetached())
        image = QImage(size, LayerFormat);
}

void CanvasDocument::compositeRange(QImage &out, bool &shown, int first, int last) const
{
    std::vector<BlendSource> sources;
    for (int i = first; i <= last; ++i)
        if (m_layers[i].visible && m_layers[i].opacity > 0.0f)
            sources.push_back({&m_layers[i].image, m_layers[i].opacity});
    if (sources.empty() && !shown && out.size() == size() && out.format() == LayerFormat)
        return; // still transparent
    reuseOrAllocate(out, size());
    compose(out, out.rect(), sources);
    shown = !sources.empty();
}

void CanvasDocument::rebuildPartials()
{
    if (m_partialsDirty.below) {
        QElapsedTimer timer;
        timer.start();
        compositeRange(m_belowImage, m_belowShown, 0, m_active - 1);
        m_partialsDirty.below = false;
        ++m_partialsGeneration;
        pdLog("[PD] SplitBelow: rebuilt %d layers in %lld ms", m_active,
              static_cast<long long>(timer.elapsed()));
    }
    if (m_partialsDirty.above) {
        QElapsedTimer timer;
        timer.start();
        const int count = int(m_layers.size());
        compositeRange(m_aboveImage, m_aboveShown, m_active + 1, count - 1);
        m_partialsDirty.above = false;
        ++m_partialsGeneration;
        pdLog("[PD] SplitAbove: rebuilt %d layers in %lld ms", count - m_active - 1,
              static_cast<long long>(timer.elapsed()));
    }
}

// A copy made on the parallel pool.
static QImage parallelCopy(const QImage &image)
{
    QImage copy(image.size(), image.format());
    constexpr int Rows = 64;
    std::vector<int> bands(size_t((image.height() + Rows - 1) / Rows));
    std::iota(bands.begin(), bands.end(), 0);
    const qsizetype bytes = std::min(image.bytesPerLine(), copy.bytesPerLine());
    uchar *bits = copy.bits();
    std::for_each(std::execution::par, bands.begin(), bands.end(), [&](int band) {
        const int y1 = std::min((band + 1) * Rows, image.height());
        for (int y = band * Rows; y < y1; ++y)
            std::memcpy(bits + y * copy.bytesPerLine(), image.constScanLine(y), size_t(bytes));
    });
    return copy;
}

QImage CanvasDocument::flatComposite()
{
    if (!m_compositeDirty && !m_flatImage.isNull())
        return m_flatImage;
    QElapsedTimer timer;
    timer.start();
    rebuildPartials();

    const bool activeShown = isValidIndex(m_active) && m_layers[m_active].visible;
    const float opacity = activeShown ? m_layers[m_active].opacity : 1.0f;
    const FlatBasis basis{m_partialsGeneration, m_active, opacity, activeShown};
    std::vector<BlendSource> sources;
    if (m_belowShown)
        sources.push_back({&m_belowImage, 1.0f});
    if (activeShown && opacity > 0.0f)
        sources.push_back({&m_layers[m_active].image, opacity});
    if (m_aboveShown)
        sources.push_back({&m_aboveImage, 1.0f});

    const QRect canvas(0, 0, m_width, m_height);
    const bool partial = !m_flatImage.isNull() && m_flatImage.size() == canvas.size() &&
                         basis == m_flatBasis && m_flatDirtyArea != canvas;
    QImage out;
    if (partial) {
        // Only part of the active layer changed since the last rebuild, on the
        // same partials: recompose that part over the last result.
        out = m_flatImage.isDetached() ? std::move(m_flatImage) : parallelCopy(m_flatImage);
        m_flatImage = QImage();
        compose(out, m_flatDirtyArea, sources);
    } else {
        out = std::move(m_flatImage);
        m_flatImage = QImage();
        reuseOrAllocate(out, canvas.size());
        compose(out, canvas, sources);
    }
    m_flatBasis = basis;
    m_flatDirtyArea = QRect();
    m_flatImage = out;
    m_compositeDirty = false;
    // Partial rebuilds follow every pointer move; only whole ones are logged.
    if (!partial)
        pdLog("[PD] FlatComposite: rebuilt (3-blit) in %lld ms",
              static_cast<long long>(timer.elapsed()));
    return m_flatImage;
}
