#include "Platform/Folders.h"

#include <utility>

namespace quenda {

namespace {
Folders &installed() {
    static Folders folders;
    return folders;
}
} // namespace

const Folders &Folders::current() {
    return installed();
}

void Folders::install(Folders folders) {
    installed() = std::move(folders);
}

} // namespace quenda
