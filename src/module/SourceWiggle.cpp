#include "SourceWiggle.h"

#include <util/platform.h>

SourceWiggle::SourceWiggle() : m_rng(uint32_t(os_gettime_ns()))
{}

bool SourceWiggle::advance(float seconds, float interval)
{
    m_elapsed += seconds;
    if (m_elapsed < interval)
        return false;
    m_elapsed = 0.0f;
    return true;
}

QImage SourceWiggle::warp(const QImage &picture, float amountPx, bool newField)
{
    if (newField || m_grid.isEmpty())
        makeWiggleGrid(m_grid, picture.width(), picture.height(), amountPx, m_rng);
    return warpImage(picture, m_grid);
}
