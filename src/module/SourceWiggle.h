#pragma once

#include "common/Wiggle.h"

#include <QImage>

#include <random>

// The graphics-thread side of a source's wiggle: the time gathered towards
// the next frame, the displacement field and the generator that rolls it.
class SourceWiggle {
public:
    SourceWiggle();

    // Gathers the tick's seconds; true when a new field is due, and then the
    // gathering starts again.
    bool advance(float seconds, float interval);
    // Warps the picture, rolling a new field first when one is due or none
    // was made yet; otherwise a new picture is warped with the same field.
    QImage warp(const QImage &picture, float amountPx, bool newField);
    const WiggleGrid &grid() const { return m_grid; }

private:
    float m_elapsed = 0.0f;
    std::mt19937 m_rng;
    WiggleGrid m_grid;
};
