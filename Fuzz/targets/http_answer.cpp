// An HTTP answer, taken apart as its bytes arrive.
#include "FuzzTarget.h"
#include "Input.h"
#include "Quenda/HttpAnswerReader.h"

namespace {

using quenda::HttpAnswerReader;

struct Read {
    HttpAnswerReader reader;
    QByteArray body;
};

// Reads it in pieces of that size, and takes the body out in others.
Read read(const QByteArray &answer, qsizetype piece, qsizetype taken) {
    Read result;
    QByteArray part(taken, '\0');
    for (qsizetype at = 0; at < answer.size(); at += piece) {
        const HttpAnswerReader::State before = result.reader.state();
        const bool over = result.reader.isOver();
        result.reader.feed(answer.mid(at, piece));
        PROMISE(!over || result.reader.state() == before);
        const qint64 length = result.reader.takeBody(part.data(), taken);
        PROMISE(length >= 0 && length <= taken);
        result.body += part.first(length);
    }
    while (result.reader.bodySize() > 0)
        result.body += part.first(result.reader.takeBody(part.data(), taken));
    return result;
}

} // namespace

// A byte that says into which pieces it falls, then the answer.
QUENDA_FUZZ_TARGET(http_answer) {
    quenda::fuzz::Input parts(input);
    const qsizetype piece = 1 + qsizetype(parts.byte());
    const QByteArray answer = parts.rest();

    Read whole = read(answer, answer.size() + 1, 1000);
    Read pieces = read(answer, piece, 1 + piece / 3);
    PROMISE(whole.reader.state() == pieces.reader.state());
    PROMISE(whole.reader.status() == pieces.reader.status());
    PROMISE(whole.reader.headers() == pieces.reader.headers());
    PROMISE(whole.body == pieces.body);
    PROMISE(whole.body.size() <= answer.size());
    PROMISE(whole.reader.hasBegun() == !answer.isEmpty());

    using State = HttpAnswerReader::State;
    const State state = whole.reader.state();
    if (state == State::Body || state == State::Complete)
        PROMISE(whole.reader.status() >= 200 && whole.reader.status() < 600);
    if (state == State::Head)
        PROMISE(whole.body.isEmpty() && answer.size() <= HttpAnswerReader::kLongestHead);
    for (const auto &[name, value] : whole.reader.headers()) {
        PROMISE(!name.isEmpty() && !name.contains('\n') && !name.contains(' '));
        PROMISE(!value.contains('\n'));
    }
    whole.reader.end();
    PROMISE(whole.reader.isOver());
}
