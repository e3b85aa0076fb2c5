#include "Platform/MacOS/MacPermissions.h"

#import <AVFoundation/AVFoundation.h>
#import <dispatch/dispatch.h>

namespace quenda::mac {

AuthorizationStatus MacMicrophonePermission::status() const {
    switch ([AVCaptureDevice authorizationStatusForMediaType:AVMediaTypeAudio]) {
    case AVAuthorizationStatusNotDetermined:
        return AuthorizationStatus::NotDetermined;
    case AVAuthorizationStatusRestricted:
        return AuthorizationStatus::Restricted;
    case AVAuthorizationStatusDenied:
        return AuthorizationStatus::Denied;
    case AVAuthorizationStatusAuthorized:
        return AuthorizationStatus::Authorized;
    }
    return AuthorizationStatus::Denied;
}

void MacMicrophonePermission::requestAccess(std::function<void(bool)> completion) {
    // The answer arrives on a queue of the system's own.
    [AVCaptureDevice requestAccessForMediaType:AVMediaTypeAudio
                             completionHandler:^(BOOL granted) {
                               const bool allowed = granted;
                               dispatch_async(dispatch_get_main_queue(), ^{
                                 if (completion)
                                     completion(allowed);
                               });
                             }];
}

} // namespace quenda::mac
