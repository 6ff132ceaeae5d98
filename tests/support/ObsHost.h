#pragma once

#include <QImage>
#include <QMutex>
#include <QStringList>
#include <QTemporaryDir>

#include <obs.hpp>

#include <functional>
#include <memory>

// A real libobs started inside the test process: OpenGL on the X display,
// the built module loaded from its file, every log line captured.
class ObsHost {
public:
    struct Options {
        uint32_t width = 1920;
        uint32_t height = 1080;
        // The graphics thread ticks every source once per frame; a low rate
        // keeps it from racing the test's own ticks.
        uint32_t fps = 1;
    };

    ObsHost();
    ~ObsHost();

    // Starts libobs, resets video and loads the module. Returns false with a
    // reason in error() when any step fails.
    bool start(const Options &options);
    bool start() { return start(Options{}); }
    void stop();
    QString error() const { return m_error; }
    // Resets the host's video to another size, as a profile change does;
    // returns libobs's result (OBS_VIDEO_SUCCESS).
    static int resetVideo(const Options &options);

    QStringList logLines() const;
    void clearLog();
    QStringList linesStartingWith(const QString &prefix) const;

    // Renders the source into a width x height target and reads it back.
    static QImage renderSource(obs_source_t *source, uint32_t width, uint32_t height);
    // The same for any drawing, run inside the graphics context.
    static QImage render(const std::function<void()> &draw, uint32_t width, uint32_t height);

private:
    static void logHandler(int level, const char *format, va_list args, void *param);

    QTemporaryDir m_config;
    QTemporaryDir m_settings;
    void *m_display = nullptr;
    obs_module_t *m_module = nullptr;
    bool m_started = false;
    QString m_error;
    mutable QMutex m_logMutex;
    QStringList m_log;
};
