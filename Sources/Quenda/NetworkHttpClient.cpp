#include "Quenda/HttpClient.h"
