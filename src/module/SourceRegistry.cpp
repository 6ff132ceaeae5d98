#include "SourceRegistry.h"

#include <QMutexLocker>

SourceRegistry &SourceRegistry::instance()
{
    static SourceRegistry registry;
    return registry;
}

void SourceRegistry::insert(obs_source_t *source, CanvasSourceData *data)
{
    QMutexLocker lock(&m_mutex);
    m_map.insert(source, data);
}

void SourceRegistry::erase(obs_source_t *source)
{
    QMutexLocker lock(&m_mutex);
    m_map.remove(source);
}

CanvasSourceData *SourceRegistry::find(obs_source_t *source) const
{
    QMutexLocker lock(&m_mutex);
    return m_map.value(source, nullptr);
}

int SourceRegistry::size() const
{
    QMutexLocker lock(&m_mutex);
    return int(m_map.size());
}
