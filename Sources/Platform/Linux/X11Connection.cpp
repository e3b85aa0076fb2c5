// X11Connection
