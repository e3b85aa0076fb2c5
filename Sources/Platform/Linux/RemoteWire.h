#pragma once
// The names by which the running program and its callers know each other on the session bus; as in
// Resources/dbus/org.quenda.Quenda.xml.

#include "Platform/RemoteControl.h"

#include <array>

namespace quenda::wire {

inline constexpr char kService[] = "org.quenda.Quenda";
inline constexpr char kPath[] = "/org/quenda/Quenda";
inline constexpr char kInterface[] = "org.quenda.Quenda";
inline constexpr char kRefused[] = "org.quenda.Quenda.Error.Refused";

struct Method {
    const char *name;
    RemoteCommand command;
};

inline constexpr std::array kMethods{
    Method{"Start", RemoteCommand::Start},
    Method{"Stop", RemoteCommand::Stop},
    Method{"Toggle", RemoteCommand::Toggle},
    Method{"Cancel", RemoteCommand::Cancel},
    Method{"Retry", RemoteCommand::Retry},
    Method{"Status", RemoteCommand::Status},
    Method{"History", RemoteCommand::History},
    Method{"CopyHistory", RemoteCommand::CopyHistory},
    Method{"ShowSettings", RemoteCommand::ShowSettings},
    Method{"ShowWelcome", RemoteCommand::ShowWelcome},
    Method{"ShowAbout", RemoteCommand::ShowAbout},
    Method{"Quit", RemoteCommand::Quit},
};

} // namespace quenda::wire
