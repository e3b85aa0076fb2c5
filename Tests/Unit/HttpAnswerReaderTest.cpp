#include "Quenda/HttpAnswerReader.h"

#include <gtest/gtest.h>

#include <string>

using quenda::HttpAnswerReader;
using State = HttpAnswerReader::State;

namespace {

QByteArray bodyOf(HttpAnswerReader &reader) {
    QByteArray body(reader.bodySize(), '\0');
    EXPECT_EQ(reader.takeBody(body.data(), body.size()), body.size());
    return body;
}

// Reads it as pieces of that size.
HttpAnswerReader read(const QByteArray &answer, qsizetype piece = 1 << 20) {
    HttpAnswerReader reader;
    for (qsizetype at = 0; at < answer.size(); at += piece)
        reader.feed(answer.mid(at, piece));
    return reader;
}

} // namespace

// However the bytes are cut, the same comes out.
TEST(HttpAnswerReaderTest, ReadsAnswersOfEveryFraming) {
    struct Row {
        const char *answer;
        int status;
        const char *body;
        State state;
    };
    const Row rows[] = {
        {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc", 200, "abc", State::Complete},
        {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabcdef", 200, "abc", State::Complete},
        {"HTTP/1.1 200 OK\r\ncontent-length: 4\r\n\r\nabc", 200, "abc", State::Body},
        {"HTTP/1.1 404\r\nContent-Length: 0\r\n\r\n", 404, "", State::Complete},
        {"HTTP/1.0 200 OK\n\nabc", 200, "abc", State::Body},
        {"HTTP/1.1 200 OK\r\nContent-Length: many\r\n\r\nabc", 200, "abc", State::Body},
        {"HTTP/1.1 204 None\r\n\r\nabc", 204, "", State::Complete},
        {"HTTP/1.1 304 Same\r\nContent-Length: 3\r\n\r\nabc", 304, "", State::Complete},
        {"HTTP/1.1 100 Go\r\nA: b\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\na", 200, "a",
         State::Complete},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\nContent-Length: 1\r\n\r\n"
         "5\r\nhello\r\n00A ;x=y\r\n, everyone\r\n0\r\nT: r\r\n\r\nrest",
         200, "hello, everyone", State::Complete},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhel", 200, "hel", State::Body},
    };
    for (const Row &row : rows) {
        for (const qsizetype piece : {qsizetype(1), qsizetype(7), qsizetype(1000)}) {
            HttpAnswerReader reader = read(row.answer, piece);
            EXPECT_EQ(reader.state(), row.state) << row.answer;
            EXPECT_EQ(reader.status(), row.status) << row.answer;
            EXPECT_EQ(bodyOf(reader), row.body) << row.answer;
        }
    }
}

TEST(HttpAnswerReaderTest, RefusesWhatIsNotHttp) {
    for (const char *answer : {
             "\r\n",
             "SSH-2.0-OpenSSH_9.2\r\n",
             "HTTP/2.0 200 OK\r\n",
             "HTTP/1.1\r\n",
             "HTTP/1.1 2000 OK\r\n",
             "HTTP/1.1 20 OK\r\n",
             "HTTP/1.1 20x OK\r\n",
             "HTTP/1.1  200 OK\r\n",
             "HTTP/1.1 099 OK\r\n",
             "HTTP/1.1 600 OK\r\n",
             "HTTP/1.1 101 Switching\r\n",
             "HTTP/1.1 200 OK\r\n folded: first\r\n",
             "HTTP/1.1 200 OK\r\nno colon\r\n",
             "HTTP/1.1 200 OK\r\n: no name\r\n",
             "HTTP/1.1 200 OK\r\nbad name: x\r\n",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n\r\n",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\n",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n-1\r\n",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n+1\r\n",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nfffffffffffffffff\r\n",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nab\r\n",
         })
        EXPECT_EQ(read(answer).state(), State::NotHttp) << answer;
}

TEST(HttpAnswerReaderTest, KeepsHeadersInOrderWithTheirValuesTrimmed) {
    const HttpAnswerReader reader =
        read("HTTP/1.1 200 OK\r\nA:1\r\nb: \t two words \r\n  and more\r\nA: 2\r\n\r\n");
    const QList<QPair<QByteArray, QByteArray>> expected{
        {"A", "1"}, {"b", "two words and more"}, {"A", "2"}};
    EXPECT_EQ(reader.headers(), expected);
}

TEST(HttpAnswerReaderTest, HeadsHaveABound) {
    const QByteArray begin("HTTP/1.1 200 OK\r\n");
    const qsizetype most = HttpAnswerReader::kLongestHead - begin.size() - 2;
    const QByteArray name("X: ");
    const QByteArray longest = begin + name + QByteArray(most - name.size() - 2, 'x') + "\r\n\r\n";
    ASSERT_EQ(longest.size(), HttpAnswerReader::kLongestHead);
    EXPECT_EQ(read(longest).state(), State::Body);
    EXPECT_EQ(read("HTTP/1.1 200 OK!" + longest.mid(15)).state(), State::HeadTooLong);

    // One line, many lines, many interim answers, many trailers: nothing goes on for ever.
    for (const auto &[start, more] : {
             std::pair<QByteArray, QByteArray>{begin + "X: ", "xxxxxxxxxx"},
             {begin, "X: y\r\n"},
             {"", "HTTP/1.1 100 Go\r\n\r\n"},
             {begin + "Transfer-Encoding: chunked\r\n\r\n0\r\n", "X: y\r\n"},
         }) {
        HttpAnswerReader reader = read(start);
        qsizetype given = 0;
        while (!reader.isOver() && given < 2 * HttpAnswerReader::kLongestHead) {
            reader.feed(more);
            given += more.size();
        }
        EXPECT_EQ(reader.state(), State::HeadTooLong) << start.constData() << more.constData();
    }
    const QByteArray chunked = begin + "Transfer-Encoding: chunked\r\n\r\n";
    EXPECT_EQ(read(chunked + "1;" + QByteArray(2000, 'x')).state(), State::NotHttp);
}

TEST(HttpAnswerReaderTest, TheEndOfTheConnectionCompletesOrCutsOff) {
    const auto ended = [](const QByteArray &answer) {
        HttpAnswerReader reader = read(answer);
        reader.end();
        return reader.state();
    };
    EXPECT_EQ(ended(""), State::CutOff);
    EXPECT_EQ(ended("HTTP/1.1 200 OK\r\nA"), State::CutOff);
    EXPECT_EQ(ended("HTTP/1.1 200 OK\r\n\r\nabc"), State::Complete);
    EXPECT_EQ(ended("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nabc"), State::Complete);
    EXPECT_EQ(ended("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nabc"),
              State::CutOff);
    EXPECT_EQ(ended("no http\r\n"), State::NotHttp);
}

TEST(HttpAnswerReaderTest, BodiesAreTakenPieceByPiece) {
    HttpAnswerReader reader = read("HTTP/1.1 200 OK\r\n\r\nabcde");
    char piece[3];
    EXPECT_EQ(reader.takeBody(piece, 3), 3);
    EXPECT_EQ(std::string(piece, 3), "abc");
    EXPECT_EQ(reader.bodySize(), 2);
    reader.feed("f");
    EXPECT_EQ(bodyOf(reader), "def");
    EXPECT_EQ(reader.takeBody(piece, 3), 0);
    EXPECT_FALSE(HttpAnswerReader().hasBegun());
    EXPECT_TRUE(reader.hasBegun());
}
