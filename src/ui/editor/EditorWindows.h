#pragma once

#include <QString>

#include <memory>

class DrawingWindow;
class EditorSource;
class QWidget;

// The open editors, one per source, each known by its source's key (a canvas
// source's UUID; CoopEditorSource::EditorKey for the co-op picture). A second
// request for the same source brings the open editor to the front instead of
// opening another.
namespace EditorWindows {

// The editor open for key, restored and brought to the front; null when none is.
DrawingWindow *raise(const QString &key);

// The editor open for key, left where it is; null when none is.
DrawingWindow *find(const QString &key);

// Closes every open editor (each saves as on a close by the user).
void closeAll();

// A new editor of source under parent, known by key until it closes (it
// deletes itself then), shown in front.
DrawingWindow *open(const QString &key, std::unique_ptr<EditorSource> source, QWidget *parent);

} // namespace EditorWindows
