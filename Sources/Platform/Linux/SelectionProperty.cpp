#include "Platform/Linux/SelectionProperty.h"

#include <QSet>

#include <algorithm>
#include <cstring>

namespace quenda {

namespace {
constexpr std::uint32_t kNoAtom = 0;
// Atoms in a list of targets that are looked at.
constexpr qsizetype kMaxListed = 4096;

std::uint32_t numberAt(const QByteArray &bytes, qsizetype index) {
    std::uint32_t number = 0;
    std::memcpy(&number, bytes.constData() + index * qsizetype(sizeof number), sizeof number);
    return number;
}
} // namespace

SliceOutcome addSlice(PropertyValue &value, const PropertySlice &slice, qsizetype limit) {
    if (slice.type == kNoAtom)
        return SliceOutcome::Void;
    const bool first = value.type == kNoAtom;
    if (!first &&
        (slice.type != value.type || slice.format != value.format || slice.bytes.isEmpty()))
        return SliceOutcome::Void;
    value.type = slice.type;
    value.format = slice.format;
    const qsizetype total = value.bytes.size() + slice.bytes.size() + qsizetype(slice.bytesAfter);
    if (total > limit) {
        value.bytes.clear();
        value.tooLarge = true;
        return SliceOutcome::TooLarge;
    }
    if (first && slice.bytesAfter > 0)
        value.bytes.reserve(total);
    value.bytes.append(slice.bytes);
    return slice.bytesAfter == 0 ? SliceOutcome::Whole : SliceOutcome::More;
}

qsizetype announcedBytes(const PropertyValue &announcement) {
    if (announcement.format != 32 || announcement.bytes.size() < qsizetype(sizeof(std::uint32_t)))
        return 0;
    return qsizetype(numberAt(announcement.bytes, 0));
}

ChunkOutcome addChunk(SelectionData &data, std::uint32_t &type, const PropertyValue &chunk) {
    if (chunk.tooLarge)
        return ChunkOutcome::Unsound;
    if (type == kNoAtom) {
        type = chunk.type;
        data.format = chunk.format;
    }
    if (chunk.bytes.isEmpty())
        return ChunkOutcome::Last;
    if (chunk.type != type || chunk.format != data.format)
        return ChunkOutcome::Unsound;
    data.bytes.append(chunk.bytes);
    return ChunkOutcome::Added;
}

std::vector<std::uint32_t> distinctAtoms(const QByteArray &list, std::size_t most) {
    const qsizetype count =
        std::min<qsizetype>(list.size() / qsizetype(sizeof(std::uint32_t)), kMaxListed);
    std::vector<std::uint32_t> atoms;
    QSet<std::uint32_t> seen;
    for (qsizetype i = 0; i < count && atoms.size() < most; ++i) {
        const std::uint32_t atom = numberAt(list, i);
        if (atom == kNoAtom || seen.contains(atom))
            continue;
        seen.insert(atom);
        atoms.push_back(atom);
    }
    return atoms;
}

} // namespace quenda
