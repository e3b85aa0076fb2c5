#include "Quenda/ConfigStore.h"
