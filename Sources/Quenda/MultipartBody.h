#pragma once
// Builds the multipart/form-data bodies (RFC 7578) of the transcription requests. A value of its
// own user; any thread.

#include <QByteArray>
#include <QString>

#include <functional>
#include <vector>

namespace quenda {

class MultipartBody {
public:
    using BoundarySource = std::function<QByteArray()>;

    /// A new body with a fresh random boundary, "quenda-" and an upper-case UUID.
    MultipartBody();
    /// Takes boundaries from `source`, which must not repeat itself for ever.
    explicit MultipartBody(BoundarySource source);

    void addField(const QByteArray &name, const QString &value);
    /// Adds the file part. Names and type must not hold quotes or line breaks. Where nobody else
    /// holds `data` and no part comes after it, the body is built in its place.
    void addFile(const QByteArray &name, const QByteArray &fileName, const QByteArray &contentType,
                 QByteArray data);

    /// The value of the Content-Type header. A part that contains the boundary makes the body draw
    /// a new one, so ask for it after the last part was added.
    QByteArray contentType() const;
    const QByteArray &boundary() const { return m_boundary; }

    /// The whole body with the closing delimiter. Call it once, last.
    QByteArray finish();

private:
    struct Part {
        QByteArray headers; ///< each line with its CR LF
        QByteArray content;
    };

    void add(Part part);
    bool occursInParts(const QByteArray &boundary) const;

    BoundarySource m_source;
    QByteArray m_boundary;
    std::vector<Part> m_parts;
};

} // namespace quenda
