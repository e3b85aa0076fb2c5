#pragma once
// What other programs put into the properties that selections travel in, read without trusting it.
// Pure; any thread. Atoms are the X server's numbers, 0 for none.

#include "Platform/Linux/SelectionContents.h"

#include <QByteArray>
#include <QByteArrayView>

#include <cstdint>
#include <vector>

namespace quenda {

struct PropertyValue {
    std::uint32_t type = 0; ///< 0: there is no such property, or it could not be read
    int format = 8;
    QByteArray bytes;
    bool tooLarge = false; ///< it has more bytes than asked for; `bytes` is empty
};

/// A piece of a property, as the server gives it.
struct PropertySlice {
    std::uint32_t type = 0;
    int format = 0;
    QByteArrayView bytes;
    std::uint32_t bytesAfter = 0; ///< of the property, after this piece
};

enum class SliceOutcome { Whole, More, TooLarge, Void };

/// Adds the next piece to `value`, which takes at most `limit` bytes in all. Void: there is no
/// property, or another writer has changed it since the piece before.
SliceOutcome addSlice(PropertyValue &value, const PropertySlice &slice, qsizetype limit);

/// The least size of the contents that an INCR property announces; 0 where it says nothing usable.
qsizetype announcedBytes(const PropertyValue &announcement);

enum class ChunkOutcome { Added, Last, Unsound };

/// Adds a chunk to contents that come in several; `type` is that of the chunks so far, 0 before the
/// first. An empty chunk is the last one. Unsound: it is too large or of another kind than those
/// before; nothing is added.
ChunkOutcome addChunk(SelectionData &data, std::uint32_t &type, const PropertyValue &chunk);

/// The first `most` different atoms of a list of targets.
std::vector<std::uint32_t> distinctAtoms(const QByteArray &list, std::size_t most);

} // namespace quenda
