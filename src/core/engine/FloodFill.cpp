#include "engine/FloodFill.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

// Largest absolute difference between corresponding bytes of a and b.
inline int maxByteDifference(quint32 a, quint32 b)
{
    int diff = 0;
    for (int shift = 0; shift < 32; shift += 8)
        diff = std::max(diff, std::abs(int((a >> shift) & 0xff) - int((b >> shift) & 0xff)));
    return diff;
}

// How the rules see a stored pixel: as the straight-alpha RGBA8888 word.
struct StraightRgba {
    quint32 operator()(quint32 p) const { return p; }
};

// A premultiplied ARGB32 pixel as its straight RGBA8888 word.
struct FromPremultiplied {
    quint32 operator()(quint32 p) const
    {
        const quint32 a = p >> 24;
        if (a == 0)
            return 0;
        if (a != 255)
            p = qUnpremultiply(p);
        return (p & 0xff00ff00u) | ((p >> 16) & 0xffu) | ((p & 0xffu) << 16);
    }
};

// A nearly transparent seed: pixels at most this opaque.
struct AlphaRule {
    int tolerance;
    bool operator()(quint32 p) const { return int(p >> 24) <= tolerance; }
};

// Any other seed: pixels whose every byte is within tolerance of it.
struct ColourRule {
    quint32 seed; // straight
    int tolerance;
    bool operator()(quint32 p) const { return maxByteDifference(seed, p) <= tolerance; }
};

// One bit per pixel, for fills whose own colour matches the rule (a filled
// pixel must then be told apart from one still to fill).
class VisitedMask {
public:
    explicit VisitedMask(size_t count) : m_words((count + 63) / 64, 0) {}
    bool test(size_t i) const { return (m_words[i >> 6] >> (i & 63)) & 1u; }
    void setRange(size_t first, size_t last) // inclusive
    {
        for (size_t i = first; i <= last;) {
            if ((i & 63) == 0 && i + 63 <= last) {
                m_words[i >> 6] = ~quint64(0);
                i += 64;
            } else {
                m_words[i >> 6] |= quint64(1) << (i & 63);
                ++i;
            }
        }
    }

private:
    std::vector<quint64> m_words;
};

// Without a mask: the fill colour does not match, so filled pixels stop the
// scan by themselves.
struct NoMask {
    bool test(size_t) const { return false; }
    void setRange(size_t, size_t) {}
};

// Scanline fill: each popped seed grows into the widest run of open pixels of
// its row, the run is filled, and the neighbouring rows get one seed per open
// run over its extent (the row it came from only beyond its parent run, which
// is filled already). The filled set is the seed's 4-connected region.
template <typename Rule, typename Mask>
void scanlineFill(uchar *bits, qsizetype stride, int width, int height, int x, int y,
                  quint32 fillWord, const Rule &matches, Mask &mask)
{
    struct Seed {
        int x, y;
        int parentY; // -1: none
        int parentLeft, parentRight;
    };
    std::vector<Seed> stack;
    stack.reserve(1024);
    auto row = [bits, stride](int py) { return reinterpret_cast<quint32 *>(bits + py * stride); };
    if (matches(row(y)[x])) {
        stack.push_back({x, y, -1, 0, -1});
    } else {
        // A seed outside its own rule (a low tolerance) is still filled, and
        // the region grows from its neighbours.
        row(y)[x] = fillWord;
        const size_t index = size_t(y) * size_t(width) + size_t(x);
        mask.setRange(index, index);
        if (y < height - 1)
            stack.push_back({x, y + 1, -1, 0, -1});
        if (y > 0)
            stack.push_back({x, y - 1, -1, 0, -1});
        if (x < width - 1)
            stack.push_back({x + 1, y, -1, 0, -1});
        if (x > 0)
            stack.push_back({x - 1, y, -1, 0, -1});
    }

    // Pushes one seed per run of open pixels of row ny within [from, to]; the
    // run [left, right] of row py is their parent.
    auto seedRuns = [&](int ny, int from, int to, int py, int left, int right) {
        const quint32 *next = row(ny);
        const size_t nextBase = size_t(ny) * size_t(width);
        auto open = [&](int nx) { return !mask.test(nextBase + size_t(nx)) && matches(next[nx]); };
        int nx = from;
        while (nx <= to) {
            while (nx <= to && !open(nx))
                ++nx;
            if (nx > to)
                break;
            stack.push_back({nx, ny, py, left, right});
            while (nx <= to && open(nx))
                ++nx;
        }
    };

    while (!stack.empty()) {
        const Seed s = stack.back();
        stack.pop_back();
        quint32 *line = row(s.y);
        const size_t base = size_t(s.y) * size_t(width);
        if (mask.test(base + size_t(s.x)) || !matches(line[s.x]))
            continue;
        int left = s.x;
        while (left > 0 && !mask.test(base + size_t(left - 1)) && matches(line[left - 1]))
            --left;
        int right = s.x;
        while (right < width - 1 && !mask.test(base + size_t(right + 1)) &&
               matches(line[right + 1]))
            ++right;
        std::fill(line + left, line + right + 1, fillWord);
        mask.setRange(base + size_t(left), base + size_t(right));

        for (const int ny : {s.y - 1, s.y + 1}) {
            if (ny < 0 || ny >= height)
                continue;
            if (ny != s.parentY) {
                seedRuns(ny, left, right, s.y, left, right);
            } else {
                seedRuns(ny, left, std::min(right, s.parentLeft - 1), s.y, left, right);
                seedRuns(ny, std::max(left, s.parentRight + 1), right, s.y, left, right);
            }
        }
    }
}

} // namespace

