#include "Quenda/TextInjector.h"
