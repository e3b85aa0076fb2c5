#include "Quenda/HttpBody.h"

#include "Quenda/DownloadWriter.h"
#include "Quenda/HttpRules.h"

#include <utility>

namespace quenda {

namespace {
constexpr int kProgressIntervalMs = 100; // a bar 90 points wide needs no more
}

Result<bool> MemoryBody::begin(int, qint64 announced) {
    if (announced > m_limit)
        return httpError(HttpError::TooLong);
    return true;
}

Failure MemoryBody::add(const QByteArray &bytes) {
    if (bytes.size() > m_limit - m_bytes.size())
        return httpError(HttpError::TooLong);
    m_bytes.append(bytes);
    return std::nullopt;
}

void MemoryBody::end(bool, std::function<void(const Failure &)> done) {
    done(std::nullopt);
}

SinkBody::SinkBody(std::unique_ptr<DownloadSink> sink, HttpClient::DownloadProgress progress)
    : m_sink(std::move(sink)),
      m_progress(std::move(progress)) {
    // What arrived during the pause is told at its end, so that a bar does not stand behind while
    // the server does.
    m_pause.setSingleShot(true);
    m_pause.setInterval(kProgressIntervalMs);
    QObject::connect(&m_pause, &QTimer::timeout, &m_pause, [this] {
        if (m_reported != m_received)
            report();
    });
}

SinkBody::~SinkBody() = default;

Result<bool> SinkBody::begin(int status, qint64 announced) {
    if (status != 200)
        return false;
    m_announced = announced;
    m_writer = std::make_unique<DownloadWriter>(std::move(m_sink));
    m_writer->onRoom = [this] { onRoom(); };
    m_writer->onError = [this](const Error &error) { onError(error); };
    m_writer->start();
    return true;
}

qint64 SinkBody::room() const {
    return m_writer ? m_writer->room() : 0;
}

Failure SinkBody::add(const QByteArray &bytes) {
    m_received += bytes.size();
    m_writer->write(bytes);
    if (m_progress && (!m_pause.isActive() || m_received == m_announced))
        report();
    return std::nullopt;
}

void SinkBody::report() {
    m_reported = m_received;
    m_pause.start();
    m_progress(m_received, m_announced);
}

void SinkBody::end(bool complete, std::function<void(const Failure &)> done) {
    m_pause.stop();
    if (m_writer) {
        m_writer->end(complete, std::move(done));
        return;
    }
    m_sink.reset();
    done(std::nullopt);
}

} // namespace quenda
