#include "coop/CoopProtocol.h"

#include <QBuffer>
#include <QImageWriter>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QMessageAuthenticationCode>
#include <QPasswordDigestor>
#include <QRandomGenerator>
#include <QtEndian>

namespace coop {

QByteArray framePrefix(quint32 payloadLength)
{
    QByteArray prefix(4, Qt::Uninitialized);
    qToBigEndian<quint32>(payloadLength, prefix.data());
    return prefix;
}

QByteArray encodeFrame(const QJsonObject &message)
{
    const QByteArray payload = QJsonDocument(message).toJson(QJsonDocument::Compact);
    return framePrefix(quint32(payload.size())) + payload;
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

bool FrameDecoder::hasFrame() const
{
    if (failed())
        return true;
    const qsizetype available = buffer.size() - offset;
    if (available < 4)
        return false;
    const quint32 length = qFromBigEndian<quint32>(buffer.constData() + offset);
    return length > m_maxPayload || available - 4 >= qsizetype(length);
}

FrameDecoder::Result FrameDecoder::next(QJsonObject *message)
{
    if (failed())
        return failure;
    const qsizetype available = buffer.size() - offset;
    if (available < 4)
        return Result::NeedMore;
    const quint32 length = qFromBigEndian<quint32>(buffer.constData() + offset);
    if (length > m_maxPayload) {
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

QByteArray encodeCanvas(const QImage &image)
{
    QByteArray png;
    QBuffer device(&png);
    device.open(QIODevice::WriteOnly);
    QImageWriter writer(&device, "PNG");
    writer.setQuality(80); // zlib level 1: several times faster than the default
    writer.write(image);
    return png.toBase64();
}

QImage decodeCanvas(const QString &base64)
{
    const QByteArray png = QByteArray::fromBase64(base64.toLatin1());
    if (png.isEmpty())
        return {};
    return QImage::fromData(png, "PNG");
}

QByteArray randomBytes(int count)
{
    QByteArray bytes(count, Qt::Uninitialized);
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32 *>(bytes.data()), count / 4);
    for (int i = count / 4 * 4; i < count; ++i)
        bytes[i] = char(QRandomGenerator::system()->bounded(256));
    return bytes;
}

QString randomPassword()
{
    static const char Alphabet[] = "abcdefghjkmnpqrstuvwxyz23456789";
    constexpr int AlphabetSize = int(sizeof Alphabet) - 1;
    QString password;
    for (int i = 0; i < 10; ++i)
        password += QLatin1Char(Alphabet[QRandomGenerator::system()->bounded(AlphabetSize)]);
    return password;
}

QByteArray deriveKey(const QString &password, const QByteArray &salt, int iterations)
{
    return QPasswordDigestor::deriveKeyPbkdf2(QCryptographicHash::Sha256, password.toUtf8(), salt,
                                              iterations, 32);
}

QByteArray passwordProof(const QByteArray &key, const QByteArray &firstNonce,
                         const QByteArray &secondNonce)
{
    return QMessageAuthenticationCode::hash(firstNonce + secondNonce, key,
                                            QCryptographicHash::Sha256);
}

bool sameBytes(const QByteArray &a, const QByteArray &b)
{
    if (a.size() != b.size())
        return false;
    unsigned char difference = 0;
    for (qsizetype i = 0; i < a.size(); ++i)
        difference |= static_cast<unsigned char>(a[i] ^ b[i]);
    return difference == 0;
}

} // namespace coop
