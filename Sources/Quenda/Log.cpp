#include "Quenda/Log.h"
