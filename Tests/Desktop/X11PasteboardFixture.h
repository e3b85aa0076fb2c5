#pragma once
// What the tests of the X11 pasteboard share. They run on a real X server (with-x-server), with
// xclip and bare clients as the other programs.

#include "Fakes/TestMain.h"
#include "Platform/Linux/X11Pasteboard.h"
#include "RawX11Client.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QThread>
#include <QTimer>

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>

namespace quenda::tests {

/// Ends with its owner.
struct Program : QProcess {
    ~Program() override {
        kill();
        waitForFinished();
    }
};

class X11PasteboardTest : public testing::Test {
protected:
    struct ReadResult {
        std::optional<PasteboardItems> items;
        bool atOnce = false; ///< before readItems() returned
        bool ticked = false; ///< the event loop ran while the read was pending
        qint64 milliseconds = 0;
    };

    X11PasteboardTest() {
        pasteboard = std::make_unique<X11Pasteboard>();
        pasteboard->clear();
    }

    /// Runs the event loop until `holds`; false when it does not within ten seconds.
    static bool waitUntil(const std::function<bool()> &holds, int milliseconds = 10000) {
        QElapsedTimer timer;
        timer.start();
        while (!holds()) {
            if (timer.elapsed() > milliseconds)
                return false;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            QThread::usleep(500);
        }
        return true;
    }
    static void spin(int milliseconds) {
        waitUntil([] { return false; }, milliseconds);
    }

    ReadResult read() {
        ReadResult result;
        QElapsedTimer timer;
        timer.start();
        pasteboard->readItems([&](PasteboardItems items) {
            EXPECT_FALSE(result.items) << "answered twice";
            result.items = std::move(items);
            result.milliseconds = timer.elapsed();
        });
        result.atOnce = result.items.has_value();
        QTimer ticker;
        QObject::connect(&ticker, &QTimer::timeout,
                         [&] { result.ticked = result.ticked || !result.items; });
        ticker.start(1);
        waitUntil([&] { return result.items.has_value(); });
        EXPECT_TRUE(result.items.has_value());
        if (!result.items)
            std::abort(); // the handler would come later, to this frame
        return result;
    }

    /// A program that puts `bytes` on the clipboard and stays.
    std::unique_ptr<Program> xclipOwner(const QString &target, const QByteArray &bytes) {
        const QString path = fakes::testHome() + QStringLiteral("/contents");
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
        file.close();
        const auto before = pasteboard->changeCount();
        auto process = std::make_unique<Program>();
        process->start(QStringLiteral("xclip"),
                       {QStringLiteral("-quiet"), QStringLiteral("-i"),
                        QStringLiteral("-selection"), QStringLiteral("clipboard"),
                        QStringLiteral("-t"), target, path});
        EXPECT_TRUE(process->waitForStarted());
        EXPECT_TRUE(waitUntil([&] { return pasteboard->changeCount() != before; }));
        return process;
    }

    /// An owner of the clipboard that behaves as the test says. The pasteboard knows of it already.
    std::unique_ptr<RawX11Owner> rawOwner(RawX11Owner::Behaviour behaviour) {
        const auto before = pasteboard->changeCount();
        auto owner = std::make_unique<RawX11Owner>(std::move(behaviour));
        EXPECT_TRUE(waitUntil([&] { return pasteboard->changeCount() != before; }));
        return owner;
    }

    /// What xclip prints of a selection while this thread stands still; null where it fails.
    static QByteArray xclipOutput(const QString &selection = QStringLiteral("clipboard"),
                                  const QString &target = QStringLiteral("UTF8_STRING")) {
        QProcess process;
        process.start(QStringLiteral("xclip"), {QStringLiteral("-o"), QStringLiteral("-selection"),
                                                selection, QStringLiteral("-t"), target});
        EXPECT_TRUE(process.waitForFinished(20000));
        return process.exitCode() == 0 ? process.readAllStandardOutput() : QByteArray();
    }

    static QByteArray noise(qsizetype size, unsigned seed = 1) {
        QByteArray bytes(size, Qt::Uninitialized);
        for (char &byte : bytes) {
            seed = seed * 1664525U + 1013904223U;
            byte = char(seed >> 24);
        }
        return bytes;
    }
    static PasteboardItems item(std::initializer_list<std::pair<const char *, QByteArray>> types) {
        PasteboardItem made;
        for (const auto &[name, bytes] : types)
            made.types.emplace_back(QString::fromLatin1(name), bytes);
        return {made};
    }
    static std::vector<QByteArray> typesOf(const PasteboardItems &items) {
        std::vector<QByteArray> types;
        for (const PasteboardItem &each : items) {
            for (const auto &[name, bytes] : each.types)
                types.push_back(name.toLatin1());
        }
        return types;
    }

    RawX11Client requestor;
    std::unique_ptr<X11Pasteboard> pasteboard;
};

} // namespace quenda::tests
