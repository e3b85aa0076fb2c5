// What another program hands over as its selection: the property in slices, contents in chunks,
// the list of targets. The reader is driven as a server would drive it, which may change its mind.
#include "FuzzTarget.h"
#include "Input.h"
#include "Platform/Linux/SelectionProperty.h"

#include <algorithm>
#include <optional>

namespace {

using quenda::ChunkOutcome;
using quenda::PropertyValue;
using quenda::SelectionData;
using quenda::SliceOutcome;

constexpr int kFormats[] = {8, 16, 32, 8};

// One property in slices: each a byte of flags, a length and the bytes.
PropertyValue readProperty(quenda::fuzz::Input &input, qsizetype limit) {
    PropertyValue value;
    QByteArray given;
    for (;;) {
        const unsigned flags = input.byte();
        const QByteArrayView bytes = input.take(qsizetype(input.byte()));
        const bool more = (flags & 1) && !input.atEnd();
        // Type 0 is a property that is gone; the sizes that are still to come may be a lie.
        const std::uint32_t after = !more ? 0 : (flags & 2) ? 0xFFFFFFFFU : 1 + (flags >> 6);
        const int format = kFormats[(flags >> 2) % 4];
        const std::uint32_t type = (flags >> 4) % 4;
        const PropertyValue before = value;
        const SliceOutcome outcome = quenda::addSlice(value, {type, format, bytes, after}, limit);
        PROMISE(value.bytes.size() <= limit);
        switch (outcome) {
        case SliceOutcome::Void:
            PROMISE(type == 0 || (before.type != 0 && (type != before.type || bytes.isEmpty() ||
                                                       format != before.format)));
            return {};
        case SliceOutcome::TooLarge:
            PROMISE(value.tooLarge && value.bytes.isEmpty());
            PROMISE(given.size() + bytes.size() + qsizetype(after) > limit);
            return value;
        case SliceOutcome::More:
        case SliceOutcome::Whole:
            given += bytes;
            PROMISE((outcome == SliceOutcome::More) == (after > 0));
            PROMISE(value.bytes == given && value.type == type && value.format == format);
            if (outcome == SliceOutcome::Whole)
                return value;
        }
    }
}

// Contents in chunks, until the owner ends them, contradicts itself, or goes away.
void readChunks(quenda::fuzz::Input &input, qsizetype limit) {
    SelectionData data;
    std::uint32_t type = 0;
    QByteArray given;
    std::optional<PropertyValue> first;
    while (!input.atEnd()) {
        const PropertyValue chunk = readProperty(input, limit - data.bytes.size());
        if (chunk.type == 0)
            continue;
        const ChunkOutcome outcome = quenda::addChunk(data, type, chunk);
        if (!first)
            first = chunk;
        const bool alike = chunk.type == first->type && chunk.format == first->format;
        if (chunk.tooLarge || (!alike && !chunk.bytes.isEmpty()))
            PROMISE(outcome == ChunkOutcome::Unsound);
        else
            PROMISE((outcome == ChunkOutcome::Last) == chunk.bytes.isEmpty());
        if (outcome == ChunkOutcome::Added)
            given += chunk.bytes;
        PROMISE(data.bytes == given && data.bytes.size() <= limit);
        if (outcome != ChunkOutcome::Added)
            return;
        PROMISE(type == first->type && data.format == first->format);
    }
}

void listTargets(const QByteArray &list, std::size_t most) {
    std::vector<std::uint32_t> atoms = quenda::distinctAtoms(list, most);
    PROMISE(atoms.size() <= most && atoms.size() <= std::size_t(list.size()) / 4);
    qsizetype at = 0;
    for (const std::uint32_t atom : atoms) { // each is listed, in the owner's order
        PROMISE(atom != 0);
        const QByteArray bytes(reinterpret_cast<const char *>(&atom), sizeof atom);
        while (at + 4 <= list.size() && list.mid(at, 4) != bytes)
            at += 4;
        PROMISE(at + 4 <= list.size());
    }
    std::sort(atoms.begin(), atoms.end());
    PROMISE(std::adjacent_find(atoms.begin(), atoms.end()) == atoms.end());
}

} // namespace

// By the first byte: "t" and a list of targets, "a" and an announcement, else chunks.
QUENDA_FUZZ_TARGET(clipboard) {
    quenda::fuzz::Input parts(input);
    switch (parts.byte()) {
    case 't':
        listTargets(parts.rest(), 16);
        break;
    case 'a': {
        const PropertyValue value = readProperty(parts, 1000);
        const qsizetype announced = quenda::announcedBytes(value);
        PROMISE(announced >= 0 && announced <= qsizetype(0xFFFFFFFFU));
        PROMISE(announced == 0 || (value.format == 32 && value.bytes.size() >= 4));
        break;
    }
    default:
        readChunks(parts, qsizetype(parts.byte()) * 8);
    }
}
