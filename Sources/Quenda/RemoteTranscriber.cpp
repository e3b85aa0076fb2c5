#include "Quenda/RemoteTranscriber.h"
