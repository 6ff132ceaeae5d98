#pragma once

#include "common/Wiggle.h"

#include <random>

// The graphics-thread side of a source's wiggle: the time gathered towards
// the next frame, the displacement field and the generator that rolls it.
// The field is applied on the GPU (SourceTexture); this only decides when a
// new one is due.
class SourceWiggle {
public:
    SourceWiggle();

    // Gathers the tick's seconds; true when a new field is due, and then the
    // gathering starts again.
    bool advance(float seconds, float interval);
    // Rolls a new field for a picture of width x height when one is due,
    // none was made yet or the picture's size changed; otherwise a new
    // picture keeps the same field. True when a field was rolled.
    bool roll(int width, int height, float amountPx, bool due);
    // The field rolled since the last call, once; null when there is none.
    const WiggleGrid *takeNewGrid();
    const WiggleGrid &grid() const { return m_grid; }

private:
    float m_elapsed = 0.0f;
    std::mt19937 m_rng;
    WiggleGrid m_grid;
    int m_pictureWidth = 0;
    int m_pictureHeight = 0;
    bool m_gridIsNew = false;
};
