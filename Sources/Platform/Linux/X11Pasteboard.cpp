// X11Pasteboard
