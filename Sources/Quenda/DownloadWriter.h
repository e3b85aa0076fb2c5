#pragma once
// Feeds a download's sink on a thread of its own, so that a slow disk never holds up the main
// thread. Owned by one download; main thread only but for the thread itself.

#include "Quenda/HttpClient.h"
#include "Quenda/Mailbox.h"

namespace quenda {

class DownloadWriter {
public:
    explicit DownloadWriter(std::unique_ptr<DownloadSink> sink);
    /// Without an end(), drops the download; waits a moment for the sink to clean up.
    ~DownloadWriter();

    std::function<void()> onRoom;               ///< room() was 0 and is not any more
    std::function<void(const Error &)> onError; ///< the sink failed; nothing more is taken

    void start();
    /// Bytes that may be handed over now without holding more than a few megabytes.
    qint64 room() const;
    void write(const QByteArray &bytes);
    /// Ends the download: finishes the sink after what is still waiting, or drops it. `done` is
    /// called once with what came of it, when the sink is gone.
    void end(bool complete, std::function<void(const Failure &)> done);

private:
    struct Shared;
    static void run(const std::shared_ptr<Shared> &shared, std::unique_ptr<DownloadSink> sink);

    std::unique_ptr<DownloadSink> m_sink;
    std::shared_ptr<Shared> m_shared;
    std::function<void(const Failure &)> m_done;
    std::optional<Failure> m_outcome; ///< what became of the sink, once it is gone
    Mailbox m_mailbox;
};

} // namespace quenda
