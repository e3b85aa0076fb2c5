#pragma once
// A pasteboard in memory, the paste key and the focus beside it; all write into one journal, so
// that tests can check the order of what happened.

#include "Platform/Accessibility.h"
#include "Platform/KeyPoster.h"
#include "Platform/Pasteboard.h"

#include <QStringList>

namespace quenda::fakes {

class FakePasteboard final : public Pasteboard {
public:
    explicit FakePasteboard(QStringList *journal = nullptr) : m_journal(journal) {}

    void prepareToRead() override { ++prepared; }
    void readItems(ItemsHandler handler) override;
    void clear() override;
    bool setString(const QString &text) override;
    bool writeItems(const PasteboardItems &items) override;
    std::int64_t changeCount() const override { return m_changeCount; }

    /// Another program puts something on the pasteboard.
    void copiedElsewhere(PasteboardItems items);
    static PasteboardItems plainText(const QString &text);
    /// The plain text that is on it; null where there is none.
    QString string() const;

    PasteboardItems items;
    bool slow = false; ///< readItems waits for deliver()
    bool refuseWrites = false;
    int prepared = 0;
    /// Answers all reads that are waiting.
    void deliver();

private:
    void note(const QString &entry);

    std::int64_t m_changeCount = 1;
    std::vector<ItemsHandler> m_waiting;
    QStringList *m_journal;
};

class FakeKeyPoster final : public KeyPoster {
public:
    explicit FakeKeyPoster(QStringList *journal = nullptr) : m_journal(journal) {}
    PostOutcome postPaste() override;

    bool refuse = false;
    int posted = 0;

private:
    QStringList *m_journal;
};

class FakeAccessibility final : public Accessibility {
public:
    explicit FakeAccessibility(QStringList *journal = nullptr) : m_journal(journal) {}
    bool isTrusted(TrustPrompt prompt) const override;
    bool focusedElementExists() const override;

    bool trusted = true;
    bool focused = true;
    mutable int prompts = 0;
    mutable int trustChecks = 0;

private:
    QStringList *m_journal;
};

} // namespace quenda::fakes
