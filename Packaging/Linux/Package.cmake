# The Debian package, made by `cpack` (scripts/package does all of it). It has no maintainer scripts:
# what icon caches and the like need is done by the triggers of the packages they belong to.

set(release 1) # of the package; the changelog has to agree
file(STRINGS ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog newest LIMIT_COUNT 1)
if(NOT newest MATCHES "^quenda \\(${PROJECT_VERSION}-${release}\\) ")
    message(FATAL_ERROR "Packaging/Linux/debian/changelog does not begin with ${PROJECT_VERSION}-${release}")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quenda)
set(CPACK_PACKAGE_VENDOR "Quenda team")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_HOMEPAGE_URL "https://${QUENDA_SITE_HOST}/")
set(CPACK_PACKAGE_CHECKSUM SHA256)
# As if installed into the system itself, whatever the prefix of the build is.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${release})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Quenda team <team@quenda.example>")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "dictation into any application by holding a key")
set(engine "which is not part of this package,")
if(QUENDA_ENGINE_FILES MATCHES whisper-server)
    set(engine "which comes with this package,")
endif()
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Quenda sits in the status area and waits for one modifier key. Hold the key,
speak, let go: what was said is recognised and pasted into the application
that has the keyboard focus.

The recognition runs on this machine, by the server program of whisper.cpp,
${engine} or at an OpenAI-compatible service of the
user's choice.

Quenda needs an X11 session, and PulseAudio or PipeWire in its place.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# pkill ends engines that an earlier run left behind.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "procps")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pulseaudio | pipewire-pulse, ca-certificates, xdg-utils")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# What only Debian wants, or wants elsewhere.
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/finish-deb.cmake)
set(CPACK_QUENDA_STRIP ${CMAKE_STRIP})
set(CPACK_QUENDA_RESOURCE_DIR ${QUENDA_RESOURCE_DIR})
set(CPACK_QUENDA_DEBIAN ${CMAKE_CURRENT_SOURCE_DIR}/debian)
set(CPACK_QUENDA_ZSH_COMPLETION_DIR ${QUENDA_ZSH_COMPLETION_DIR})
include(CPack)
