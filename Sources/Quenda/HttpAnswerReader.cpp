#include "Quenda/HttpAnswerReader.h"

#include "Quenda/HttpRules.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <utility>

namespace quenda {

namespace {

// The longest line that tells a chunk's size, with its extensions.
constexpr qsizetype kLongestChunkLine = 1024;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

} // namespace

HttpAnswerReader::State HttpAnswerReader::state() const {
    switch (m_stage) {
    case Stage::StatusLine:
    case Stage::Headers:
        return State::Head;
    case Stage::Complete:
        return State::Complete;
    case Stage::NotHttp:
        return State::NotHttp;
    case Stage::HeadTooLong:
        return State::HeadTooLong;
    case Stage::CutOff:
        return State::CutOff;
    default:
        return State::Body;
    }
}

void HttpAnswerReader::feed(const QByteArray &bytes) {
    m_begun = m_begun || !bytes.isEmpty();
    m_raw.append(bytes);
    while (step()) {
    }
    if (isOver())
        m_at = m_raw.size();
    m_raw.remove(0, std::exchange(m_at, 0));
}

void HttpAnswerReader::end() {
    if (m_stage == Stage::BodyToTheEnd || m_stage == Stage::BodyOfLength)
        m_stage = Stage::Complete;
    else if (!isOver())
        m_stage = Stage::CutOff;
}

// False where more bytes have to come first, or none count any more.
bool HttpAnswerReader::step() {
    if (isOver())
        return false;
    if (m_stage == Stage::BodyOfLength || m_stage == Stage::BodyToTheEnd ||
        m_stage == Stage::Chunk) {
        if (m_at == m_raw.size())
            return false;
        takeIn();
        return true;
    }
    const bool ofHead = m_stage != Stage::ChunkSize && m_stage != Stage::ChunkEnd;
    const qsizetype longest = ofHead ? kLongestHead - m_headBytes : kLongestChunkLine;
    const qsizetype end = m_raw.indexOf('\n', m_at);
    const qsizetype length = (end < 0 ? m_raw.size() : end + 1) - m_at;
    if (length > longest) {
        m_stage = ofHead ? Stage::HeadTooLong : Stage::NotHttp;
        return false;
    }
    if (end < 0)
        return false;
    if (ofHead)
        m_headBytes += length;
    QByteArray line = m_raw.mid(m_at, length - 1);
    if (line.endsWith('\r'))
        line.chop(1);
    m_at = end + 1;
    readLine(line);
    return true;
}

void HttpAnswerReader::readLine(const QByteArray &line) {
    bool understood = true;
    switch (m_stage) {
    case Stage::StatusLine:
        understood = readStatus(line);
        m_stage = Stage::Headers;
        break;
    case Stage::Headers:
        if (line.isEmpty())
            beginBody();
        else
            understood = readHeader(line);
        break;
    case Stage::ChunkSize:
        understood = readChunkSize(line);
        break;
    case Stage::ChunkEnd:
        understood = line.isEmpty();
        m_stage = Stage::ChunkSize;
        break;
    case Stage::Trailers:
        if (line.isEmpty())
            m_stage = Stage::Complete;
        break;
    default:
        break;
    }
    if (!understood)
        m_stage = Stage::NotHttp;
}

// "HTTP/1.1 200 OK"; the reason may be missing.
bool HttpAnswerReader::readStatus(const QByteArray &line) {
    constexpr qsizetype kLeast = 12;
    if (line.size() < kLeast || !line.startsWith("HTTP/1.") || !isDigit(line[7]) ||
        line[8] != ' ' || (line.size() > kLeast && line[kLeast] != ' '))
        return false;
    if (!std::all_of(line.begin() + 9, line.begin() + kLeast, isDigit))
        return false;
    m_status = line.mid(9, 3).toInt();
    // Nobody asked to go on in another protocol.
    return m_status >= 100 && m_status < 600 && m_status != 101;
}

bool HttpAnswerReader::readHeader(const QByteArray &line) {
    if (isBlank(line[0])) { // an old way to go on with the value of the line before
        if (m_headers.isEmpty())
            return false;
        m_headers.last().second += ' ' + line.trimmed();
        return true;
    }
    const qsizetype colon = line.indexOf(':');
    if (colon < 1 || std::any_of(line.begin(), line.begin() + colon, isBlank))
        return false;
    m_headers.append({line.first(colon), line.mid(colon + 1).trimmed()});
    if (m_headers.size() > kMostHeaders)
        m_stage = Stage::HeadTooLong;
    return true;
}

bool HttpAnswerReader::readChunkSize(const QByteArray &line) {
    const qsizetype extension = line.indexOf(';');
    const QByteArray digits = (extension < 0 ? line : line.first(extension)).trimmed();
    bool understood = false;
    m_left = digits.toLongLong(&understood, 16);
    understood = understood && m_left >= 0 && std::isxdigit(static_cast<unsigned char>(digits[0]));
    m_stage = m_left == 0 ? Stage::Trailers : Stage::Chunk;
    return understood;
}

void HttpAnswerReader::beginBody() {
    if (m_status < 200) { // an interim answer: the real one follows
        m_headers.clear();
        m_stage = Stage::StatusLine;
        return;
    }
    bool chunked = false;
    qint64 announced = -1;
    for (const auto &[name, value] : std::as_const(m_headers)) {
        if (name.compare("Transfer-Encoding", Qt::CaseInsensitive) == 0)
            chunked = value.toLower().endsWith("chunked");
        else if (name.compare("Content-Length", Qt::CaseInsensitive) == 0)
            announced = announcedLength(value);
    }
    m_left = announced;
    if (m_status == 204 || m_status == 304 || (!chunked && announced == 0))
        m_stage = Stage::Complete;
    else if (chunked)
        m_stage = Stage::ChunkSize;
    else
        m_stage = announced > 0 ? Stage::BodyOfLength : Stage::BodyToTheEnd;
}

void HttpAnswerReader::takeIn() {
    const qsizetype there = m_raw.size() - m_at;
    const qsizetype length =
        m_stage == Stage::BodyToTheEnd ? there : qsizetype(std::min<qint64>(there, m_left));
    m_body.append(m_raw.constData() + m_at, length);
    m_at += length;
    if (m_stage == Stage::BodyToTheEnd)
        return;
    m_left -= length;
    if (m_left == 0)
        m_stage = m_stage == Stage::Chunk ? Stage::ChunkEnd : Stage::Complete;
}

qint64 HttpAnswerReader::takeBody(char *to, qint64 most) {
    const qsizetype length = qsizetype(std::min<qint64>(most, bodySize()));
    std::memcpy(to, m_body.constData() + m_taken, size_t(length));
    m_taken += length;
    if (m_taken == m_body.size()) {
        m_body.clear();
        m_taken = 0;
    }
    return length;
}

} // namespace quenda
