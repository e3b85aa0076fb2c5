// The form that recordings travel in: a server finds in it exactly the parts that were put in, also
// where a part holds what looks like the boundary.
#include "Forms.h"
#include "FuzzTarget.h"
#include "Input.h"
#include "Quenda/MultipartBody.h"

#include <QHash>

// Lines: how many boundaries are bad, what they are, a field; the rest is the file.
QUENDA_FUZZ_TARGET(multipart) {
    quenda::fuzz::Input parts(input);
    int bad = int(parts.byte() % 8);
    parts.line();
    QByteArray boundary = parts.line().replace('\r', "");
    boundary.truncate(60);
    const QString field = parts.textLine();
    const QByteArray file = parts.rest();

    int drawn = 0;
    quenda::MultipartBody body([&]() -> QByteArray {
        ++drawn;
        if (bad-- > 0)
            return boundary.isEmpty() ? QByteArray("x") : boundary;
        return "quenda-" + QByteArray::number(drawn) + "-0123456789abcdef" +
               QByteArray::number(qHash(file)); // not to be guessed
    });
    body.addField("vocabulary", field);
    body.addFile("file", "audio.wav", "audio/wav", file);
    body.addField("last", field);

    const QByteArray used = body.boundary();
    PROMISE(body.contentType() == "multipart/form-data; boundary=" + used);
    const std::vector<quenda::fuzz::FormPart> wanted{
        {"name=\"vocabulary\"", field.toUtf8()},
        {"name=\"file\"; filename=\"audio.wav\"", file},
        {"name=\"last\"", field.toUtf8()}};
    PROMISE(quenda::fuzz::formParts(body.finish(), used) == wanted);
}
