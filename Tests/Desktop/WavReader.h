#pragma once
// Reads the WAV files that the recogniser is sent. The bytes come from outside: every length is
// checked against what is there before it is used. No state; any thread.

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace quenda::desktop {

/// The samples of a RIFF/WAVE file that holds 16-bit PCM, mono, at 16,000 samples per second (what
/// the recogniser's model was trained on); nothing for any other content, a missing chunk or a
/// length that reaches past the end of the file.
std::optional<std::vector<std::int16_t>> samplesFromWav(std::string_view file);

} // namespace quenda::desktop
