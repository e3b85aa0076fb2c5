#pragma once
// Takes an HTTP/1 answer apart as its bytes arrive, in bounded memory whatever the server says.
// Owned by the reply that receives it; a plain value, any one thread.

#include <QByteArray>
#include <QList>
#include <QPair>

namespace quenda {

class HttpAnswerReader {
public:
    enum class State {
        Head,     ///< the head is not whole yet
        Body,     ///< the head is, the body is not
        Complete, ///< whatever follows is not of this answer
        NotHttp,
        HeadTooLong,
        CutOff, ///< the connection ended before the answer
    };

    /// The longest head in bytes, with all interim answers before it and the trailers after it.
    static constexpr qsizetype kLongestHead = 64 * 1024;
    /// The most header fields: who takes them compares each with those before it.
    static constexpr qsizetype kMostHeaders = 1000;

    /// Takes the bytes that came next. Of what is none of the answer's nothing is kept.
    void feed(const QByteArray &bytes);
    /// The server has closed the connection. A body that is shorter than announced is Complete all
    /// the same: the announced length tells.
    void end();

    State state() const;
    bool isOver() const { return state() != State::Head && state() != State::Body; }
    /// Whether any byte came at all.
    bool hasBegun() const { return m_begun; }

    /// 100 to 599; of the final answer, once its head is whole.
    int status() const { return m_status; }
    /// In the order of the answer; a name that comes again is in it again.
    const QList<QPair<QByteArray, QByteArray>> &headers() const { return m_headers; }

    qsizetype bodySize() const { return m_body.size() - m_taken; }
    /// Moves up to `most` bytes of the body to `to`; how many.
    qint64 takeBody(char *to, qint64 most);

private:
    enum class Stage {
        StatusLine,
        Headers,
        BodyOfLength,
        BodyToTheEnd,
        ChunkSize,
        Chunk,
        ChunkEnd,
        Trailers,
        Complete,
        NotHttp,
        HeadTooLong,
        CutOff,
    };

    bool step();
    void readLine(const QByteArray &line);
    bool readStatus(const QByteArray &line);
    bool readHeader(const QByteArray &line);
    bool readChunkSize(const QByteArray &line);
    void beginBody();
    void takeIn();

    Stage m_stage = Stage::StatusLine;
    QByteArray m_raw; ///< not yet looked at; less than a line
    qsizetype m_at = 0;
    QByteArray m_body;
    qsizetype m_taken = 0;
    qint64 m_left = 0; ///< of the body or of the chunk
    qsizetype m_headBytes = 0;
    int m_status = 0;
    bool m_begun = false;
    QList<QPair<QByteArray, QByteArray>> m_headers;
};

} // namespace quenda
