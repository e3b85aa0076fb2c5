#include "Quenda/AudioRecorder.h"
