#pragma once

#include <QImage>

#include <random>
#include <vector>

// The "wiggle" displacement field: one integer offset per 24-pixel cell,
// bilinearly blended between cells and applied as a nearest-neighbour gather.
// Shared by the canvas sources and the editor preview.
struct WiggleGrid {
    static constexpr int CellSize = 24;

    int width = 0; // cells
    int height = 0;
    std::vector<float> offsetsX;
    std::vector<float> offsetsY;

    bool isEmpty() const { return width == 0 || height == 0; }
};

// Rolls a new field for an image of imageWidth x imageHeight. The fractional
// part of amountPx becomes the probability of the next larger magnitude.
void makeWiggleGrid(WiggleGrid &grid, int imageWidth, int imageHeight, float amountPx,
                    std::mt19937 &rng);

// Warps the image with the field. The output has the input's size and, for
// the 32-bit RGBA and ARGB formats (straight or premultiplied), its format;
// anything else comes out as RGBA8888. A null input is returned unchanged.
QImage warpImage(const QImage &input, const WiggleGrid &grid);

// The stored "jitterAmount" setting (0..100) in pixels: 0.1 .. 4.0.
float wiggleAmountPxFromSetting(int amount);
// The stored "jitterSpeed" setting (0..100) as frames per second: 1 .. 30.
int wiggleFramesPerSecondFromSetting(int speed);
