// A recogniser that stands for whisper-server in the demo and the desktop tests: the same command
// line, the same answers over HTTP, PocketSphinx behind them. Real use wants whisper.cpp.
//
// Controls for tests, read afresh at each use: the variable SPHINX_<NAME> of the environment, or a
// line NAME=VALUE in the file that SPHINX_CONTROL names, which wins.
//   MODEL_BYTES      the length of a whole model file; a shorter one does not load
//   LOAD_DELAY_MS    how much longer the model takes to load
//   ANSWER_DELAY_MS  how much longer an inference takes
//   ANSWER           garbage | no-text | error | crash | never, in place of the transcript
//   TEXT             a fixed transcript in place of the recognised one
//   API_KEY          the bearer key without which an inference is answered with 401

#include "HttpExchange.h"
#include "SphinxRecogniser.h"
#include "WavReader.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <thread>

namespace quenda::desktop {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::size_t shortestAudio = 1600; // 100 ms
constexpr int mostConnections = 64;

struct Options {
    std::string model = "models/ggml-base.en.bin";
    std::string host = "127.0.0.1";
    int port = 8080;
    std::string inferencePath = "/inference";
};

std::string control(const std::string &name) {
    if (const char *path = std::getenv("SPHINX_CONTROL")) {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            if (line.rfind(name + "=", 0) == 0)
                return line.substr(name.size() + 1);
        }
    }
    const char *value = std::getenv(("SPHINX_" + name).c_str());
    return value ? value : "";
}

int controlledNumber(const std::string &name) {
    const std::string text = control(name);
    int value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return std::max(value, 0);
}

milliseconds controlledDelay(const std::string &name) {
    return milliseconds(controlledNumber(name));
}

std::string jsonObject(const QString &key, const QJsonValue &value) {
    return QJsonDocument(QJsonObject{{key, value}}).toJson(QJsonDocument::Compact).toStdString();
}

/// The model file is asked for its length only: what is recognised with is Debian's model.
class Server {
public:
    explicit Server(Options options) : m_options(std::move(options)) {}

    bool load() {
        std::error_code unknown;
        const auto length = std::filesystem::file_size(m_options.model, unknown);
        if (unknown || length < std::uintmax_t(controlledNumber("MODEL_BYTES")))
            return false;
        m_recogniser = SphinxRecogniser::load();
        std::this_thread::sleep_for(controlledDelay("LOAD_DELAY_MS"));
        return m_recogniser != nullptr;
    }

    int run() {
        const int listener = listen();
        if (listener < 0) {
            std::fprintf(stderr, "cannot listen on %s:%d\n", m_options.host.c_str(),
                         m_options.port);
            return 1;
        }
        std::printf("whisper server listening at http://%s:%d\n", m_options.host.c_str(),
                    m_options.port);
        std::fflush(stdout);
        for (;;) {
            const int socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (socket < 0)
                continue;
            auto connection = std::make_shared<HttpConnection>(socket);
            if (m_connections >= mostConnections)
                continue;
            ++m_connections;
            std::thread([this, connection = std::move(connection)] {
                serve(*connection);
                --m_connections;
            }).detach();
        }
    }

private:
    int listen() const {
        const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        setsockopt(listener, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(m_options.port));
        const bool usable =
            inet_pton(AF_INET, m_options.host.c_str(), &address.sin_addr) == 1 &&
            bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
            ::listen(listener, 16) == 0;
        return usable ? listener : -1;
    }

    void serve(HttpConnection &connection) {
        while (auto request = connection.read()) {
            const auto reply = answerFor(*request, connection);
            if (!reply || !connection.answer(*request, *reply) || !request->keepAlive)
                return;
        }
    }

    /// Nothing if the request is to stay without an answer.
    std::optional<HttpAnswer> answerFor(const HttpRequest &request, HttpConnection &connection) {
        if (request.path == "/health")
            return HttpAnswer{200, "application/json", "{\"status\":\"ok\"}"};
        if (request.path == "/" && request.method != "POST")
            return HttpAnswer{200, "text/html", "<html><body>recogniser</body></html>\n"};
        if (request.path == m_options.inferencePath && request.method == "OPTIONS")
            return HttpAnswer{200, "text/plain", ""};
        if (request.path == m_options.inferencePath && request.method == "POST")
            return infer(request, connection);
        return HttpAnswer{404, "text/plain", "Not Found"};
    }

