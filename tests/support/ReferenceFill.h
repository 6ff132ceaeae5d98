#pragma once

#include <QImage>

#include <algorithm>
#include <cstdlib>
#include <vector>

// The flood fill written out breadth first on an RGBA8888 image, exactly as
// the rule reads: a visited bit per pixel, a work list walked by a cursor,
// neighbours in the order left, right, up, down. Tests and benchmarks compare
// the real fill with it.
inline void referenceBfsFill(QImage &image, int x, int y, quint32 fillWord, int tolerance)
{
    const int w = image.width(), h = image.height();
    if (x < 0 || y < 0 || x >= w || y >= h)
        return;
    auto pixel = [&image](int px, int py) -> quint32 & {
        return reinterpret_cast<quint32 *>(image.scanLine(py))[px];
    };
    const quint32 seed = pixel(x, y);
    if (seed == fillWord)
        return;
    auto matches = [&](quint32 p) {
        int diff = 0;
        for (int shift = 0; shift < 32; shift += 8)
            diff = std::max(diff, std::abs(int((seed >> shift) & 0xff) - int((p >> shift) & 0xff)));
        return (seed >> 24) >= 32 ? diff <= tolerance : int(p >> 24) <= tolerance;
    };
    std::vector<bool> visited(size_t(w) * size_t(h), false);
    std::vector<QPoint> work{QPoint(x, y)};
    visited[size_t(y) * w + x] = true;
    for (size_t cursor = 0; cursor < work.size(); ++cursor) {
        const QPoint p = work[cursor];
        pixel(p.x(), p.y()) = fillWord;
        for (const QPoint n :
             {p - QPoint(1, 0), p + QPoint(1, 0), p - QPoint(0, 1), p + QPoint(0, 1)}) {
            if (n.x() < 0 || n.y() < 0 || n.x() >= w || n.y() >= h ||
                visited[size_t(n.y()) * w + n.x()] || !matches(pixel(n.x(), n.y())))
                continue;
            visited[size_t(n.y()) * w + n.x()] = true;
            work.push_back(n);
        }
    }
}

// A maze with corridors cellPx - 1 pixels wide: a perfect maze on a grid of cells of
// cellPx pixels, opaque black walls one pixel thick on a transparent layer.
// Every corridor pixel is reachable from every other.
inline QImage mazeImage(int width, int height, int cellPx, unsigned seed)
{
    QImage image(width, height, QImage::Format_RGBA8888);
    image.fill(Qt::black);
    const int cols = (width - 1) / cellPx;
    const int rows = (height - 1) / cellPx;
    auto clearRect = [&](int x0, int y0, int w, int h) {
        for (int y = y0; y < y0 + h; ++y)
            std::fill_n(reinterpret_cast<quint32 *>(image.scanLine(y)) + x0, w, 0u);
    };
    std::vector<char> seen(size_t(cols) * size_t(rows), 0);
    std::vector<int> stack{0};
    seen[0] = 1;
    unsigned state = seed ? seed : 1u;
    auto next = [&state] {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state;
    };
    const int inner = cellPx - 1;
    clearRect(1, 1, inner, inner);
    while (!stack.empty()) {
        const int cell = stack.back();
        const int cx = cell % cols, cy = cell / cols;
        int options[4];
        int n = 0;
        if (cx > 0 && !seen[size_t(cell - 1)])
            options[n++] = cell - 1;
        if (cx < cols - 1 && !seen[size_t(cell + 1)])
            options[n++] = cell + 1;
        if (cy > 0 && !seen[size_t(cell - cols)])
            options[n++] = cell - cols;
        if (cy < rows - 1 && !seen[size_t(cell + cols)])
            options[n++] = cell + cols;
        if (n == 0) {
            stack.pop_back();
            continue;
        }
        const int to = options[next() % unsigned(n)];
        const int tx = to % cols, ty = to / cols;
        seen[size_t(to)] = 1;
        clearRect(1 + tx * cellPx, 1 + ty * cellPx, inner, inner);
        // Open the wall between the two cells.
        if (tx != cx)
            clearRect(1 + std::min(tx, cx) * cellPx + inner, 1 + cy * cellPx, 1, inner);
        else
            clearRect(1 + cx * cellPx, 1 + std::min(ty, cy) * cellPx + inner, inner, 1);
        stack.push_back(to);
    }
    return image;
}
