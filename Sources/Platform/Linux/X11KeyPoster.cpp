// X11KeyPoster
