#include "Fakes/FakePasteboard.h"

#include <utility>

namespace quenda::fakes {

namespace {
const QString kPlainText = QStringLiteral("text/plain");
}

void FakePasteboard::note(const QString &entry) {
    if (m_journal)
        m_journal->append(entry);
}

void FakePasteboard::readItems(ItemsHandler handler) {
    note(QStringLiteral("read"));
    if (slow)
        m_waiting.push_back(std::move(handler));
    else
        handler(items);
}

void FakePasteboard::deliver() {
    const std::vector<ItemsHandler> waiting = std::exchange(m_waiting, {});
    for (const ItemsHandler &handler : waiting)
        handler(items);
}

void FakePasteboard::clear() {
    note(QStringLiteral("clear"));
    items.clear();
    ++m_changeCount;
}

bool FakePasteboard::setString(const QString &text) {
    note(QStringLiteral("setString ") + text);
    ++m_changeCount;
    items = refuseWrites ? PasteboardItems{} : plainText(text);
    return !refuseWrites;
}

bool FakePasteboard::writeItems(const PasteboardItems &written) {
    note(QStringLiteral("writeItems"));
    ++m_changeCount;
    items = refuseWrites ? PasteboardItems{} : written;
    return !refuseWrites;
}

void FakePasteboard::copiedElsewhere(PasteboardItems others) {
    items = std::move(others);
    ++m_changeCount;
}

PasteboardItems FakePasteboard::plainText(const QString &text) {
    return {PasteboardItem{{{kPlainText, text.toUtf8()}}}};
}

QString FakePasteboard::string() const {
    for (const PasteboardItem &item : items) {
        for (const auto &[type, bytes] : item.types) {
            if (type == kPlainText)
                return QString::fromUtf8(bytes);
        }
    }
    return {};
}

PostOutcome FakeKeyPoster::postPaste() {
    if (m_journal)
        m_journal->append(QStringLiteral("paste"));
    if (refuse)
        return PostOutcome::Refused;
    ++posted;
    return PostOutcome::Posted;
}

bool FakeAccessibility::isTrusted(TrustPrompt prompt) const {
    ++trustChecks;
    if (prompt == TrustPrompt::Ask)
        ++prompts;
    return trusted;
}

bool FakeAccessibility::focusedElementExists() const {
    if (m_journal)
        m_journal->append(QStringLiteral("focus?"));
    return focused;
}

} // namespace quenda::fakes
