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

bool SourceWiggle::roll(int width, int height, float amountPx, bool due)
{
    if (!due && !m_grid.isEmpty() && width == m_pictureWidth && height == m_pictureHeight)
        return false;
    makeWiggleGrid(m_grid, width, height, amountPx, m_rng);
    m_pictureWidth = width;
    m_pictureHeight = height;
    m_gridIsNew = true;
    return true;
}

const WiggleGrid *SourceWiggle::takeNewGrid()
{
    if (!m_gridIsNew)
        return nullptr;
    m_gridIsNew = false;
    return &m_grid;
}
