// X11Accessibility
