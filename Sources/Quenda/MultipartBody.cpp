#include "Quenda/MultipartBody.h"
