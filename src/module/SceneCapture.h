#pragma once

#include <QImage>

class CanvasSourceData;
class FrontendApi;

// Renders the current scene off-screen at the source's output size, without
// the source itself, and reads it back. Null when there is no new picture.
QImage captureScene(CanvasSourceData &record);
QImage captureScene(CanvasSourceData &record, FrontendApi &frontend);
