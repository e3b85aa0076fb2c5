// X11SelectionReader
