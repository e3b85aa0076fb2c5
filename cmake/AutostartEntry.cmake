# AutostartEntry.h in the present folder of the build: what "launch at login" writes, the same text
# as that of the installed example.
set(QUENDA_AUTOSTART_EXEC "%1")
configure_file(${PROJECT_SOURCE_DIR}/Packaging/Linux/autostart.desktop.in autostart.desktop @ONLY)
file(READ ${CMAKE_CURRENT_BINARY_DIR}/autostart.desktop QUENDA_AUTOSTART_ENTRY)
configure_file(${PROJECT_SOURCE_DIR}/Sources/Platform/Linux/AutostartEntry.h.in AutostartEntry.h
    @ONLY)
