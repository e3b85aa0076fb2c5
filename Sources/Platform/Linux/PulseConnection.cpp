#include "Platform/Linux/PulseConnection.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <utility>

namespace quenda {

namespace {

using namespace std::chrono_literals;

// An attempt that takes longer has met a server that hangs.
constexpr auto kAttemptLimit = 5s;
// A server that restarts is back soon; one that was never there costs little to look for.
constexpr auto kFirstPause = 250ms;
constexpr auto kLongestPause = 8000ms;

// libpulse reads one part of a message (its header, its payload) in a turn of its loop. More than
// two messages are hardly ever waiting.
constexpr int kCatchUpTurns = 8;

void release(pa_operation *operation) {
    if (operation)
        pa_operation_unref(operation);
}

bool isRefusal(int error) {
    return error == PA_ERR_ACCESS || error == PA_ERR_AUTHKEY;
}

PulseSource described(const pa_source_info &info) {
    PulseSource source;
    source.name = QString::fromUtf8(info.name);
    source.description = QString::fromUtf8(info.description).simplified();
    source.index = info.index;
    if (pa_sample_spec_valid(&info.sample_spec))
        source.format = {double(info.sample_spec.rate), info.sample_spec.channels};
    source.channelMap = info.channel_map;
    source.isMonitor = info.monitor_of_sink != PA_INVALID_INDEX;
    source.isPluggedIn = !info.active_port || info.active_port->available != PA_PORT_AVAILABLE_NO;
    return source;
}

} // namespace

PulseConnection::PulseConnection()
    : m_loop(pa_threaded_mainloop_new()),
      m_wakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!m_loop || m_wakeFd < 0) {
        m_state.server = PulseState::Server::Unreachable;
        return;
    }
    m_api = pa_threaded_mainloop_get_api(m_loop);
    m_wakeEvent = m_api->io_new(
        m_api, m_wakeFd, PA_IO_EVENT_INPUT,
        [](pa_mainloop_api *, pa_io_event *, int, pa_io_event_flags_t, void *self) {
            static_cast<PulseConnection *>(self)->runPosted();
        },
        this);
    post([](PulseConnection &self) { self.connectToServer(); });
    if (pa_threaded_mainloop_start(m_loop) < 0)
        m_state.server = PulseState::Server::Unreachable;
}

PulseConnection::~PulseConnection() {
    if (m_api) {
        pa_threaded_mainloop_stop(m_loop);
        // From here on this thread is the only one; what was still asked for closes streams.
        runPosted();
        dropContext();
        freeTimer(m_timer);
        m_api->io_free(m_wakeEvent);
    }
    if (m_loop)
        pa_threaded_mainloop_free(m_loop);
    if (m_wakeFd >= 0)
        ::close(m_wakeFd);
}

PulseState PulseConnection::state() const {
    const std::scoped_lock lock(m_mutex);
    return m_state;
}

void PulseConnection::post(Task task) {
    {
        const std::scoped_lock lock(m_mutex);
        m_posted.push_back(std::move(task));
    }
    wake();
}

void PulseConnection::wake() {
    const uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(m_wakeFd, &one, sizeof one); // full: awake anyway
}

void PulseConnection::runPosted() {
    uint64_t count = 0;
    [[maybe_unused]] const auto got = ::read(m_wakeFd, &count, sizeof count); // empties it
    std::vector<Task> tasks;
    {
        const std::scoped_lock lock(m_mutex);
        tasks.swap(m_posted);
    }
    for (const Task &task : tasks)
        task(*this);
}