    std::optional<HttpAnswer> infer(const HttpRequest &request, HttpConnection &connection) {
        const std::string key = control("API_KEY");
        if (!key.empty() && request.header("authorization") != "Bearer " + key)
            return HttpAnswer{401, "application/json",
                              jsonObject(QStringLiteral("error"),
                                         QJsonObject{{QStringLiteral("message"),
                                                      QStringLiteral("Invalid API key")}})};
        const auto fields = multipartFields(request);
        const auto file = fields ? fields->find("file") : decltype(fields->end()){};
        const auto samples =
            fields && file != fields->end() ? samplesFromWav(file->second) : std::nullopt;
        if (!samples)
            return HttpAnswer{400, "text/plain", "Invalid request"};

        const std::lock_guard<std::mutex> oneAtATime(m_inference);
        const auto begun = Clock::now();
        std::printf("inference begins\n");
        std::fflush(stdout);
        const std::string mode = control("ANSWER");
        if (mode == "crash")
            std::raise(SIGKILL);
        const bool never = mode == "never";
        for (const auto until = begun + controlledDelay("ANSWER_DELAY_MS");
             never || Clock::now() < until;) {
            if (!connection.peerIsThere())
                return std::nullopt;
            std::this_thread::sleep_for(milliseconds(2));
        }
        if (mode == "garbage")
            return HttpAnswer{200, "application/json", "\x01{\"text\":\xff"};
        if (mode == "no-text")
            return HttpAnswer{200, "application/json", "{\"text\":5}"};
        const auto heard = transcript(*samples);
        if (!connection.peerIsThere())
            return std::nullopt;
        if (mode == "error" || !heard)
            return HttpAnswer{500, "application/json", "{\"error\":\"failed to process audio\"}"};
        const auto took = std::chrono::duration_cast<milliseconds>(Clock::now() - begun);
        std::printf("%zu ms of audio in %lld ms\n", samples->size() / 16,
                    static_cast<long long>(took.count()));
        std::fflush(stdout);
        const auto format = fields->find("response_format");
        if (format != fields->end() && format->second == "text")
            return HttpAnswer{200, "text/plain", *heard};
        return HttpAnswer{200, "application/json",
                          jsonObject(QStringLiteral("text"), QString::fromStdString(*heard))};
    }

    /// With the leading blank and the line break per segment that whisper-server's answers have.
    std::optional<std::string> transcript(const std::vector<std::int16_t> &samples) {
        if (samples.size() < shortestAudio)
            return std::string();
        std::optional<std::string> heard = control("TEXT");
        if (heard->empty())
            heard = m_recogniser->recognise(samples);
        if (!heard || heard->empty())
            return heard;
        return " " + *heard + "\n";
    }

    const Options m_options;
    std::unique_ptr<SphinxRecogniser> m_recogniser;
    std::mutex m_inference;
    std::atomic<int> m_connections = 0;
};

/// Nothing after an argument that whisper-server would not know either.
std::optional<Options> parse(int count, char **arguments) {
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::string name = arguments[i];
        if (name == "--no-timestamps" || name == "-nt" || name == "--vad")
            continue;
        if (i + 1 >= count)
            return std::nullopt;
        const std::string value = arguments[++i];
        if (name == "-m" || name == "--model")
            options.model = value;
        else if (name == "--host")
            options.host = value;
        else if (name == "--port")
            options.port = std::atoi(value.c_str());
        else if (name == "--inference-path")
            options.inferencePath = value;
        else if (name != "--vad-model" && name != "-vm" && name != "-l" && name != "--language" &&
                 name != "-t" && name != "--threads")
            return std::nullopt;
    }
    return options;
}

} // namespace
} // namespace quenda::desktop

int main(int argc, char **argv) {
    using namespace quenda::desktop;
    const auto options = parse(argc, argv);
    if (!options) {
        std::fprintf(stderr,
                     "usage: %s -m MODEL [--host HOST] [--port PORT] [--no-timestamps]\n"
                     "       [--vad --vad-model FILE] [--inference-path PATH]\n",
                     argv[0]);
        return 0; // as whisper-server does
    }
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(options->model, ignored)) {
        std::fprintf(stderr, "failed to open '%s'\n", options->model.c_str());
        return 3;
    }
    Server server(*options);
    if (!server.load()) {
        std::fprintf(stderr, "failed to load the model\n");
        return 3;
    }
    return server.run();
}
