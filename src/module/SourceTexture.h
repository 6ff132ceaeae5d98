#pragma once

#include <QImage>

#include <cstdint>

struct WiggleGrid;

struct gs_texture;
typedef struct gs_texture gs_texture_t;
struct gs_effect;
typedef struct gs_effect gs_effect_t;

// Holds the host's graphics context for its lifetime. Entering is re-entrant
// (the host counts nested entries), so it is cheap inside render.
class GraphicsScope {
public:
    GraphicsScope();
    ~GraphicsScope();
    GraphicsScope(const GraphicsScope &) = delete;
    GraphicsScope &operator=(const GraphicsScope &) = delete;
};

// How a source's pictures carry alpha. Straight pictures are RGBA8888 bytes
// drawn as they are; premultiplied ones are Qt's ARGB32_Premultiplied (the
// engine's layer format) uploaded as BGRA and divided by alpha on the GPU,
// so nobody converts them per frame.
enum class PixelAlpha { Straight, Premultiplied };

// The one dynamic texture through which a source shows its picture, and the
// wiggle's displacement field beside it: the field is a small float texture
// (one texel per cell) that the wiggle effect applies at draw time, so the
// picture is uploaded once per new picture and never warped on the CPU.
// Every operation enters the graphics context itself, so the same calls
// serve a source's create, render and destroy.
class SourceTexture {
public:
    explicit SourceTexture(PixelAlpha alpha) : m_alpha(alpha) {}
    ~SourceTexture();
    SourceTexture(const SourceTexture &) = delete;
    SourceTexture &operator=(const SourceTexture &) = delete;

    // (Re)creates the texture at width x height and fills it from image when
    // the image has that size. False when the host could not create it.
    bool create(uint32_t width, uint32_t height, const QImage &image = QImage());
    // Copies the image in, converted first when it is not in the format of
    // the texture's alpha (a caller on a hot path hands that format). False,
    // and nothing copied, when there is no texture or the image has another
    // size.
    bool upload(const QImage &image);
    // Copies a new displacement field in (a field for a picture of the
    // texture's size). False when the wiggle effect or the field's texture
    // is not available; the wiggled draw then shows the plain picture.
    bool setWiggleGrid(const WiggleGrid &grid);
    // Draws the texture at its size with its own technique (the source is a
    // custom-draw one): plainly, or displaced by the last field when wiggled
    // and one is set; straight colours come out either way.
    void draw(bool wiggled = false) const;
    void destroy();

    bool isNull() const { return !m_texture; }
    uint32_t width() const { return m_width; }
    uint32_t height() const { return m_height; }

private:
    bool drawWiggled() const;
    // The picture format uploads take without a conversion.
    QImage::Format format() const;
    const char *technique() const;
    void destroyWiggle();
    void destroyPicture();

    const PixelAlpha m_alpha;
    gs_texture_t *m_texture = nullptr;
    gs_texture_t *m_offsets = nullptr;
    gs_effect_t *m_wiggleEffect = nullptr;
    int m_gridWidth = 0;
    int m_gridHeight = 0;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
};