void PulseConnection::catchUp(std::chrono::milliseconds limit, Task last) {
    struct Progress {
        std::mutex mutex;
        std::condition_variable changed;
        bool isDone = false;
        int turnsLeft = kCatchUpTurns; // of the connection's thread
        Task turn;
        Task last;
    };
    const auto progress = std::make_shared<Progress>();
    progress->last = std::move(last);
    progress->turn = [weak = std::weak_ptr(progress)](PulseConnection &self) {
        const auto held = weak.lock(); // gone where the wait was given up
        if (!held)
            return;
        if (--held->turnsLeft > 0) {
            self.post(held->turn);
            return;
        }
        held->last(self);
        const std::scoped_lock lock(held->mutex);
        held->isDone = true;
        held->changed.notify_all();
    };
    post(progress->turn);
    std::unique_lock lock(progress->mutex);
    progress->changed.wait_for(lock, limit, [&] { return progress->isDone; });
}

void PulseConnection::callMainThread(std::function<void()> task) {
    QMetaObject::invokeMethod(this, std::move(task), Qt::QueuedConnection);
}

pa_time_event *PulseConnection::newTimer(std::chrono::milliseconds delay,
                                         pa_time_event_cb_t callback, void *userData) {
    timeval when{};
    pa_gettimeofday(&when);
    pa_timeval_add(&when, pa_usec_t(delay.count()) * PA_USEC_PER_MSEC);
    return m_api->time_new(m_api, &when, callback, userData);
}

void PulseConnection::freeTimer(pa_time_event *&timer) {
    if (timer)
        m_api->time_free(std::exchange(timer, nullptr));
}

void PulseConnection::connectToServer() {
    freeTimer(m_timer);
    pa_proplist *properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, "Quenda");
    pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, "org.quenda.Quenda");
    pa_proplist_sets(properties, PA_PROP_APPLICATION_ICON_NAME, "audio-input-microphone");
    m_context = pa_context_new_with_proplist(m_api, "Quenda", properties);
    pa_proplist_free(properties);
    if (!m_context) {
        connectionLost(PA_ERR_INTERNAL);
        return;
    }
    pa_context_set_state_callback(
        m_context,
        [](pa_context *, void *self) {
            static_cast<PulseConnection *>(self)->contextStateChanged();
        },
        this);
    m_timer = newTimer(
        kAttemptLimit,
        [](pa_mainloop_api *, pa_time_event *, const timeval *, void *self) {
            static_cast<PulseConnection *>(self)->connectionLost(PA_ERR_TIMEOUT);
        },
        this);
    if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0 && m_context)
        connectionLost(pa_context_errno(m_context));
}

void PulseConnection::contextStateChanged() {
    switch (pa_context_get_state(m_context)) {
    case PA_CONTEXT_READY:
        m_isConnected = true;
        pa_context_set_subscribe_callback(
            m_context,
            [](pa_context *, pa_subscription_event_type_t, uint32_t, void *self) {
                static_cast<PulseConnection *>(self)->refresh();
            },
            this);
        release(pa_context_subscribe(
            m_context,
            pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_SOURCE),
            nullptr, nullptr));
        refresh();
        break;
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        connectionLost(pa_context_errno(m_context));
        break;
    default:
        break;
    }
}

// Streams of the context report their own end when it is disconnected.
void PulseConnection::dropContext() {
    m_isConnected = false;
    m_isRefreshing = false;
    m_refreshAgain = false;
    pa_context *const context = std::exchange(m_context, nullptr);
    if (!context)
        return;
    pa_context_set_state_callback(context, nullptr, nullptr);
    pa_context_set_subscribe_callback(context, nullptr, nullptr);
    pa_context_disconnect(context);
    pa_context_unref(context); // libpulse holds its own reference during its callbacks
}

void PulseConnection::connectionLost(int error) {
    freeTimer(m_timer);
    dropContext();
    m_defaultSource.clear();
    m_sources.clear();
    publish(isRefusal(error) ? PulseState::Server::Refused : PulseState::Server::Unreachable);
    runWaiting();
    const int doublings = std::min(m_failedAttempts++, 5);
    m_timer = newTimer(
        std::min<std::chrono::milliseconds>(kFirstPause * (1 << doublings), kLongestPause),
        [](pa_mainloop_api *, pa_time_event *, const timeval *, void *self) {
            static_cast<PulseConnection *>(self)->connectToServer();
        },
        this);
}

