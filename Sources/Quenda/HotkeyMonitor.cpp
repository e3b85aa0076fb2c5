#include "Quenda/HotkeyMonitor.h"
