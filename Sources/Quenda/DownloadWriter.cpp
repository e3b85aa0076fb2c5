#include "Quenda/DownloadWriter.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace quenda {

namespace {
constexpr qint64 kMaxWaiting = 512 * 1024; // bytes
constexpr std::chrono::milliseconds kPatience(1000);
} // namespace

struct DownloadWriter::Shared {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<QByteArray> queue;
    qint64 waiting = 0;   ///< bytes in `queue` and in the hands of the sink
    bool starved = false; ///< the main thread waits for room
    bool closed = false;  ///< nothing more will be written
    bool dropped = false; ///< the download failed elsewhere
    bool sinkGone = false;
    Mailbox::Slot slot;
    DownloadWriter *writer = nullptr; ///< touched by tasks in the mailbox only

    /// The next bytes to write; null where there are none and none will come.
    QByteArray next();
    void written(qint64 bytes);
    Failure feed(DownloadSink &sink);
};

QByteArray DownloadWriter::Shared::next() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return !queue.empty() || closed || dropped; });
    if (dropped || queue.empty())
        return {};
    QByteArray bytes = std::move(queue.front());
    queue.pop_front();
    return bytes;
}

void DownloadWriter::Shared::written(qint64 bytes) {
    bool room = false;
    {
        const std::lock_guard lock(mutex);
        waiting -= bytes;
        room = starved && waiting <= kMaxWaiting / 2;
        if (room)
            starved = false;
    }
    if (room) {
        slot.post([this] {
            if (writer->onRoom)
                writer->onRoom();
        });
    }
}

Failure DownloadWriter::Shared::feed(DownloadSink &sink) {
    if (Failure failure = sink.open())
        return failure;
    for (QByteArray bytes = next(); !bytes.isNull(); bytes = next()) {
        if (Failure failure = sink.write(bytes))
            return failure;
        written(bytes.size());
    }
    {
        const std::lock_guard lock(mutex);
        if (dropped)
            return std::nullopt;
    }
    return sink.finish();
}

DownloadWriter::DownloadWriter(std::unique_ptr<DownloadSink> sink)
    : m_sink(std::move(sink)),
      m_shared(std::make_shared<Shared>()) {
    m_shared->slot = m_mailbox.slot();
    m_shared->writer = this;
}

DownloadWriter::~DownloadWriter() {
    std::unique_lock lock(m_shared->mutex);
    m_shared->dropped = true;
    m_shared->changed.notify_all();
    if (!m_sink) // the thread has it
        m_shared->changed.wait_for(lock, kPatience, [this] { return m_shared->sinkGone; });
}

void DownloadWriter::start() {
    std::thread(&DownloadWriter::run, m_shared, std::move(m_sink)).detach();
}

void DownloadWriter::run(const std::shared_ptr<Shared> &shared,
                         std::unique_ptr<DownloadSink> sink) {
    const Failure failure = shared->feed(*sink);
    sink.reset();
    {
        const std::lock_guard lock(shared->mutex);
        shared->sinkGone = true;
        shared->queue.clear();
    }
    shared->changed.notify_all();
    shared->slot.post([shared, failure] {
        DownloadWriter &writer = *shared->writer;
        writer.m_outcome = failure;
        if (writer.m_done)
            std::exchange(writer.m_done, {})(failure);
        else if (failure && writer.onError)
            writer.onError(*failure);
    });
}

qint64 DownloadWriter::room() const {
    const std::lock_guard lock(m_shared->mutex);
    const qint64 room = std::max<qint64>(kMaxWaiting - m_shared->waiting, 0);
    if (room == 0)
        m_shared->starved = true;
    return room;
}

void DownloadWriter::write(const QByteArray &bytes) {
    if (bytes.isEmpty())
        return;
    {
        const std::lock_guard lock(m_shared->mutex);
        if (m_shared->sinkGone)
            return;
        m_shared->queue.push_back(bytes);
        m_shared->waiting += bytes.size();
    }
    m_shared->changed.notify_all();
}

void DownloadWriter::end(bool complete, std::function<void(const Failure &)> done) {
    if (m_outcome) {
        done(*m_outcome);
        return;
    }
    m_done = std::move(done);
    {
        const std::lock_guard lock(m_shared->mutex);
        m_shared->closed = true;
        m_shared->dropped = m_shared->dropped || !complete;
    }
    m_shared->changed.notify_all();
}

} // namespace quenda
