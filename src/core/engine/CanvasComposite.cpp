// <execution> pulls in TBB, whose headers must come before Qt's "emit" macro.
#include <execution>

#include "engine/CanvasDocument.h"

#include "common/Log.h"

#include <QElapsedTimer>
#include <QPainter>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

namespace {

constexpr int TileSize = 32;

// What one SourceOver blit of a transparent pixel does to an RGBA8888 pixel
// (and what a blit onto a transparent pixel stores): the value goes to
// premultiplied form and back, which at low alpha is not the identity. Per
// channel it depends only on the alpha, so it is read off QPainter itself once,
// from a 256 x 256 image of every (value, alpha) pair.
class StoreRoundTrip {
public:
    StoreRoundTrip()
    {
        QImage pairs(256, 256, QImage::Format_RGBA8888);
        for (int a = 0; a < 256; ++a) {
            auto *line = reinterpret_cast<quint32 *>(pairs.scanLine(a));
            for (int c = 0; c < 256; ++c)
                line[c] = quint32(a) << 24 | quint32(c) * 0x010101u;
        }
        QImage stored(256, 256, QImage::Format_RGBA8888);
        stored.fill(Qt::transparent);
        QPainter painter(&stored);
        painter.drawImage(0, 0, pairs);
        painter.end();
        for (int a = 0; a < 256; ++a) {
            const auto *line = reinterpret_cast<const quint32 *>(stored.constScanLine(a));
            for (int c = 0; c < 256; ++c)
                m_table[a][c] = uchar(line[c] & 0xff);
        }
    }

    quint32 operator()(quint32 p) const
    {
        const quint32 a = p >> 24;
        if (a == 0)
            return 0;
        if (a == 255)
            return p;
        const uchar *t = m_table[a];
        return a << 24 | quint32(t[(p >> 16) & 0xff]) << 16 | quint32(t[(p >> 8) & 0xff]) << 8 |
               quint32(t[p & 0xff]);
    }

private:
    uchar m_table[256][256];
};

const StoreRoundTrip &storeRoundTrip()
{
    static const StoreRoundTrip table;
    return table;
}

// The flat composite's blits at one pixel, each SourceOver onto the result of
// the one before, where no blending arithmetic is involved: below is drawn
// onto transparent (stored round-tripped); then a transparent source leaves
// the pixel round-tripped, an opaque source at full opacity replaces it, and
// a source at full opacity drawn onto a transparent pixel is stored
// round-tripped. The active and above blits happen only when their images
// exist. Returns false where QPainter's arithmetic is needed.
template <bool HasActive, bool HasAbove>
inline bool composeWithoutBlending(quint32 below, quint32 active, bool activeFullOpacity,
                                   quint32 above, const StoreRoundTrip &roundTrip, quint32 &out)
{
    quint32 d = roundTrip(below);
    auto blit = [&](quint32 s, bool full) {
        const quint32 alpha = s >> 24;
        if (alpha == 0)
            d = roundTrip(d);
        else if (alpha == 255 && full)
            d = s;
        else if (d == 0 && full)
            d = roundTrip(s);
        else
            return false;
        return true;
    };
    if (HasActive && !blit(active, activeFullOpacity))
        return false;
    if (HasAbove && !blit(above, true))
        return false;
    out = d;
    return true;
}

// One band of rows composed directly, row by row across its tiles. A tile is
// marked in blended (and left to QPainter) at its first pixel that needs
// blending. Segments where all sources are zero words are filled at once.
// zeros stands in for a missing below image: a full row of zero words.
template <bool HasActive, bool HasAbove>
bool composeBand(const QImage &below, const QImage &active, const QImage &above,
                 bool activeFullOpacity, const StoreRoundTrip &roundTrip, const quint32 *zeros,
                 uchar *outBits, qsizetype stride, int width, int y0, int y1, int firstTile,
                 int endTile, std::vector<char> &blended)
{
    bool any = false;
    for (int y = y0; y < y1; ++y) {
        auto row = [y, zeros](const QImage &image, bool present) {
            return present && !image.isNull()
                       ? reinterpret_cast<const quint32 *>(image.constScanLine(y))
                       : zeros;
        };
        const quint32 *b = row(below, true);
        const quint32 *a = row(active, HasActive);
        const quint32 *u = row(above, HasAbove);
        quint32 *o = reinterpret_cast<quint32 *>(outBits + y * stride);
        for (int tile = firstTile; tile < endTile; ++tile) {
            if (blended[size_t(tile)])
                continue;
            const int x0 = tile * TileSize;
            const int x1 = std::min(x0 + TileSize, width);
            quint32 nonzero = 0;
            for (int x = x0; x < x1; ++x)
                nonzero |= b[x] | a[x] | u[x];
            if (nonzero == 0) {
                std::fill(o + x0, o + x1, 0u);
                continue;
            }
            for (int x = x0; x < x1; ++x) {
                if ((b[x] | a[x] | u[x]) == 0) {
                    o[x] = 0;
                } else if (!composeWithoutBlending<HasActive, HasAbove>(
                               b[x], a[x], activeFullOpacity, u[x], roundTrip, o[x])) {
                    blended[size_t(tile)] = 1;
                    any = true;
                    break;
                }
            }
        }
    }
    return any;
}

} // namespace

