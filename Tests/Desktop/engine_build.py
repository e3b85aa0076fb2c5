"""whisper.cpp's sources as far as the build takes an interest in them, and a project that builds its
engine from them by cmake/Engine.cmake, as the real one does."""

import subprocess
from pathlib import Path

from virtual_desktop import REPOSITORY

# The program becomes another one, under its own name and with its own arguments.
_SERVER = """
#include <cstdio>
#include <unistd.h>

int main(int, char **argv) {
    execv(ENGINE_PROGRAM, argv);
    std::perror(ENGINE_PROGRAM);
    return 1;
}
"""
_SOURCES = """
cmake_minimum_required(VERSION 3.5)
project(engine CXX)
option(BUILD_SHARED_LIBS "" ON)
option(WHISPER_BUILD_EXAMPLES "" OFF)
if(BUILD_SHARED_LIBS OR NOT WHISPER_BUILD_EXAMPLES OR NOT CMAKE_BUILD_TYPE STREQUAL Release)
    message(FATAL_ERROR "not the build that was asked for")
endif()
# Nothing but the server is asked for.
add_custom_target(something-else ALL COMMAND ${CMAKE_COMMAND} -E false)
add_executable(whisper-server server.cpp)
target_compile_definitions(whisper-server PRIVATE ENGINE_PROGRAM="${ENGINE_PROGRAM}")
"""
_PROJECT = """
cmake_minimum_required(VERSION 3.25)
project(Quenda CXX)
include(GNUInstallDirs)
set(QUENDA_RESOURCE_DIR lib/quenda)
include({module})
"""


def make_sources(folder: Path) -> Path:
    """Writes the sources of an engine that becomes the program ENGINE_PROGRAM."""
    folder.mkdir(parents=True)
    (folder / "CMakeLists.txt").write_text(_SOURCES, encoding="utf-8")
    (folder / "server.cpp").write_text(_SERVER, encoding="utf-8")
    (folder / "LICENSE").write_text("The licence of the engine.\n", encoding="utf-8")
    return folder


class EngineProject:
    """A build folder of its own for the module."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.build = folder / "build"
        self.prefix = folder / "prefix"
        folder.mkdir(parents=True)
        (folder / "CMakeLists.txt").write_text(
            _PROJECT.format(module=REPOSITORY / "cmake" / "Engine.cmake"), encoding="utf-8")

    def _cmake(self, *arguments: str) -> "subprocess.CompletedProcess[str]":
        return subprocess.run(["cmake", *arguments], stdin=subprocess.DEVNULL, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120,
                              check=False)

    def configure(self, **options: object) -> "subprocess.CompletedProcess[str]":
        return self._cmake("-G", "Ninja", "-S", str(self.folder), "-B", str(self.build),
                           *(f"-D{name}={value}" for name, value in options.items()))

    def make(self) -> "subprocess.CompletedProcess[str]":
        return self._cmake("--build", str(self.build))

    def install(self, **options: object) -> Path:
        """All three steps, which have to succeed; the prefix."""
        for step in (lambda: self.configure(**options), self.make,
                     lambda: self._cmake("--install", str(self.build), "--prefix",
                                         str(self.prefix))):
            done = step()
            if done.returncode != 0:
                raise AssertionError(done.stdout)
        return self.prefix
