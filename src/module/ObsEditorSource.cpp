#include "module/ObsEditorSource.h"

std::unique_ptr<EditorSource> makeEditorSource(obs_source_t *)
{
    return nullptr;
}
