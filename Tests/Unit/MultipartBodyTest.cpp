#include "Quenda/MultipartBody.h"

#include <QRegularExpression>
#include <QSet>

#include <gtest/gtest.h>

#include <memory>
#include <utility>

using quenda::MultipartBody;

namespace {

MultipartBody::BoundarySource inTurn(QList<QByteArray> boundaries) {
    auto rest = std::make_shared<QList<QByteArray>>(std::move(boundaries));
    return [rest] {
        EXPECT_FALSE(rest->isEmpty()) << "one boundary too many was drawn";
        return rest->isEmpty() ? QByteArray("quenda-SPARE") : rest->takeFirst();
    };
}

TEST(MultipartBody, writesEveryByteAsTheServersExpectIt) {
    MultipartBody body(inTurn({"quenda-B"}));
    body.addField("response_format", QStringLiteral("json"));
    body.addField("language", QString());
    body.addField("prompt", QStringLiteral("Łódź, “naïve”"));
    body.addFile("file", "audio.wav", "audio/wav", QByteArray("RIFF\0\r\n\xff", 8));

    EXPECT_EQ(body.contentType(), "multipart/form-data; boundary=quenda-B");
    EXPECT_EQ(body.finish(),
              QByteArray("--quenda-B\r\n"
                         "Content-Disposition: form-data; name=\"response_format\"\r\n"
                         "\r\n"
                         "json\r\n"
                         "--quenda-B\r\n"
                         "Content-Disposition: form-data; name=\"language\"\r\n"
                         "\r\n"
                         "\r\n"
                         "--quenda-B\r\n"
                         "Content-Disposition: form-data; name=\"prompt\"\r\n"
                         "\r\n"
                         "\xc5\x81\xc3\xb3"
                         "d\xc5\xba, \xe2\x80\x9cna\xc3\xafve\xe2\x80\x9d\r\n"
                         "--quenda-B\r\n"
                         "Content-Disposition: form-data; name=\"file\"; filename=\"audio.wav\"\r\n"
                         "Content-Type: audio/wav\r\n"
                         "\r\n") +
                  QByteArray("RIFF\0\r\n\xff", 8) + QByteArray("\r\n--quenda-B--\r\n"));
}

TEST(MultipartBody, drawsAFreshBoundaryForEachBody) {
    const QRegularExpression form(
        QStringLiteral("\\Aquenda-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\z"));
    QSet<QByteArray> seen;
    for (int i = 0; i < 200; ++i) {
        const QByteArray boundary = MultipartBody().boundary();
        EXPECT_TRUE(form.match(QString::fromLatin1(boundary)).hasMatch()) << boundary.constData();
        seen.insert(boundary);
    }
    EXPECT_EQ(seen.size(), 200);
}

TEST(MultipartBody, aValueThatHoldsTheBoundaryMakesItDrawAnother) {
    MultipartBody body(inTurn({"quenda-A", "quenda-B", "quenda-C"}));
    body.addField("first", QStringLiteral("x quenda-B x")); // the next candidate is taken already
    body.addField("prompt", QStringLiteral("a\r\n--quenda-A--\r\n--quenda-A\r\n"
                                           "Content-Disposition: form-data; name=\"file\"\r\n"));
    EXPECT_EQ(body.boundary(), "quenda-C");
    EXPECT_EQ(body.contentType(), "multipart/form-data; boundary=quenda-C");
    const QByteArray bytes = body.finish();
    EXPECT_EQ(bytes.count("--quenda-C"), 3); // two parts and the closing delimiter
    EXPECT_TRUE(bytes.startsWith("--quenda-C\r\n"));
    EXPECT_TRUE(bytes.endsWith("\r\n--quenda-C--\r\n"));
}

TEST(MultipartBody, aFileThatHoldsTheBoundaryMakesItDrawAnother) {
    MultipartBody body(inTurn({"quenda-A", "quenda-B"}));
    body.addFile("file", "audio.wav", "audio/wav", "....quenda-A....");
    EXPECT_EQ(body.boundary(), "quenda-B");
    EXPECT_EQ(body.finish().count("--quenda-B"), 2);
}

TEST(MultipartBody, buildsTheBodyAroundTheLastPartOrInACopyWhereItIsHeldElsewhere) {
    const QByteArray frame = "--quenda-A\r\nContent-Disposition: form-data; name=\"file\"; "
                             "filename=\"audio.wav\"\r\nContent-Type: audio/wav\r\n\r\n";
    for (const qsizetype size : {0, 1, 100, 1 << 20}) {
        QByteArray held(size, 'x');
        if (size > 0)
            held.front() = held.back() = 'y';
        const QByteArray expected = frame + held + "\r\n--quenda-A--\r\n";

        MultipartBody copied(inTurn({"quenda-A"}));
        copied.addFile("file", "audio.wav", "audio/wav", held);
        EXPECT_EQ(copied.finish(), expected);
        EXPECT_EQ(held.size(), size) << "what somebody else holds was changed";

        MultipartBody moved(inTurn({"quenda-A"}));
        moved.addFile("file", "audio.wav", "audio/wav", std::move(held));
        EXPECT_EQ(moved.finish(), expected);
    }
}

TEST(MultipartBody, withoutPartsThereIsOnlyTheEnd) {
    EXPECT_EQ(MultipartBody(inTurn({"quenda-A"})).finish(), "--quenda-A--\r\n");
}

// Quotes and line breaks are nothing special inside a value: it ends at the next delimiter.
TEST(MultipartBody, valuesStandUnchanged) {
    const QString value = QStringLiteral("\"; name=\"file\"\r\n\r\nx\r\n--\r\n--other\r\n");
    MultipartBody body(inTurn({"quenda-A"}));
    body.addField("prompt", value);
    EXPECT_EQ(body.finish(), "--quenda-A\r\nContent-Disposition: form-data; name=\"prompt\"\r\n"
                             "\r\n" +
                                 value.toUtf8() + "\r\n--quenda-A--\r\n");
}

} // namespace