quint32 packRgba8888(const QColor &color)
{
    const QRgb rgb = color.rgba();
    return (quint32(qAlpha(rgb)) << 24) | (quint32(qBlue(rgb)) << 16) |
           (quint32(qGreen(rgb)) << 8) | quint32(qRed(rgb));
}

quint32 premultipliedArgb(quint32 rgbaWord)
{
    const QRgb straight =
        (rgbaWord & 0xff00ff00u) | ((rgbaWord >> 16) & 0xffu) | ((rgbaWord & 0xffu) << 16);
    return qPremultiply(straight);
}

void floodFill(QImage &image, int x, int y, quint32 fillWord, int tolerance)
{
    const int width = image.width();
    const int height = image.height();
    if (x < 0 || y < 0 || x >= width || y >= height)
        return;
    if (quint64(width) * quint64(height) > quint64(0xffffffffu))
        return;
    if (image.format() != QImage::Format_RGBA8888 &&
        image.format() != QImage::Format_ARGB32_Premultiplied)
        image = image.convertToFormat(QImage::Format_RGBA8888);
    const bool premultiplied = image.format() == QImage::Format_ARGB32_Premultiplied;
    if (premultiplied)
        fillWord = premultipliedArgb(fillWord);

    uchar *bits = image.bits();
    const qsizetype stride = image.bytesPerLine();
    auto pixel = [bits, stride](int px, int py) -> quint32 & {
        return reinterpret_cast<quint32 *>(bits + py * stride)[px];
    };

    const quint32 seed = pixel(x, y);
    if (seed == fillWord)
        return;

    // The rules compare straight values; a stored word is read as one.
    auto fill = [&](const auto &matches, auto read) {
        auto rule = [&matches, read](quint32 p) { return matches(read(p)); };
        if (rule(fillWord)) {
            VisitedMask mask(size_t(width) * size_t(height));
            scanlineFill(bits, stride, width, height, x, y, fillWord, rule, mask);
        } else {
            NoMask mask;
            scanlineFill(bits, stride, width, height, x, y, fillWord, rule, mask);
        }
    };
    if ((seed >> 24) < 32)
        fill(AlphaRule{tolerance}, StraightRgba()); // alpha reads the same either way
    else if (premultiplied)
        fill(ColourRule{FromPremultiplied()(seed), tolerance}, FromPremultiplied());
    else
        fill(ColourRule{seed, tolerance}, StraightRgba());
}
