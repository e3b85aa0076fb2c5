#include "Platform/Folders.h"

#include <utility>

namespace quenda {

namespace {
// Never destroyed: what is logged while static objects go still needs the log's folder.
Folders &installed() {
    static Folders &folders = *new Folders;
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
