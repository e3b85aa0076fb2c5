#include "Platform/MacOS/MacLoginItem.h"

#import <ServiceManagement/ServiceManagement.h>

namespace quenda::mac {

bool isLoginItemEnabled() {
    return SMAppService.mainAppService.status == SMAppServiceStatusEnabled;
}

bool setLoginItemEnabled(bool enabled) {
    SMAppService *service = SMAppService.mainAppService;
    NSError *error = nil;
    if (enabled)
        return [service registerAndReturnError:&error];
    return [service unregisterAndReturnError:&error];
}

} // namespace quenda::mac
