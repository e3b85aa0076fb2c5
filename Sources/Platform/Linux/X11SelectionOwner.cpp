// X11SelectionOwner
