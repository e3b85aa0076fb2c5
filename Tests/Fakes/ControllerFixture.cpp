#include "Fakes/ControllerFixture.h"

#include "Quenda/Log.h"
#include "Quenda/PillPanel.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

namespace quenda::fakes {

using namespace std::chrono_literals;

ControllerFixture::ControllerFixture() {
    defaults = std::make_unique<QSettings>(testHome() + QStringLiteral("/defaults.ini"),
                                           QSettings::IniFormat);
    // Most tests are not about the first launch.
    defaults->setValue(QStringLiteral("hasSeenWelcome"), true);
}

ControllerFixture::~ControllerFixture() {
    dismissAlerts();
    controller.reset();
    Log::flush();
}

void ControllerFixture::writeConfig(const Config &config) {
    config.save();
}

void ControllerFixture::launch() {
    controller = std::make_unique<AppDelegate>(AppDelegate::Environment{
        fake.platform, scheduler, http, *defaults, [this] { ++terminations; }});
    controller->applicationDidFinishLaunching();
}

void ControllerFixture::installEngine() {
    const QString bin = testHome() + QStringLiteral("/resources/bin");
    QDir().mkpath(bin);
    fake.bundle->resources = testHome() + QStringLiteral("/resources");
    QFile server(bin + QStringLiteral("/whisper-server"));
    ASSERT_TRUE(server.open(QIODevice::WriteOnly));
    server.write("#!/bin/sh\n");
    server.setPermissions(server.permissions() | QFileDevice::ExeOwner | QFileDevice::ExeUser);
    server.close();
    QDir().mkpath(Config::modelsDir());
    QFile model(Config::defaults().modelPath);
    ASSERT_TRUE(model.open(QIODevice::WriteOnly));
    model.write("model");
}

void ControllerFixture::becomeReady() {
    while (FakeHttpClient::Exchange *open = http.oldestOpen()) {
        if (open->request.method != "GET")
            break;
        http.answer(200, "ok");
        advance(0ms);
    }
}

void ControllerFixture::launchReady() {
    installEngine();
    launch();
    becomeReady();
    ASSERT_EQ(engineKind(), WhisperEngine::State::Kind::ready);
}

void ControllerFixture::pressKey() {
    fake.keyTaps->flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    advance(0ms);
}

void ControllerFixture::releaseKey() {
    fake.keyTaps->flagsChanged(keys::kRightOption, 0);
    advance(0ms);
}

void ControllerFixture::pressEscape() {
    fake.keyTaps->keyDown(keys::kEscape);
    advance(0ms);
}

void ControllerFixture::dictate(double seconds, float peak) {
    pressKey();
    fake.audioInput->speak(seconds, peak);
    advance(std::chrono::milliseconds(qint64(seconds * 1000)));
    releaseKey();
}

void ControllerFixture::answerTranscript(const QString &text) {
    // The update check may be under way beside it.
    while (http.oldestOpen() && http.oldestOpen()->request.method == "GET")
        http.fail(Error{QStringLiteral("test"), 1, QStringLiteral("not reached")});
    QJsonObject answer;
    answer.insert(QStringLiteral("text"), text);
    http.answer(200, QJsonDocument(answer).toJson(QJsonDocument::Compact));
    advance(0ms);
}

QList<QMessageBox *> ControllerFixture::alerts() {
    QList<QMessageBox *> found;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        auto *box = qobject_cast<QMessageBox *>(widget);
        if (box && box->isVisible())
            found.append(box);
    }
    return found;
}

QString ControllerFixture::alertTitle() {
    const QList<QMessageBox *> shown = alerts();
    return shown.size() == 1 ? shown.first()->text() : QString();
}

QString ControllerFixture::alertText() {
    const QList<QMessageBox *> shown = alerts();
    return shown.size() == 1 ? shown.first()->informativeText() : QString();
}

void ControllerFixture::dismissAlerts() {
    for (QMessageBox *box : alerts())
        delete box;
}

QString ControllerFixture::pillText() {
    if (!controller->indicator().isVisible())
        return {};
    return controller->indicator().panel()->label();
}

QStringList ControllerFixture::logLines() {
    Log::flush();
    QFile file(Log::fileURL());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    lines.removeLast();
    for (QString &line : lines)
        line.remove(0, int(qstrlen("yyyy-MM-dd HH:mm:ss ")));
    return lines;
}

} // namespace quenda::fakes
