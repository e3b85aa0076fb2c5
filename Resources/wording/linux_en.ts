<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<!-- What Linux calls things: only the texts that name a key, a place or a command of another system.
     Tests/wording_test.py tells when one is missing. -->
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>HotkeyChoice</name>
    <message>
        <source>Right Option (⌥)</source>
        <translation>Right Alt</translation>
    </message>
    <message>
        <source>Right Command (⌘)</source>
        <translation>Right Super</translation>
    </message>
    <message>
        <source>Right Control (⌃)</source>
        <translation>Right Ctrl</translation>
    </message>
    <message>
        <source>Fn / Globe (🌐)</source>
        <translation>Fn / Wake Up</translation>
    </message>
</context>
<context>
    <name>quenda::AboutView</name>
    <message>
        <source>Fast, private dictation for your Mac.
Hold a key, speak, and your words appear —
no audio leaves your machine.</source>
        <translation>Fast, private dictation for your desktop.
Hold a key, speak, and your words appear —
no audio leaves your machine.</translation>
    </message>
</context>
<context>
    <name>quenda::AppDelegate</name>
    <message>
        <source>Cancelled — Mac went to sleep</source>
        <translation>Cancelled — the computer went to sleep</translation>
    </message>
    <message>
        <source>The microphone is delivering pure silence, which usually means macOS revoked Quenda's Microphone permission after an update. Toggle Quenda off and on in System Settings → Privacy &amp; Security → Microphone, then try again.</source>
        <translation>The microphone is delivering pure silence, which usually means that it is muted or that another one should be chosen. Check the input device and its volume in the sound settings, then try again.</translation>
    </message>
    <message>
        <source>Accessibility permission needs a reset</source>
        <translation>Quenda cannot watch the keyboard</translation>
    </message>
    <message>
        <source>If Quenda already shows as enabled in System Settings → Privacy &amp; Security → Accessibility, that entry belongs to an older build. Select Quenda in the list, remove it with the − button, then relaunch Quenda and enable the fresh entry it creates.</source>
        <translation>The dictation key needs an X server that offers the extensions XInput 2 and XTEST. Log in to an X11 session that has them, then relaunch Quenda.</translation>
    </message>
    <message>
        <source>Quenda could not create its keyboard listener. Make sure it is enabled in System Settings → Privacy &amp; Security → Accessibility, then relaunch.</source>
        <translation>Quenda could not create its keyboard listener. Make sure that the X server offers the extension XInput 2, then relaunch.</translation>
    </message>
</context>
<context>
    <name>quenda::DictationSection</name>
    <message>
        <source>Tip: set System Settings → Keyboard → “Press 🌐 key to” = Do Nothing, or macOS will also trigger its own action.</source>
        <translation>Tip: many keyboards keep their Fn key to themselves. If nothing happens when you press it, choose another dictation key.</translation>
    </message>
</context>
<context>
    <name>quenda::PermissionsSection</name>
    <message>
        <source>“Fix” clears the stuck permission, relaunches Quenda, and asks macOS again automatically — even when Quenda is missing from the System Settings list. If macOS still refuses to ask, the right Settings pane opens by itself.</source>
        <translation>“Fix” relaunches Quenda and asks for the permission again. If it is still missing then, the desktop’s own settings open where there are such.</translation>
    </message>
</context>
<context>
    <name>quenda::TranscriptionSection</name>
    <message>
        <source>Everything runs on this Mac — no audio or text ever leaves the machine.</source>
        <translation>Everything runs on this computer — no audio or text ever leaves the machine.</translation>
    </message>
</context>
<context>
    <name>quenda::WelcomeView</name>
    <message>
        <source>Then click into any text field, &lt;b&gt;hold Right-Option (⌥)&lt;/b&gt;, and speak.</source>
        <translation>Then click into any text field, &lt;b&gt;hold Right Alt&lt;/b&gt;, and speak.</translation>
    </message>
</context>
<context>
    <name>quenda::WhisperEngine</name>
    <message>
        <source>whisper-server not found. Reinstall Quenda or run: brew install whisper-cpp</source>
        <translation>whisper-server not found. Build whisper.cpp, then name its whisper-server in Settings under “whisper-server path”.</translation>
    </message>
    <message>
        <source>whisper-server keeps crashing — see ~/Library/Logs/Quenda/whisper-server.log</source>
        <translation>whisper-server keeps crashing — see ~/.local/state/Quenda/whisper-server.log</translation>
    </message>
</context>
</TS>
