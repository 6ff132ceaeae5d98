#pragma once

#include "PerfWindow.h"
#include "common/Wiggle.h"

#include <QImage>

#include <cstdint>
#include <random>

struct obs_source;
typedef struct obs_source obs_source_t;
struct gs_texture;
typedef struct gs_texture gs_texture_t;
struct obs_source_info;

// One "pennoria_coop_canvas" source. Tick and render both run on the host's
// graphics thread, so the record needs no lock of its own; the picture is
// read through CoopCanvas::image().
struct CoopSourceData {
    obs_source_t *source = nullptr;
    gs_texture_t *texture = nullptr;
    uint32_t width = 1920;
    uint32_t height = 1080;
    uint64_t lastUploadedVersion = 0;
    float jitterElapsed = 0.0f;
    std::mt19937 rng;
    WiggleGrid grid;
    QImage wiggledImage;
    bool wiggleReady = false;
    bool showedWiggle = false;
    uint64_t lastWiggledVersion = 0;
    PerfWindow perf;

    // Uploads image into the texture when it has the texture's size.
    void upload(const QImage &image);
};

const obs_source_info &coopSourceInfo();

// Gives the shared co-op picture the host's video size, when the host knows
// it. Called by every co-op source at create.
void syncCoopCanvasSize();

// How many co-op sources exist in the process right now.
int liveCoopSourceCount();
