#pragma once

#include "PerfWindow.h"
#include "SourceHotkeys.h"
#include "SourceTexture.h"
#include "SourceWiggle.h"

#include <QImage>

#include <atomic>
#include <cstdint>

struct obs_source_info;

// One "pennoria_coop_canvas" source: shows the shared co-op picture, read
// through CoopCanvas::image(). Tick and render both run on the host's
// graphics thread, so the record needs no lock of its own; only its size,
// which follows the picture's, is read from other threads.
struct CoopSourceData {
    explicit CoopSourceData(obs_source_t *source);
    ~CoopSourceData();
    CoopSourceData(const CoopSourceData &) = delete;
    CoopSourceData &operator=(const CoopSourceData &) = delete;

    uint32_t width() const { return shownWidth.load(); }
    uint32_t height() const { return shownHeight.load(); }
    void tick(float seconds);
    void render();

    obs_source_t *source;
    // The shared picture is straight RGBA, painted on its own thread.
    SourceTexture texture{PixelAlpha::Straight};
    std::atomic<uint32_t> shownWidth{1920};
    std::atomic<uint32_t> shownHeight{1080};
    uint64_t lastUploadedVersion = 0;
    SourceWiggle wiggle;
    uint64_t lastWiggledVersion = 0;
    PerfWindow perf;
    SourceHotkeys hotkeys;

private:
    // Re-creates the texture at the shared picture's new size.
    void resize(uint32_t width, uint32_t height);
    // Uploads the picture, first re-creating the texture at the picture's
    // size when the shared picture was resized.
    void show(const QImage &picture);
};

const obs_source_info &coopSourceInfo();

// Gives the shared co-op picture the host's video size, when the host knows
// it. Called on the main thread: when the dock is built, when a co-op source
// is created, and after the host's video size changed.
void syncCoopCanvasSize();

// How many co-op sources exist in the process right now.
int liveCoopSourceCount();
