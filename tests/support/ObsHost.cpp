#include "ObsHost.h"

#include <obs-module.h>
#include <obs-nix-platform.h>
#include <util/base.h>

#include <QMutexLocker>
#include <QSettings>

#include <X11/Xlib.h>

#include <cstdio>

ObsHost::ObsHost()
{
    // Settings and canvas folders of this test run live in a temporary folder.
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_settings.path());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, m_settings.path());
}

ObsHost::~ObsHost()
{
    stop();
}

void ObsHost::logHandler(int level, const char *format, va_list args, void *param)
{
    char buffer[4096];
    va_list copy;
    va_copy(copy, args);
    std::vsnprintf(buffer, sizeof buffer, format, copy);
    va_end(copy);
    auto *self = static_cast<ObsHost *>(param);
    {
        QMutexLocker lock(&self->m_logMutex);
        self->m_log.append(QString::fromUtf8(buffer));
    }
    if (level <= LOG_WARNING || qEnvironmentVariableIsSet("PD_TEST_VERBOSE"))
        std::fprintf(stderr, "[obs %d] %s\n", level, buffer);
}

bool ObsHost::start(const Options &options)
{
    base_set_log_handler(logHandler, this);
    auto *display = XOpenDisplay(nullptr);
    if (!display) {
        m_error = QStringLiteral("no X display (DISPLAY=%1)").arg(qEnvironmentVariable("DISPLAY"));
        return false;
    }
    m_display = display;
    obs_set_nix_platform(OBS_NIX_PLATFORM_X11_EGL);
    obs_set_nix_platform_display(display);

    if (!obs_startup("en-US", m_config.path().toUtf8().constData(), nullptr)) {
        m_error = QStringLiteral("obs_startup failed");
        return false;
    }
    m_started = true;

    const int video = resetVideo(options);
    if (video != OBS_VIDEO_SUCCESS) {
        m_error = QStringLiteral("obs_reset_video failed: %1").arg(video);
        return false;
    }

    const int opened = obs_open_module(&m_module, PD_MODULE_FILE, PD_TEST_DATA_DIR);
    if (opened != MODULE_SUCCESS) {
        m_error = QStringLiteral("obs_open_module failed: %1").arg(opened);
        return false;
    }
    if (!obs_init_module(m_module)) {
        m_error = QStringLiteral("obs_init_module failed");
        return false;
    }
    return true;
}

int ObsHost::resetVideo(const Options &options)
{
    obs_video_info ovi = {};
    ovi.graphics_module = "libobs-opengl";
    ovi.fps_num = options.fps;
    ovi.fps_den = 1;
    ovi.base_width = options.width;
    ovi.base_height = options.height;
    ovi.output_width = options.width;
    ovi.output_height = options.height;
    ovi.output_format = VIDEO_FORMAT_RGBA;
    ovi.colorspace = VIDEO_CS_SRGB;
    ovi.range = VIDEO_RANGE_FULL;
    ovi.adapter = 0;
    ovi.gpu_conversion = true;
    ovi.scale_type = OBS_SCALE_BICUBIC;
    return obs_reset_video(&ovi);
}

void ObsHost::stop()
{
    if (m_started) {
        obs_shutdown();
        m_started = false;
    }
    if (m_display) {
        XCloseDisplay(static_cast<Display *>(m_display));
        m_display = nullptr;
    }
}

QStringList ObsHost::logLines() const
{
    QMutexLocker lock(&m_logMutex);
    return m_log;
}

void ObsHost::clearLog()
{
    QMutexLocker lock(&m_logMutex);
    m_log.clear();
}

QStringList ObsHost::linesStartingWith(const QString &prefix) const
{
    QMutexLocker lock(&m_logMutex);
    QStringList out;
    for (const QString &line : m_log)
        if (line.startsWith(prefix))
            out.append(line);
    return out;
}

QImage ObsHost::renderSource(obs_source_t *source, uint32_t width, uint32_t height)
{
    return render([source] { obs_source_video_render(source); }, width, height);
}

QImage ObsHost::render(const std::function<void()> &draw, uint32_t width, uint32_t height)
{
    QImage out;
    obs_enter_graphics();
    gs_texrender_t *texrender = gs_texrender_create(GS_RGBA, GS_ZS_NONE);
    gs_stagesurf_t *stage = gs_stagesurface_create(width, height, GS_RGBA);
    if (gs_texrender_begin(texrender, width, height)) {
        vec4 clear;
        vec4_zero(&clear);
        gs_clear(GS_CLEAR_COLOR, &clear, 0.0f, 0);
        gs_ortho(0.0f, float(width), 0.0f, float(height), -100.0f, 100.0f);
        // Copy texels as they are: no blending against the cleared target.
        gs_reset_blend_state();
        gs_enable_blending(false);
        gs_enable_depth_test(false);
        gs_set_cull_mode(GS_NEITHER);
        draw();
        gs_enable_blending(true);
        gs_texrender_end(texrender);
        gs_stage_texture(stage, gs_texrender_get_texture(texrender));
        gs_flush();
        uint8_t *data = nullptr;
        uint32_t linesize = 0;
        if (gs_stagesurface_map(stage, &data, &linesize)) {
            out = QImage(int(width), int(height), QImage::Format_RGBA8888);
            for (uint32_t y = 0; y < height; ++y)
                memcpy(out.scanLine(int(y)), data + size_t(y) * linesize, size_t(width) * 4);
            gs_stagesurface_unmap(stage);
        }
    }
    gs_stagesurface_destroy(stage);
    gs_texrender_destroy(texrender);
    obs_leave_graphics();
    return out;
}