QImage CanvasDocument::compositeRange(int first, int last) const
{
    QImage out = blankImage();
    QPainter painter(&out);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    for (int i = first; i <= last; ++i) {
        const CanvasLayer &layer = m_layers[i];
        if (!layer.visible)
            continue;
        painter.setOpacity(layer.opacity);
        painter.drawImage(0, 0, layer.image);
    }
    return out;
}

void CanvasDocument::rebuildPartials()
{
    if (m_partialsDirty.below) {
        QElapsedTimer timer;
        timer.start();
        m_belowImage = compositeRange(0, m_active - 1);
        m_partialsDirty.below = false;
        ++m_partialsGeneration;
        pdLog("[PD] SplitBelow: rebuilt %d layers in %lld ms", m_active,
              static_cast<long long>(timer.elapsed()));
    }
    if (m_partialsDirty.above) {
        QElapsedTimer timer;
        timer.start();
        const int count = int(m_layers.size());
        m_aboveImage = compositeRange(m_active + 1, count - 1);
        m_partialsDirty.above = false;
        ++m_partialsGeneration;
        pdLog("[PD] SplitAbove: rebuilt %d layers in %lld ms", count - m_active - 1,
              static_cast<long long>(timer.elapsed()));
    }
}

// The flat composite, or the tiles of it that meet area, by bands of rows on
// the parallel pool. Pixels that need no blending arithmetic are composed
// directly; runs of tiles holding any other pixel start from the below image
// as its blit onto transparent stores it and get the remaining blits from
// QPainter, on images that wrap the band in place, exactly as the full-image
// blits would draw them (a pixel's result depends on nothing outside its
// tile). Null images are not drawn. out is canvas-size RGBA8888; tiles
// outside area are left as they are.
void CanvasDocument::composeFlat(QImage &out, const QRect &area, const QImage &below,
                                 const QImage &active, float opacity, const QImage &above) const
{
    const QSize size = out.size();
    auto usable = [size](const QImage &image) {
        return image.isNull() ||
               (image.format() == QImage::Format_RGBA8888 && image.size() == size);
    };
    if (!usable(below) || !usable(active) || !usable(above)) {
        // A layer of another size or format (a drawing loaded at another size).
        out.fill(Qt::transparent);
        QPainter painter(&out);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        if (!below.isNull())
            painter.drawImage(0, 0, below);
        if (!active.isNull()) {
            painter.setOpacity(opacity);
            painter.drawImage(0, 0, active);
            painter.setOpacity(1.0);
        }
        if (!above.isNull())
            painter.drawImage(0, 0, above);
        return;
    }

    const StoreRoundTrip &roundTrip = storeRoundTrip();
    const bool fullOpacity = opacity == 1.0f;
    const int tilesX = (m_width + TileSize - 1) / TileSize;
    const QRect region = area.intersected(out.rect());
    if (region.isEmpty())
        return;
    const int firstTile = region.left() / TileSize;
    const int endTile = region.right() / TileSize + 1;
    std::vector<int> bands(size_t(region.bottom() / TileSize - region.top() / TileSize + 1));
    std::iota(bands.begin(), bands.end(), region.top() / TileSize);
    const qsizetype stride = out.bytesPerLine();
    uchar *outBits = out.bits();
    auto line = [](const QImage &image, int y) {
        return image.isNull() ? nullptr : reinterpret_cast<const quint32 *>(image.constScanLine(y));
    };
    // The band's rows of an image, wrapped without a copy.
    auto bandOf = [](const QImage &image, int y0, int rows) {
        return image.isNull() ? QImage()
                              : QImage(image.constScanLine(y0), image.width(), rows,
                                       image.bytesPerLine(), QImage::Format_RGBA8888);
    };

    const bool hasActive = !active.isNull();
    const bool hasAbove = !above.isNull();
    const std::vector<quint32> zeros(size_t(m_width), 0u);
    auto composeBandFor = [&](int y0, int y1, std::vector<char> &blended) {
        auto run = [&](auto kernel) {
            return kernel(below, active, above, fullOpacity, roundTrip, zeros.data(), outBits,
                          stride, m_width, y0, y1, firstTile, endTile, blended);
        };
        if (hasActive && hasAbove)
            return run(composeBand<true, true>);
        if (hasActive)
            return run(composeBand<true, false>);
        if (hasAbove)
            return run(composeBand<false, true>);
        return run(composeBand<false, false>);
    };

    std::for_each(std::execution::par, bands.begin(), bands.end(), [&](int band) {
        const int y0 = band * TileSize;
        const int y1 = std::min(y0 + TileSize, m_height);
        std::vector<char> blended(size_t(tilesX), 0);
        const bool any = composeBandFor(y0, y1, blended);
        if (!any)
            return;

        const int rows = y1 - y0;
        QImage target(outBits + y0 * stride, m_width, rows, stride, QImage::Format_RGBA8888);
        const QImage activeBand = bandOf(active, y0, rows);
        const QImage aboveBand = bandOf(above, y0, rows);
        QPainter painter(&target);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        for (int tile = firstTile; tile < endTile;) {
            if (!blended[size_t(tile)]) {
                ++tile;
                continue;
            }
            int end = tile;
            while (end < endTile && blended[size_t(end)])
                ++end;
            const int x0 = tile * TileSize;
            const int x1 = std::min(end * TileSize, m_width);
            for (int y = y0; y < y1; ++y) {
                const quint32 *b = line(below, y);
                auto *o = reinterpret_cast<quint32 *>(outBits + y * stride);
                for (int x = x0; x < x1; ++x)
                    o[x] = b ? roundTrip(b[x]) : 0u;
            }
            const QRect rect(x0, 0, x1 - x0, rows);
            if (!activeBand.isNull()) {
                painter.setOpacity(opacity);
                painter.drawImage(rect.topLeft(), activeBand, rect);
                painter.setOpacity(1.0);
            }
            if (!aboveBand.isNull())
                painter.drawImage(rect.topLeft(), aboveBand, rect);
            tile = end;
        }
    });
}