// One question at a time; events that come meanwhile ask again afterwards.
void PulseConnection::refresh() {
    if (!m_isConnected)
        return;
    if (m_isRefreshing) {
        m_refreshAgain = true;
        return;
    }
    m_isRefreshing = true;
    m_listed.clear();
    release(pa_context_get_server_info(
        m_context,
        [](pa_context *, const pa_server_info *info, void *data) {
            auto &self = *static_cast<PulseConnection *>(data);
            self.m_defaultSource = info ? QString::fromUtf8(info->default_source_name) : QString();
        },
        this));
    release(pa_context_get_source_info_list(
        m_context,
        [](pa_context *, const pa_source_info *info, int endOfList, void *self) {
            static_cast<PulseConnection *>(self)->sourceListed(info, endOfList);
        },
        this));
}

void PulseConnection::sourceListed(const pa_source_info *info, int endOfList) {
    if (endOfList == 0) {
        m_listed.push_back(described(*info));
        return;
    }
    const bool refused = endOfList < 0 && isRefusal(pa_context_errno(m_context));
    m_sources = std::exchange(m_listed, {});
    m_isRefreshing = false;
    m_failedAttempts = 0;
    freeTimer(m_timer);

    const bool isKnown =
        m_defaultSource.isEmpty() ||
        std::any_of(m_sources.begin(), m_sources.end(),
                    [this](const PulseSource &each) { return each.name == m_defaultSource; });
    const bool again = std::exchange(m_refreshAgain, false);
    // The two answers were given one after the other. Where they do not fit together, and news of
    // that has come, only the next answers tell whether the default has really gone.
    if (isKnown || !again)
        publish(refused ? PulseState::Server::Refused : PulseState::Server::Ready);
    if (again)
        refresh();
    else
        runWaiting();
}

std::optional<PulseSource> PulseConnection::chosenMicrophone() const {
    const auto found =
        std::find_if(m_sources.begin(), m_sources.end(),
                     [this](const PulseSource &each) { return each.name == m_defaultSource; });
    if (found == m_sources.end() || !(found->format.sampleRate > 0))
        return {};
    const auto isRival = [](const PulseSource &each) {
        return !each.isMonitor && each.isPluggedIn;
    };
    if (found->isMonitor && std::none_of(m_sources.begin(), m_sources.end(), isRival))
        return {};
    return *found;
}

void PulseConnection::publish(PulseState::Server server) {
    std::optional<PulseSource> microphone = chosenMicrophone();
    bool hasChanged = false;
    {
        const std::scoped_lock lock(m_mutex);
        const auto &before = m_state.microphone;
        hasChanged =
            m_state.server != PulseState::Server::Connecting &&
            (before ? before->name : QString()) != (microphone ? microphone->name : QString());
        m_state.server = server;
        m_state.microphone = std::move(microphone);
    }
    if (hasChanged)
        callMainThread([this] { Q_EMIT microphoneChanged(); });
}

std::optional<bool> PulseConnection::mayRecordFrom(quint32 sourceIndex) const {
    const auto found =
        std::find_if(m_sources.begin(), m_sources.end(),
                     [sourceIndex](const PulseSource &each) { return each.index == sourceIndex; });
    if (found == m_sources.end())
        return {};
    const std::optional<PulseSource> microphone = chosenMicrophone();
    return !found->isMonitor || (microphone && microphone->index == sourceIndex);
}

void PulseConnection::whenRefreshed(Task task) {
    m_waiting.push_back(std::move(task));
    if (m_isConnected)
        refresh();
    else if (!m_context)
        runWaiting();
}

void PulseConnection::runWaiting() {
    for (const Task &task : std::exchange(m_waiting, {}))
        task(*this);
}

} // namespace quenda
