#pragma once
// A download on its way to disk: grows under a hidden name beside its destination and is moved
// there when it is whole. A killed program leaves at most this one file, unlocked. Used on one
// thread, the download's own.

#include "Quenda/HttpClient.h"

#include <QFile>
#include <QLockFile>
#include <QStringList>

#include <optional>

namespace quenda {

class PartialFile final : public DownloadSink {
public:
    /// The destination is `fileName` in `folder`. Touches nothing yet.
    PartialFile(const QString &folder, const QString &fileName);
    /// Removes what was written, unless finish() succeeded.
    ~PartialFile() override;

    /// Creates the file: in `folder`, or, while that does not exist, in the folder above it, which
    /// lies on the same file system as `folder` will.
    Failure open() override;
    Failure write(QByteArrayView bytes) override;
    /// Makes `folder` and moves the file in, in the place of one that is there already.
    Failure finish() override;

    /// The paths of all that looks like the beginning of a download into `folder`, growing or left.
    static QStringList begun(const QString &folder);
    /// Removes those of the files that killed programs left. What a running program still writes is
    /// locked and stays; a file that is just being made may not be yet.
    static void removeAbandoned(const QStringList &files);

private:
    QString m_folder;
    QString m_destination;
    QString m_name;
    QFile m_file;
    std::optional<QLockFile> m_lock; ///< held while the file grows; its file is the download itself
};

} // namespace quenda