// A copy made on the parallel pool.
static QImage parallelCopy(const QImage &image)
{
    QImage copy(image.size(), image.format());
    std::vector<int> bands(size_t((image.height() + TileSize - 1) / TileSize));
    std::iota(bands.begin(), bands.end(), 0);
    const qsizetype bytes = std::min(image.bytesPerLine(), copy.bytesPerLine());
    uchar *bits = copy.bits();
    std::for_each(std::execution::par, bands.begin(), bands.end(), [&](int band) {
        const int y1 = std::min((band + 1) * TileSize, image.height());
        for (int y = band * TileSize; y < y1; ++y)
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
    const QImage active = activeShown ? m_layers[m_active].image : QImage();
    const FlatBasis basis{m_partialsGeneration, m_active,
                          activeShown ? m_layers[m_active].opacity : 1.0f, activeShown};
    const QRect canvas(0, 0, m_width, m_height);
    QImage out;
    if (!m_flatImage.isNull() && m_flatImage.size() == canvas.size() && basis == m_flatBasis &&
        m_flatDirtyArea != canvas) {
        // Only part of the active layer changed since the last rebuild, on the
        // same partials: recompose the tiles it touches over the last result.
        out = m_flatImage.isDetached() ? std::move(m_flatImage) : parallelCopy(m_flatImage);
        m_flatImage = QImage();
        composeFlat(out, m_flatDirtyArea, m_belowImage, active, basis.opacity, m_aboveImage);
    } else {
        out = QImage(m_width, m_height, QImage::Format_RGBA8888);
        composeFlat(out, canvas, m_belowImage, active, basis.opacity, m_aboveImage);
    }
    m_flatBasis = basis;
    m_flatDirtyArea = QRect();
    m_flatImage = out;
    m_compositeDirty = false;
    pdLog("[PD] FlatComposite: rebuilt (3-blit) in %lld ms",
          static_cast<long long>(timer.elapsed()));
    return m_flatImage;
}
