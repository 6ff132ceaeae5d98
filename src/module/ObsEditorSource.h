#pragma once

#include "source/EditorSource.h"

#include <memory>

struct obs_source;
typedef struct obs_source obs_source_t;

// The editor's view of a "pennoria_canvas" source. Null when the source is
// null or has no canvas record in the registry.
std::unique_ptr<EditorSource> makeEditorSource(obs_source_t *source);
