#pragma once

#include <QImage>

class QIODevice;

// Writes an RGBA8888 image as PNG at a fast setting (zlib level 1 with the
// SUB filter where libspng is available, Qt's writer at level 1 otherwise):
// canvas layers are mostly transparent and compress well either way.
bool writeFastPng(const QImage &image, QIODevice *device);
