#pragma once

// Whether a desktop session can be reached: the platform Qt would use, and for
// X11 and Wayland a connection to the display's socket. Without one the program
// runs headless instead of failing at the first window.
bool DisplayAvailable();
