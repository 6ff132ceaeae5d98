#pragma once

#include <QByteArray>
#include <QImage>
#include <QJsonObject>
#include <QLatin1StringView>
#include <QString>

#include <cstdint>

namespace coop {

constexpr quint16 DefaultPort = 42069;

// Sent in "hello", "challenge" and "welcome"; peers of another version are
// refused with a message that says so.
constexpr int ProtocolVersion = 2;

// Frame limits, per direction. What a peer sends to its host is small: a
// stroke segment is a few hundred bytes, a shape or a fill seed the same, a
// hello or a pong less. 256 KiB still carries a stroke of several thousand
// points, and 64 connections holding a partial frame each cost at most 16 MiB.
constexpr quint32 MaxHostFramePayload = 256 * 1024;
// The largest frame a host sends is "welcome" with the whole picture: a 4K
// RGBA picture is 33 MB raw, so even a PNG that does not compress at all stays
// under 45 MB in Base64.
constexpr quint32 MaxClientFramePayload = 48 * 1024 * 1024;

// Password proof: PBKDF2-HMAC-SHA256 turns the password and the session's salt
// into a key; each side proves it holds the key with an HMAC over both
// nonces, so the password never travels.
constexpr int KeyIterations = 20000;
constexpr int MaxKeyIterations = 200000; // what a client accepts from a host
constexpr int NonceBytes = 16;

// Message types ("t") and keys. Hosts send "challenge" to a password
// session's joiners, who answer "auth"; a refusal at the door is a "kick"
// with a "code".
namespace Type {
inline constexpr QLatin1StringView Hello{"hello"};
inline constexpr QLatin1StringView Challenge{"challenge"};
inline constexpr QLatin1StringView Auth{"auth"};
inline constexpr QLatin1StringView Welcome{"welcome"};
inline constexpr QLatin1StringView Users{"users"};
inline constexpr QLatin1StringView Stroke{"stroke"};
inline constexpr QLatin1StringView Clear{"clear"};
inline constexpr QLatin1StringView Ping{"ping"};
inline constexpr QLatin1StringView Pong{"pong"};
inline constexpr QLatin1StringView Kick{"kick"};
inline constexpr QLatin1StringView Bye{"bye"};
} // namespace Type

namespace Key {
inline constexpr QLatin1StringView Type{"t"};
inline constexpr QLatin1StringView Nick{"nick"};
inline constexpr QLatin1StringView Version{"ver"};
inline constexpr QLatin1StringView Id{"id"};
inline constexpr QLatin1StringView Canvas{"canvas"};
inline constexpr QLatin1StringView MayClear{"mayClear"};
inline constexpr QLatin1StringView Users{"users"};
inline constexpr QLatin1StringView Ping{"ping"};
inline constexpr QLatin1StringView Host{"host"};
inline constexpr QLatin1StringView Stroke{"stroke"};
inline constexpr QLatin1StringView From{"from"};
inline constexpr QLatin1StringView Timestamp{"ts"};
inline constexpr QLatin1StringView Reason{"reason"};
inline constexpr QLatin1StringView Code{"code"};
inline constexpr QLatin1StringView Salt{"salt"};
inline constexpr QLatin1StringView Nonce{"nonce"};
inline constexpr QLatin1StringView Iterations{"iter"};
inline constexpr QLatin1StringView Proof{"proof"};
} // namespace Key

// Why a host refused a connection ("code" of a "kick" before "welcome").
namespace Code {
inline constexpr QLatin1StringView Version{"version"};
inline constexpr QLatin1StringView Password{"password"};
inline constexpr QLatin1StringView Backoff{"backoff"};
inline constexpr QLatin1StringView Banned{"banned"};
inline constexpr QLatin1StringView Full{"full"};
} // namespace Code

// One length-prefixed frame: 4-byte big-endian payload length, then compact
// JSON.
QByteArray encodeFrame(const QJsonObject &message);
QByteArray framePrefix(quint32 payloadLength);

// Incremental frame reader. Bytes go in as they arrive; whole messages come out
// in order. Only received bytes are ever buffered, whatever length a prefix
// announces. After a violation the decoder stays failed.
class FrameDecoder {
public:
    enum class Result { NeedMore, Message, Oversize, BadJson };

    explicit FrameDecoder(quint32 maxPayload) : m_maxPayload(maxPayload) {}

    void append(const QByteArray &bytes);
    // Takes the next whole frame out of the buffer.
    Result next(QJsonObject *message);
    // Whether next() has a whole frame (or a violation) to report.
    bool hasFrame() const;
    void clear();

    qsizetype bufferedBytes() const { return buffer.size() - offset; }
    bool failed() const { return failure != Result::NeedMore; }

private:
    quint32 m_maxPayload;
    QByteArray buffer;
    qsizetype offset = 0; // start of unread data; compacted lazily
    Result failure = Result::NeedMore;
};

// The "canvas" key of "welcome": Base64 of a PNG file, written at a fast
// compression level (the picture is mostly transparent and compresses well
// even so).
QByteArray encodeCanvas(const QImage &image);
QImage decodeCanvas(const QString &base64);

QByteArray randomBytes(int count);
// A password the host dialog proposes: ten letters and digits without the
// ones that are easy to mistake for each other.
QString randomPassword();
QByteArray deriveKey(const QString &password, const QByteArray &salt, int iterations);
// HMAC-SHA256 of both nonces, the host's first.
QByteArray passwordProof(const QByteArray &key, const QByteArray &firstNonce,
                         const QByteArray &secondNonce);
// Compares in a time that depends only on the lengths.
bool sameBytes(const QByteArray &a, const QByteArray &b);

} // namespace coop
