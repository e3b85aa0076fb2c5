#pragma once
// What a fuzz target is: a function that takes any bytes and ends the program where the code under
// test breaks one of its promises. Each target registers itself; libFuzzer drives a program with
// one target in it (LibFuzzer.cpp), the ordinary tests replay the corpora (Replay.cpp).

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

namespace quenda::fuzz {

using Body = void (*)(QByteArrayView input);

struct Target {
    Target(const char *name, Body body);
    const char *name;
    Body body;
    const Target *next; ///< of the registered ones
};

/// The registered targets, linked by `next`.
const Target *targets();

/// An empty folder for this process, installed as Folders::current(); a Qt warning ends the
/// program from now on, since each is about something that was passed on unchecked.
void prepare();
const QString &home();

[[noreturn]] void broken(const char *promise, const char *file, int line, const QString &detail);

} // namespace quenda::fuzz

/// `QUENDA_FUZZ_TARGET(settings) { ... input ... }` defines and registers a target.
#define QUENDA_FUZZ_TARGET(NAME)                                                                   \
    static void fuzz_##NAME(QByteArrayView input);                                                 \
    static const quenda::fuzz::Target target_##NAME(#NAME, fuzz_##NAME);                           \
    static void fuzz_##NAME(QByteArrayView input)

#define PROMISE(CONDITION) PROMISE_SHOWING(CONDITION, QString())
#define PROMISE_SHOWING(CONDITION, DETAIL)                                                         \
    do {                                                                                           \
        if (!(CONDITION))                                                                          \
            quenda::fuzz::broken(#CONDITION, __FILE__, __LINE__, DETAIL);                          \
    } while (false)
