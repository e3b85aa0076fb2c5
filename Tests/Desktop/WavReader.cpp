#include "WavReader.h"

#include <cstddef>

namespace quenda::desktop {
namespace {

constexpr std::size_t chunkHeaderSize = 8;
constexpr std::size_t formatSize = 16;
constexpr std::uint32_t pcm = 1;
constexpr std::uint32_t sampleRate = 16000;

/// Little-endian number of `width` bytes at `offset`; the caller has checked that they are there.
std::uint32_t number(std::string_view bytes, std::size_t offset, int width) {
    std::uint32_t value = 0;
    for (int i = width - 1; i >= 0; --i)
        value = value << 8 | static_cast<unsigned char>(bytes[offset + static_cast<unsigned>(i)]);
    return value;
}

bool isSupportedFormat(std::string_view format) {
    return format.size() >= formatSize && number(format, 0, 2) == pcm &&
           number(format, 2, 2) == 1 && number(format, 4, 4) == sampleRate &&
           number(format, 12, 2) == 2 && number(format, 14, 2) == 16;
}

} // namespace

std::optional<std::vector<std::int16_t>> samplesFromWav(std::string_view file) {
    if (file.size() < 12 || file.substr(0, 4) != "RIFF" || file.substr(8, 4) != "WAVE")
        return std::nullopt;
    bool formatSeen = false;
    std::size_t at = 12;
    while (file.size() - at >= chunkHeaderSize) {
        const std::string_view name = file.substr(at, 4);
        const std::size_t size = number(file, at + 4, 4);
        at += chunkHeaderSize;
        if (size > file.size() - at)
            return std::nullopt;
        const std::string_view content = file.substr(at, size);
        if (name == "fmt ") {
            if (!isSupportedFormat(content))
                return std::nullopt;
            formatSeen = true;
        } else if (name == "data") {
            if (!formatSeen || size % 2 != 0)
                return std::nullopt;
            std::vector<std::int16_t> samples(size / 2);
            for (std::size_t i = 0; i < samples.size(); ++i)
                samples[i] = static_cast<std::int16_t>(number(content, 2 * i, 2));
            return samples;
        }
        at += size + size % 2; // chunks are padded to an even length
        if (at > file.size())
            break;
    }
    return std::nullopt;
}

} // namespace quenda::desktop
