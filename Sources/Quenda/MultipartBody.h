#pragma once
// Builds the multipart/form-data bodies (RFC 7578) of the transcription requests. Any thread.

#include <QByteArray>
#include <QString>

namespace quenda {

class MultipartBody {
public:
    /// A new body with a fresh random boundary, "quenda-" and an upper-case UUID.
    MultipartBody();

    void addField(const QByteArray &name, const QString &value);
    /// Adds the file part. Names and type must not hold quotes or line breaks.
    void addFile(const QByteArray &name, const QByteArray &fileName, const QByteArray &contentType,
                 const QByteArray &data);

    /// The value of the Content-Type header.
    QByteArray contentType() const;
    const QByteArray &boundary() const { return m_boundary; }

    /// The whole body with the closing delimiter. Call it once, last.
    QByteArray finish();

private:
    QByteArray m_boundary;
    QByteArray m_body;
};

} // namespace quenda
