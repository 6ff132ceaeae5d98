#include "coop/CoopProtocol.h"

#include <QBuffer>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QtEndian>

namespace coop {

QByteArray encodeFrame(const QJsonObject &message)
{
    const QByteArray payload = QJsonDocument(message).toJson(QJsonDocument::Compact);
    QByteArray frame(4, Qt::Uninitialized);
    qToBigEndian<quint32>(quint32(payload.size()), frame.data());
    frame += payload;
    return frame;
}

void FrameDecoder::append(const QByteArray &bytes)
{
    if (failed() || bytes.isEmpty())
        return;
    // Drop consumed bytes before growing, so a long stream of small frames
    // does not keep its whole history.
    if (offset > 0 && (offset >= buffer.size() / 2 || offset > (1 << 20))) {
        buffer.remove(0, offset);
        offset = 0;
    }
    buffer.append(bytes);
}

FrameDecoder::Result FrameDecoder::next(QJsonObject *message)
{
    if (failed())
        return failure;
    const qsizetype available = buffer.size() - offset;
    if (available < 4)
        return Result::NeedMore;
    const quint32 length = qFromBigEndian<quint32>(buffer.constData() + offset);
    if (length > MaxFramePayload) {
        failure = Result::Oversize;
        buffer.clear();
        offset = 0;
        return failure;
    }
    if (available - 4 < qsizetype(length))
        return Result::NeedMore;
    const QByteArray payload =
        QByteArray::fromRawData(buffer.constData() + offset + 4, qsizetype(length));
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(payload, &error);
    offset += 4 + qsizetype(length);
    if (offset == buffer.size()) {
        buffer.clear();
        offset = 0;
    }
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        failure = Result::BadJson;
        buffer.clear();
        offset = 0;
        return failure;
    }
    if (message)
        *message = document.object();
    return Result::Message;
}

void FrameDecoder::clear()
{
    buffer.clear();
    offset = 0;
    failure = Result::NeedMore;
}

QString encodeCanvas(const QImage &image)
{
    QByteArray png;
    QBuffer device(&png);
    device.open(QIODevice::WriteOnly);
    image.save(&device, "PNG");
    return QString::fromLatin1(png.toBase64());
}

QImage decodeCanvas(const QString &base64)
{
    const QByteArray png = QByteArray::fromBase64(base64.toLatin1());
    if (png.isEmpty())
        return {};
    return QImage::fromData(png, "PNG");
}

} // namespace coop
