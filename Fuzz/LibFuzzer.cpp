// Hands libFuzzer the one target that is linked into the program.
#include "FuzzTarget.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int *, char ***);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    quenda::fuzz::prepare();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    quenda::fuzz::targets()->body(QByteArrayView(data, qsizetype(size)));
    return 0;
}
