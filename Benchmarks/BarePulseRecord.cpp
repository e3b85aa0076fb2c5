// The yardstick for "key press to first recorded sample": how long a record stream that does
// nothing else takes from its creation, on a connection that stands, to its first sample.
//   bare-pulse-record [RUNS] [MILLISECONDS]
// Prints one time in milliseconds a line, for RUNS (20) streams on the default source, each asked
// for fragments of MILLISECONDS (10). Exits with 1 where the server fails.

#include <pulse/pulseaudio.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

bool iterate(pa_mainloop *loop) {
    return pa_mainloop_iterate(loop, 1, nullptr) >= 0;
}

bool isConnected(pa_mainloop *loop, pa_context *context) {
    while (PA_CONTEXT_IS_GOOD(pa_context_get_state(context))) {
        if (pa_context_get_state(context) == PA_CONTEXT_READY)
            return true;
        if (!iterate(loop))
            return false;
    }
    return false;
}

/// Milliseconds to the first sample; negative where the stream failed.
double timeToFirstSample(pa_mainloop *loop, pa_context *context, unsigned fragment) {
    const pa_sample_spec sampleFormat{PA_SAMPLE_FLOAT32NE, 48000, 2};
    pa_buffer_attr attributes;
    attributes.maxlength = attributes.tlength = attributes.prebuf = attributes.minreq =
        uint32_t(-1);
    attributes.fragsize = uint32_t(pa_usec_to_bytes(fragment * PA_USEC_PER_MSEC, &sampleFormat));

    const auto start = Clock::now();
    pa_stream *const stream = pa_stream_new(context, "bare", &sampleFormat, nullptr);
    pa_stream_connect_record(stream, nullptr, &attributes, PA_STREAM_ADJUST_LATENCY);
    double result = -1;
    while (PA_STREAM_IS_GOOD(pa_stream_get_state(stream))) {
        const size_t readable = pa_stream_readable_size(stream);
        if (readable > 0 && readable != size_t(-1)) {
            result = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
            break;
        }
        if (!iterate(loop))
            break;
    }
    pa_stream_disconnect(stream);
    while (PA_STREAM_IS_GOOD(pa_stream_get_state(stream)) && iterate(loop)) {
    }
    pa_stream_unref(stream);
    return result;
}

} // namespace

int main(int argc, char **argv) {
    const int runs = argc > 1 ? std::atoi(argv[1]) : 20;
    const unsigned fragment = argc > 2 ? unsigned(std::atoi(argv[2])) : 10;
    pa_mainloop *const loop = pa_mainloop_new();
    pa_context *const context = pa_context_new(pa_mainloop_get_api(loop), "bare-pulse-record");
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0 ||
        !isConnected(loop, context)) {
        std::fprintf(stderr, "no sound server: %s\n", pa_strerror(pa_context_errno(context)));
        return 1;
    }
    for (int run = 0; run < runs; ++run) {
        const double milliseconds = timeToFirstSample(loop, context, fragment);
        if (milliseconds < 0) {
            std::fprintf(stderr, "no recording: %s\n", pa_strerror(pa_context_errno(context)));
            return 1;
        }
        std::printf("%.2f\n", milliseconds);
        // So that no run begins in step with the source's own period.
        std::this_thread::sleep_for(std::chrono::milliseconds(50 + 7 * run % 10));
    }
    pa_context_disconnect(context);
    pa_context_unref(context);
    pa_mainloop_free(loop);
    return 0;
}
