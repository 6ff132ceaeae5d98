#pragma once

#include <QByteArray>
#include <QImage>
#include <QJsonObject>
#include <QString>

#include <cstdint>

namespace coop {

constexpr quint16 DefaultPort = 42069;
constexpr quint32 MaxFramePayload = 67108864; // 64 MiB

// One length-prefixed frame: 4-byte big-endian payload length, then compact
// JSON.
QByteArray encodeFrame(const QJsonObject &message);

// Incremental frame reader. Bytes go in as they arrive; whole messages come out
// in order. Only received bytes are ever buffered, whatever length a prefix
// announces. After a violation the decoder stays failed.
class FrameDecoder {
public:
    enum class Result { NeedMore, Message, Oversize, BadJson };

    void append(const QByteArray &bytes);
    // Takes the next whole frame out of the buffer.
    Result next(QJsonObject *message);
    void clear();

    qsizetype bufferedBytes() const { return buffer.size() - offset; }
    bool failed() const { return failure != Result::NeedMore; }

private:
    QByteArray buffer;
    qsizetype offset = 0; // start of unread data; compacted lazily
    Result failure = Result::NeedMore;
};

// The "canvas" key of "welcome": Base64 of a PNG file.
QString encodeCanvas(const QImage &image);
QImage decodeCanvas(const QString &base64);

} // namespace coop
