#include "files/PngEncode.h"

#include <QIODevice>
#include <QImageWriter>

#ifdef PD_HAVE_SPNG
#include <spng.h>

#include <memory>
#endif

namespace {

constexpr int ZlibLevel = 1;

bool writeWithQt(const QImage &image, QIODevice *device)
{
    QImageWriter writer(device, "png");
    // Qt's writer maps quality q to zlib level (100 - q) * 9 / 91.
    writer.setQuality(100 - (ZlibLevel * 91 + 8) / 9);
    return writer.write(image);
}

#ifdef PD_HAVE_SPNG
struct SpngDeleter {
    void operator()(spng_ctx *ctx) const { spng_ctx_free(ctx); }
};

int writeToDevice(spng_ctx *, void *user, void *data, size_t length)
{
    auto *device = static_cast<QIODevice *>(user);
    return device->write(static_cast<const char *>(data), qint64(length)) == qint64(length)
               ? 0
               : SPNG_IO_ERROR;
}
#endif

} // namespace

bool writeFastPng(const QImage &source, QIODevice *device)
{
    if (source.isNull())
        return false;
#ifdef PD_HAVE_SPNG
    const QImage image = source.convertToFormat(QImage::Format_RGBA8888);
    std::unique_ptr<spng_ctx, SpngDeleter> ctx(spng_ctx_new(SPNG_CTX_ENCODER));
    if (!ctx)
        return writeWithQt(image, device);
    spng_set_png_stream(ctx.get(), writeToDevice, device);
    spng_ihdr ihdr{};
    ihdr.width = uint32_t(image.width());
    ihdr.height = uint32_t(image.height());
    ihdr.bit_depth = 8;
    ihdr.color_type = SPNG_COLOR_TYPE_TRUECOLOR_ALPHA;
    spng_set_ihdr(ctx.get(), &ihdr);
    spng_set_option(ctx.get(), SPNG_IMG_COMPRESSION_LEVEL, ZlibLevel);
    spng_set_option(ctx.get(), SPNG_FILTER_CHOICE, SPNG_FILTER_CHOICE_SUB);
    if (image.bytesPerLine() == qsizetype(image.width()) * 4)
        return spng_encode_image(ctx.get(), image.constBits(), size_t(image.sizeInBytes()),
                                 SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE) == 0;
    if (spng_encode_image(ctx.get(), nullptr, 0, SPNG_FMT_PNG,
                          SPNG_ENCODE_PROGRESSIVE | SPNG_ENCODE_FINALIZE) != 0)
        return false;
    for (int y = 0; y < image.height(); ++y) {
        const int result =
            spng_encode_row(ctx.get(), image.constScanLine(y), size_t(image.width()) * 4);
        if (result != 0 && result != SPNG_EOI)
            return false;
    }
    return true;
#else
    return writeWithQt(source, device);
#endif
}
