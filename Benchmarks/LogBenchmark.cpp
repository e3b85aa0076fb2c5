// What a line of the log costs its caller, beside spdlog's asynchronous logger with the same line
// and the same timestamp, both into a file of a temporary folder. spdlog runs as its documentation
// proposes: one worker thread, a queue of 8192 messages, the policy that blocks the caller when the
// queue is full. No burst here fills either queue, so that neither logger blocks or drops; each
// burst is written to its end outside the measured time.

#include "Platform/Folders.h"
#include "Quenda/Log.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// The line that the program writes when a dictation ends without a focused field: plain text, and
// long for this log.
const QString &line() {
    static const QString text =
        QStringLiteral("insert: no focused text element - left transcript on clipboard");
    return text;
}

class QuendaLogger {
public:
    void log() { quenda::Log::log(line()); }
    void drain(std::uint64_t) { quenda::Log::flush(); }
};

// Writes like spdlog's own file sink, and counts, which tells when a burst is written.
class CountingFileSink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit CountingFileSink(const std::string &path) : m_file(path) {}
    std::uint64_t lines() const { return m_lines.load(std::memory_order_acquire); }

protected:
    void sink_it_(const spdlog::details::log_msg &message) override {
        m_file.log(message);
        m_lines.fetch_add(1, std::memory_order_release);
    }
    void flush_() override { m_file.flush(); }
    void set_pattern_(const std::string &pattern) override { m_file.set_pattern(pattern); }
    void set_formatter_(std::unique_ptr<spdlog::formatter> formatter) override {
        m_file.set_formatter(std::move(formatter));
    }

private:
    spdlog::sinks::basic_file_sink_st m_file;
    std::atomic<std::uint64_t> m_lines = 0;
};

class SpdlogLogger {
public:
    SpdlogLogger()
        : m_pool(std::make_shared<spdlog::details::thread_pool>(8192, 1)),
          m_sink(std::make_shared<CountingFileSink>(
              m_folder.filePath(QStringLiteral("spdlog.log")).toStdString())),
          m_logger(std::make_shared<spdlog::async_logger>("log", m_sink, m_pool,
                                                          spdlog::async_overflow_policy::block)) {
        m_logger->set_pattern("%Y-%m-%d %H:%M:%S %v");
    }
    void log() { m_logger->info(m_text); }
    void drain(std::uint64_t lines) {
        m_submitted += lines;
        while (m_sink->lines() < m_submitted)
            std::this_thread::sleep_for(std::chrono::microseconds(50));
    }

private:
    const std::string m_text = line().toStdString();
    QTemporaryDir m_folder;
    std::shared_ptr<spdlog::details::thread_pool> m_pool;
    std::shared_ptr<CountingFileSink> m_sink;
    std::shared_ptr<spdlog::async_logger> m_logger;
    std::uint64_t m_submitted = 0;
};

// Medians: on a machine that does other things as well, means tell of those.
void report(benchmark::State &state, std::vector<double> &seconds) {
    const auto middle = seconds.begin() + std::ptrdiff_t(seconds.size() / 2);
    std::nth_element(seconds.begin(), middle, seconds.end());
    state.counters["median_ns_per_line"] = *middle * 1e9;
}

// The time a caller is held by one of `state.range(0)` lines in a row. A burst of one finds the
// log's thread asleep and has to wake it.
template <typename Logger>
void oneCaller(benchmark::State &state) {
    Logger logger;
    const auto burst = state.range(0);
    std::vector<double> seconds;
    for (auto _ : state) {
        const auto start = Clock::now();
        for (std::int64_t i = 0; i < burst; ++i)
            logger.log();
        const std::chrono::duration<double> spent = Clock::now() - start;
        seconds.push_back(spent.count() / double(burst));
        state.SetIterationTime(seconds.back());
        logger.drain(std::uint64_t(burst));
        std::this_thread::sleep_for(std::chrono::microseconds(200)); // let the thread fall asleep
    }
    report(state, seconds);
}

// The same for several callers at once, each with a burst of its own.
template <typename Logger>
void fourCallers(benchmark::State &state) {
    constexpr int kCallers = 4;
    Logger logger;
    const auto burst = state.range(0);
    std::vector<double> seconds;
    for (auto _ : state) {
        std::atomic<int> ready = 0;
        std::atomic<double> spent = 0;
        std::vector<std::thread> callers;
        for (int t = 0; t < kCallers; ++t)
            callers.emplace_back([&] {
                ++ready;
                while (ready < kCallers)
                    std::this_thread::yield();
                const auto start = Clock::now();
                for (std::int64_t i = 0; i < burst; ++i)
                    logger.log();
                spent += std::chrono::duration<double>(Clock::now() - start).count();
            });
        for (std::thread &caller : callers)
            caller.join();
        seconds.push_back(spent / kCallers / double(burst));
        state.SetIterationTime(seconds.back());
        logger.drain(std::uint64_t(burst * kCallers));
    }
    report(state, seconds);
}

BENCHMARK(oneCaller<QuendaLogger>)->Arg(1)->UseManualTime()->Iterations(2000);
BENCHMARK(oneCaller<SpdlogLogger>)->Arg(1)->UseManualTime()->Iterations(2000);
BENCHMARK(oneCaller<QuendaLogger>)->Arg(1000)->UseManualTime()->Iterations(300);
BENCHMARK(oneCaller<SpdlogLogger>)->Arg(1000)->UseManualTime()->Iterations(300);
BENCHMARK(fourCallers<QuendaLogger>)->Arg(500)->UseManualTime()->Iterations(200);
BENCHMARK(fourCallers<SpdlogLogger>)->Arg(500)->UseManualTime()->Iterations(200);

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    const QTemporaryDir home;
    quenda::Folders folders;
    folders.logs = home.path();
    quenda::Folders::install(folders);
    benchmark::RunSpecifiedBenchmarks();
    quenda::Log::flush();
    benchmark::Shutdown();
    return 0;
}
