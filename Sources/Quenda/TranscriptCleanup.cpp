#include "Quenda/WhisperEngine.h"
