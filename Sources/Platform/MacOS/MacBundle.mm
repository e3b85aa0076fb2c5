#include "Platform/MacOS/MacBundle.h"

#import <Foundation/Foundation.h>

namespace quenda::mac {

namespace {

std::optional<std::string> optionalString(NSString *text) {
    const char *bytes = text.UTF8String;
    if (bytes == nullptr)
        return std::nullopt;
    return std::string(bytes);
}

std::string userFolder(NSSearchPathDirectory directory) {
    NSURL *url = [NSFileManager.defaultManager URLsForDirectory:directory
                                                      inDomains:NSUserDomainMask]
                     .firstObject;
    return optionalString(url.path).value_or(std::string());
}

} // namespace

std::optional<std::string> bundleInfo(const std::string &key) {
    @autoreleasepool {
        NSString *name = [NSString stringWithUTF8String:key.c_str()];
        if (name == nil)
            return std::nullopt;
        NSObject *value = [NSBundle.mainBundle objectForInfoDictionaryKey:name];
        if (![value isKindOfClass:NSString.class])
            return std::nullopt;
        return optionalString(static_cast<NSString *>(value));
    }
}

std::optional<std::string> bundleIdentifier() {
    return optionalString(NSBundle.mainBundle.bundleIdentifier);
}

std::string bundlePath() {
    return optionalString(NSBundle.mainBundle.bundlePath).value_or(std::string());
}

std::optional<std::string> bundleResourcePath() {
    return optionalString(NSBundle.mainBundle.resourcePath);
}

std::string applicationSupportFolder() {
    @autoreleasepool {
        return userFolder(NSApplicationSupportDirectory);
    }
}

std::string libraryFolder() {
    @autoreleasepool {
        return userFolder(NSLibraryDirectory);
    }
}

} // namespace quenda::mac
