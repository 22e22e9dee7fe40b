#ifndef TARVISNET_BODYDECODER_P_H
#define TARVISNET_BODYDECODER_P_H

#include <QtCore/QByteArray>

#include <memory>

struct BodyCoding;
struct z_stream_s;

/// Undoes the coding of a body while it arrives, and stops where the body becomes longer than it
/// may be: a few bytes may stand for very many.
class BodyDecoder {
public:
    enum class State {
        Good,
        /// The body is longer than it may be.
        TooLong,
        /// The bytes are not what the coding makes of anything.
        Faulty,
    };

    /// Whether a body with the Content-Encoding \a coding is decoded; any other is left as it is.
    static bool decodes(const QByteArray &coding);

    BodyDecoder(const QByteArray &coding, qint64 maximumSize);
    ~BodyDecoder();

    /// Appends what \a bytes stand for to \a body, which never gets longer than the maximum. Once
    /// the state is not good it ignores them.
    void take(const QByteArray &bytes, QByteArray &body);
    State state() const { return m_state; }
    /// False while the end of what was begun is missing.
    bool isComplete() const { return m_place != Place::Within; }

private:
    Q_DISABLE_COPY(BodyDecoder)

    /// Compressed data may consist of several parts, each complete in itself.
    enum class Place { BeforeFirst, Within, Between, AfterLast };

    void append(const char *bytes, int size, QByteArray &body);
    bool isUnfinished() const;
    void begin();
    void decodePiece(QByteArray &body);

    /// Null when the bytes are left as they are.
    const BodyCoding *const m_coding;
    const qint64 m_maximumSize;
    const std::unique_ptr<z_stream_s> m_stream;
    State m_state = State::Good;
    Place m_place = Place::BeforeFirst;
};

#endif // TARVISNET_BODYDECODER_P_H
