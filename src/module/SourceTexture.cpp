#include "SourceTexture.h"

#include <obs.h>

namespace {

QImage toRgba(const QImage &image)
{
    return image.format() == QImage::Format_RGBA8888
               ? image
               : image.convertToFormat(QImage::Format_RGBA8888);
}

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
    destroy();
    m_texture = gs_texture_create(width, height, GS_RGBA, 1, nullptr, GS_DYNAMIC);
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
    const QImage rgba = toRgba(image);
    GraphicsScope graphics;
    gs_texture_set_image(m_texture, rgba.constBits(), uint32_t(rgba.bytesPerLine()), false);
    return true;
}

void SourceTexture::draw(gs_effect_t *effect) const
{
    if (!m_texture || !effect)
        return;
    gs_effect_set_texture(gs_effect_get_param_by_name(effect, "image"), m_texture);
    gs_draw_sprite(m_texture, 0, m_width, m_height);
}

void SourceTexture::destroy()
{
    if (!m_texture)
        return;
    GraphicsScope graphics;
    gs_texture_destroy(m_texture);
    m_texture = nullptr;
    m_width = 0;
    m_height = 0;
}
