#pragma once
// Takes an input apart. Most targets read lines, so that a corpus file can be written and read by a
// person; numbers come from single bytes.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <algorithm>
#include <cstring>

namespace quenda::fuzz {

class Input {
public:
    explicit Input(QByteArrayView bytes) : m_left(bytes) {}

    bool atEnd() const { return m_left.isEmpty(); }

    /// Of the integer or float type `Number`; what is missing at the end counts as 0.
    template <typename Number>
    Number number() {
        Number value{};
        const QByteArrayView bytes = take(qsizetype(sizeof value));
        std::memcpy(&value, bytes.data(), size_t(bytes.size()));
        return value;
    }
    unsigned byte() { return number<unsigned char>(); }

    QByteArrayView take(qsizetype most) {
        const QByteArrayView taken = m_left.first(std::min(most, m_left.size()));
        m_left = m_left.sliced(taken.size());
        return taken;
    }
    /// Up to the next line feed, which is dropped.
    QByteArray line() {
        const qsizetype end = m_left.indexOf('\n');
        const QByteArray taken = take(end < 0 ? m_left.size() : end).toByteArray();
        take(1);
        return taken;
    }
    QString textLine() { return QString::fromUtf8(line()); }
    QByteArray rest() { return take(m_left.size()).toByteArray(); }

private:
    QByteArrayView m_left;
};

} // namespace quenda::fuzz
