#include "Quenda/Config.h"
