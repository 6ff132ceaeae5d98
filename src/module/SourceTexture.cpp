#include "SourceTexture.h"

#include "common/Wiggle.h"

#include <obs-module.h>
#include <obs.h>

#include <QtGlobal>

#include <vector>

// ARGB32_Premultiplied is one 32-bit word per pixel: B, G, R, A bytes in
// memory only on a little-endian machine, which is what GS_BGRA reads.
static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN, "premultiplied pictures upload as BGRA bytes");

namespace {

bool hasSize(const QImage &image, uint32_t width, uint32_t height)
{
    return !image.isNull() && uint32_t(image.width()) == width &&
           uint32_t(image.height()) == height;
}

} // namespace

GraphicsScope::GraphicsScope()
{
    obs_enter_graphics();
}

GraphicsScope::~GraphicsScope()
{
    obs_leave_graphics();
}

SourceTexture::~SourceTexture()
{
    destroy();
}

bool SourceTexture::create(uint32_t width, uint32_t height, const QImage &image)
{
    GraphicsScope graphics;
    // A new picture size keeps the field: the wiggle rolls one for the new
    // size on its own.
    destroyPicture();
    const gs_color_format format = m_alpha == PixelAlpha::Straight ? GS_RGBA : GS_BGRA;
    m_texture = gs_texture_create(width, height, format, 1, nullptr, GS_DYNAMIC);
    if (!m_texture)
        return false;
    m_width = width;
    m_height = height;
    upload(image);
    return true;
}

bool SourceTexture::upload(const QImage &image)
{
    if (!m_texture || !hasSize(image, m_width, m_height))
        return false;
    const QImage pixels = image.format() == format() ? image : image.convertToFormat(format());
    GraphicsScope graphics;
    gs_texture_set_image(m_texture, pixels.constBits(), uint32_t(pixels.bytesPerLine()), false);
    return true;
}

QImage::Format SourceTexture::format() const
{
    return m_alpha == PixelAlpha::Straight ? QImage::Format_RGBA8888
                                           : QImage::Format_ARGB32_Premultiplied;
}

// Both the host's default effect and the wiggle effect name them alike.
const char *SourceTexture::technique() const
{
    return m_alpha == PixelAlpha::Straight ? "Draw" : "DrawAlphaDivide";
}

bool SourceTexture::setWiggleGrid(const WiggleGrid &grid)
{
    const size_t cells = size_t(grid.width) * size_t(grid.height);
    if (grid.isEmpty() || grid.offsetsX.size() < cells || grid.offsetsY.size() < cells)
        return false;
    GraphicsScope graphics;
    if (!m_wiggleEffect) {
        // The host caches effects by file, so every source shares one.
        char *file = obs_module_file("effects/wiggle.effect");
        if (file)
            m_wiggleEffect = gs_effect_create_from_file(file, nullptr);
        bfree(file);
        if (!m_wiggleEffect)
            return false;
    }
    if (m_offsets && (m_gridWidth != grid.width || m_gridHeight != grid.height)) {
        gs_texture_destroy(m_offsets);
        m_offsets = nullptr;
    }
    if (!m_offsets) {
        m_offsets = gs_texture_create(uint32_t(grid.width), uint32_t(grid.height), GS_RG32F, 1,
                                      nullptr, GS_DYNAMIC);
        if (!m_offsets)
            return false;
        m_gridWidth = grid.width;
        m_gridHeight = grid.height;
    }
    std::vector<float> texels(cells * 2);
    for (size_t i = 0; i < cells; ++i) {
        texels[2 * i] = grid.offsetsX[i];
        texels[2 * i + 1] = grid.offsetsY[i];
    }
    gs_texture_set_image(m_offsets, reinterpret_cast<const uint8_t *>(texels.data()),
                         uint32_t(grid.width) * 2 * sizeof(float), false);
    return true;
}

void SourceTexture::draw(bool wiggled) const
{
    if (!m_texture)
        return;
    if (wiggled && m_offsets && m_wiggleEffect && drawWiggled())
        return;
    gs_effect_t *effect = obs_get_base_effect(OBS_EFFECT_DEFAULT);
    if (!effect)
        return;
    gs_effect_set_texture(gs_effect_get_param_by_name(effect, "image"), m_texture);
    while (gs_effect_loop(effect, technique()))
        gs_draw_sprite(m_texture, 0, m_width, m_height);
}

bool SourceTexture::drawWiggled() const
{
    gs_effect_t *effect = m_wiggleEffect;
    if (!gs_effect_get_technique(effect, technique()))
        return false;
    gs_effect_set_texture(gs_effect_get_param_by_name(effect, "image"), m_texture);
    gs_effect_set_texture(gs_effect_get_param_by_name(effect, "offsets"), m_offsets);
    vec2 imageSize;
    vec2_set(&imageSize, float(m_width), float(m_height));
    gs_effect_set_vec2(gs_effect_get_param_by_name(effect, "image_size"), &imageSize);
    vec2 gridSize;
    vec2_set(&gridSize, float(m_gridWidth), float(m_gridHeight));
    gs_effect_set_vec2(gs_effect_get_param_by_name(effect, "grid_size"), &gridSize);
    // The blend state the host set up for this source stays as it is, so the
    // wiggled picture blends like the plain one.
    while (gs_effect_loop(effect, technique()))
        gs_draw_sprite(m_texture, 0, m_width, m_height);
    return true;
}

void SourceTexture::destroyWiggle()
{
    if (m_offsets)
        gs_texture_destroy(m_offsets);
    m_offsets = nullptr;
    m_gridWidth = 0;
    m_gridHeight = 0;
    gs_effect_destroy(m_wiggleEffect);
    m_wiggleEffect = nullptr;
}

void SourceTexture::destroy()
{
    if (!m_texture && !m_offsets && !m_wiggleEffect)
        return;
    GraphicsScope graphics;
    destroyWiggle();
    destroyPicture();
}

void SourceTexture::destroyPicture()
{
    if (m_texture)
        gs_texture_destroy(m_texture);
    m_texture = nullptr;
    m_width = 0;
    m_height = 0;
}
