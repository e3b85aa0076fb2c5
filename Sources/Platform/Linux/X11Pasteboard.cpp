#include "Platform/Linux/X11Pasteboard.h"

#include <QHash>
#include <QString>

#include <algorithm>
#include <chrono>
#include <utility>

namespace quenda {

namespace {
// Less than the 150 ms that a read may take, for the way to the handler.
constexpr std::chrono::milliseconds kReadTime{140};
// A transcript is rarely longer in the making.
constexpr std::chrono::seconds kPreparedFor{10};
constexpr std::size_t kMaxForms = 512;
} // namespace

X11Pasteboard::X11Pasteboard(const QByteArray &display)
    : m_thread(display, {[this](std::shared_ptr<SelectionFetch> fetch) {
                             QMetaObject::invokeMethod(
                                 &m_receiver,
                                 [this, fetch = std::move(fetch)] { handleFetched(fetch); },
                                 Qt::QueuedConnection);
                         },
                         [this] {
                             QMetaObject::invokeMethod(
                                 &m_receiver, [this] { handleChanged(); }, Qt::QueuedConnection);
                         }}) {
    m_deadline.setSingleShot(true);
    m_deadline.setTimerType(Qt::PreciseTimer);
    QObject::connect(&m_deadline, &QTimer::timeout, &m_receiver, [this] { handleDeadline(); });
    m_expiry.setSingleShot(true);
    m_expiry.setInterval(kPreparedFor);
    QObject::connect(&m_expiry, &QTimer::timeout, &m_receiver, [this] {
        if (m_reads.empty())
            dropFetch();
    });
}

X11Pasteboard::~X11Pasteboard() {
    dropFetch();
}

bool X11Pasteboard::ownsClipboard() const {
    return m_ownCount != 0 && m_ownCount == m_thread.changeCount();
}

bool X11Pasteboard::fetchIsCurrent() const {
    // One that runs is led to the newest contents by the clipboard thread.
    return m_fetch && (!m_fetch->complete() || m_fetch->tag() == m_thread.changeCount());
}

void X11Pasteboard::startFetch() {
    dropFetch();
    m_fetch = std::make_shared<SelectionFetch>();
    m_thread.startFetch(m_fetch);
}

void X11Pasteboard::dropFetch() {
    m_expiry.stop();
    if (m_fetch)
        m_thread.cancelFetch(m_fetch);
    m_fetch.reset();
}

void X11Pasteboard::prepareToRead() {
    if (ownsClipboard())
        return;
    if (!fetchIsCurrent())
        startFetch();
    m_expiry.start();
}

void X11Pasteboard::readItems(ItemsHandler handler) {
    m_reads.push_back({std::move(handler), QDeadlineTimer(kReadTime, Qt::PreciseTimer), {}});
    if (ownsClipboard()) {
        m_reads.back().answer = itemsOf(m_own);
        flush();
        return;
    }
    if (!fetchIsCurrent())
        startFetch();
    if (m_fetch->complete()) {
        const std::shared_ptr<SelectionFetch> fetch = m_fetch;
        dropFetch();
        answerAll(itemsOf(fetch->contents()));
        return;
    }
    if (!m_deadline.isActive())
        m_deadline.start(kReadTime);
}

void X11Pasteboard::handleFetched(const std::shared_ptr<SelectionFetch> &fetch) {
    if (fetch != m_fetch || m_reads.empty())
        return;
    if (ownsClipboard()) {
        answerAll(itemsOf(m_own));
    } else if (!fetchIsCurrent()) {
        startFetch(); // within the time of the reads that wait
    } else {
        dropFetch();
        answerAll(itemsOf(fetch->contents()));
    }
}

// Lets go of memory that is of no use any more.
void X11Pasteboard::handleChanged() {
    if (!ownsClipboard()) {
        m_own.clear();
        m_ownCount = 0;
    }
    if (m_reads.empty() && !fetchIsCurrent())
        dropFetch();
}

// The first read's time is up: it gets what has arrived. Later ones wait on.
void X11Pasteboard::handleDeadline() {
    const PasteboardItems arrived = m_fetch ? itemsOf(m_fetch->contents()) : PasteboardItems();
    for (Read &read : m_reads) {
        if (!read.answer && read.deadline.hasExpired())
            read.answer = arrived;
    }
    const auto waiting =
        std::find_if(m_reads.begin(), m_reads.end(), [](const Read &read) { return !read.answer; });
    if (waiting == m_reads.end())
        dropFetch();
    else
        m_deadline.start(std::max<int>(1, int(waiting->deadline.remainingTime())));
    flush();
}

void X11Pasteboard::answerAll(const PasteboardItems &items) {
    for (Read &read : m_reads) {
        if (!read.answer)
            read.answer = items;
    }
    flush();
}

// A handler may read or write again.
void X11Pasteboard::flush() {
    while (!m_reads.empty() && m_reads.front().answer) {
        const Read read = std::move(m_reads.front());
        m_reads.pop_front();
        read.handler(*read.answer);
    }
    if (m_reads.empty())
        m_deadline.stop();
}

bool X11Pasteboard::write(const SelectionContents &contents) {
    // Reads that wait get what is there from now on, from the event loop.
    dropFetch();
    const std::optional<std::int64_t> count = m_thread.own(contents);
    m_own = count ? contents : SelectionContents();
    m_ownCount = count.value_or(0);
    m_mark = count;
    for (Read &read : m_reads) {
        if (!read.answer)
            read.answer = itemsOf(m_own);
    }
    if (!m_reads.empty())
        m_deadline.start(0);
    return count.has_value();
}

void X11Pasteboard::clear() {
    write({});
}

bool X11Pasteboard::setString(const QString &text) {
    return write(plainTextContents(text));
}

bool X11Pasteboard::writeItems(const PasteboardItems &items) {
    return write(contentsOf(items));
}

std::int64_t X11Pasteboard::changeCount() const {
    const std::optional<std::int64_t> mark = std::exchange(m_mark, std::nullopt);
    return mark ? *mark : m_thread.changeCount();
}

bool X11Pasteboard::mirrorClipboardText() {
    return m_thread.ownPrimary();
}

PasteboardItems X11Pasteboard::itemsOf(const SelectionContents &contents) {
    PasteboardItem item;
    for (const SelectionData &data : contents) {
        item.types.emplace_back(QString::fromLatin1(data.target), data.bytes);
        if (data.type == data.target && data.format == 8)
            continue;
        m_forms.push_front(
            {data.target, data.bytes.size(), qHash(data.bytes), data.type, data.format});
    }
    if (m_forms.size() > kMaxForms)
        m_forms.resize(kMaxForms);
    return item.types.empty() ? PasteboardItems() : PasteboardItems{item};
}

SelectionContents X11Pasteboard::contentsOf(const PasteboardItems &items) const {
    SelectionContents contents;
    for (const PasteboardItem &item : items) {
        for (const auto &type : item.types) {
            const QByteArray target = type.first.toLatin1();
            const QByteArray &bytes = type.second;
            const bool there =
                std::any_of(contents.begin(), contents.end(),
                            [&](const SelectionData &data) { return data.target == target; });
            if (there || isPseudoTarget(target))
                continue;
            SelectionData data{target, target, 8, bytes};
            // TEXT leaves its type to the owner and is never a type itself.
            if (target == "TEXT")
                data.type = "UTF8_STRING";
            const auto form = std::find_if(m_forms.begin(), m_forms.end(), [&](const Form &each) {
                return each.target == target && each.size == bytes.size() &&
                       each.hash == qHash(bytes);
            });
            if (form != m_forms.end()) {
                data.type = form->type;
                data.format = form->format;
            }
            contents.push_back(std::move(data));
        }
    }
    return contents;
}

} // namespace quenda
