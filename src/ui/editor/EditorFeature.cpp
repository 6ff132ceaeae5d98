#include "editor/EditorFeature.h"

#include <QWidget>

EditorFeature::EditorFeature(const EditorContext &context)
    : QObject(context.window), m_context(context)
{}
