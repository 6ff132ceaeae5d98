#pragma once

struct obs_source;
typedef struct obs_source obs_source_t;
class QMainWindow;

// The few front-end calls the module makes, behind one interface so tests can
// hand it real libobs scenes and a real main window (the OBS front end itself
// cannot be loaded into a test process).
class FrontendApi {
public:
    virtual ~FrontendApi() = default;

    // The current scene's source as a new reference, or null.
    virtual obs_source_t *currentScene() = 0;
    virtual QMainWindow *mainWindow() = 0;

    // The process-wide instance: the real front end unless a test set another.
    static FrontendApi &instance();
    // Not owned; null restores the real front end.
    static void setInstance(FrontendApi *api);
};
