// X11KeyTap
