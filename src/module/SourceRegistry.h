#pragma once

#include <QHash>
#include <QMutex>

struct obs_source;
typedef struct obs_source obs_source_t;
class CanvasSourceData;

// Process-wide map from a host source to its canvas record. The lock covers
// the map operation only, never the use of a record.
class SourceRegistry {
public:
    static SourceRegistry &instance();

    void insert(obs_source_t *source, CanvasSourceData *data);
    void erase(obs_source_t *source);
    CanvasSourceData *find(obs_source_t *source) const;
    int size() const;

private:
    SourceRegistry() = default;
    mutable QMutex m_mutex;
    QHash<obs_source_t *, CanvasSourceData *> m_map;
};
