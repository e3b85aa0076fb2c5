// Tells the thread sanitizer what it cannot see, since the libraries were built without it. A part
// of every program of ours in builds with that sanitizer, and in those only. Without this it takes
// each task that a thread hands to another one's event loop for a race; to name Qt as a whole in
// Tests/tsan.supp instead would hide all that the main thread does, which Qt calls.

#include <QCoreApplication>
#include <QObject>
#include <QRunnable>
#include <QThreadPool>

#include <dlfcn.h>
#include <glib.h>
#include <poll.h>
#include <sanitizer/tsan_interface.h>
#include <sched.h>

#include <cstdarg>
#include <functional>
#include <utility>

namespace {

template <typename Function>
Function original(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/// A task on its way through Qt: all that went before the handing over goes before its run.
class HandedOver final : public QtPrivate::QSlotObjectBase {
public:
    explicit HandedOver(QSlotObjectBase *task) : QSlotObjectBase(&HandedOver::act), m_task(task) {
        __tsan_release(this);
    }

private:
    static void act(int which, QSlotObjectBase *base, QObject *receiver, void **arguments,
                    bool *same) {
        auto *const self = static_cast<HandedOver *>(base);
        __tsan_acquire(self);
        switch (which) {
        case Destroy:
            self->m_task->destroyIfLastRef();
            delete self;
            break;
        case Call:
            self->m_task->call(receiver, arguments);
            __tsan_release(self); // either thread may be the one that lets it go
            break;
        case Compare:
            *same = self->m_task->compare(arguments);
            break;
        default:
            break;
        }
    }

    QSlotObjectBase *const m_task;
};

/// The same for Qt's pool of threads, which deletes it.
class PooledTask final : public QRunnable {
public:
    explicit PooledTask(std::function<void()> task) : m_task(std::move(task)) {
        __tsan_release(this);
    }

private:
    void run() override {
        __tsan_acquire(this);
        m_task();
    }

    const std::function<void()> m_task;
};

// What Qt calls before each event is delivered.
bool eventDelivered(void **receiverEventResult) {
    __tsan_acquire(receiverEventResult[1]);
    return false; // it goes its way
}

[[maybe_unused]] const bool kSeesEvents =
    QInternal::registerCallback(QInternal::EventNotifyCallback, &eventDelivered);

// Within a call that a library makes the sanitizer notes a signal for later, and the main thread
// waits within GLib's. From here it counts as our own, and the handler is called at once.
gint waitHere(GPollFD *descriptors, guint count, gint timeout) {
    static_assert(sizeof(GPollFD) == sizeof(pollfd));
    return poll(reinterpret_cast<pollfd *>(descriptors), count, timeout);
}

[[maybe_unused]] const bool kWaitsHere = [] {
    g_main_context_set_poll_func(g_main_context_default(), &waitHere);
    return true;
}();

} // namespace

// In place of Qt's own, for calls from our code.

bool QMetaObject::invokeMethodImpl(QObject *object, QtPrivate::QSlotObjectBase *slot,
                                   Qt::ConnectionType type, void *result) {
    using Function = bool (*)(QObject *, QtPrivate::QSlotObjectBase *, Qt::ConnectionType, void *);
    static const auto next = original<Function>(
        "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseE"
        "N2Qt14ConnectionTypeEPv");
    return next(object, new HandedOver(slot), type, result);
}

void QCoreApplication::postEvent(QObject *receiver, QEvent *event, int priority) {
    using Function = void (*)(QObject *, QEvent *, int);
    static const auto next =
        original<Function>("_ZN16QCoreApplication9postEventEP7QObjectP6QEventi");
    __tsan_release(event);
    next(receiver, event, priority);
}

void QThreadPool::start(std::function<void()> task, int priority) {
    start(new PooledTask(std::move(task)), priority);
}

// A child that Qt starts shares its parent's memory until it has become another program. Some of
// that is the sanitizer's: what the child does with its signals would count for the parent too,
// whose handlers were never called again. Here it gets memory of its own.
extern "C" int clone(int (*run)(void *), void *stack, int flags, void *argument, ...) {
    va_list more;
    va_start(more, argument);
    void *const parentId = va_arg(more, void *);
    void *const storage = va_arg(more, void *);
    void *const childId = va_arg(more, void *);
    va_end(more);
    using Function = int (*)(int (*)(void *), void *, int, void *, ...);
    static const auto next = original<Function>("clone");
    const int parted = (flags & CLONE_THREAD) ? flags : flags & ~(CLONE_VM | CLONE_VFORK);
    return next(run, stack, parted, argument, parentId, storage, childId);
}
