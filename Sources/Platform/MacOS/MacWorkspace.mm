#include "Platform/MacOS/MacWorkspace.h"

#include "Platform/MacOS/ChildSignals.h"

#import <AppKit/AppKit.h>

namespace quenda::mac {

namespace {

NSString *nativeString(const std::string &text) {
    NSString *string = [NSString stringWithUTF8String:text.c_str()];
    return string != nil ? string : @"";
}

NSTask *launchedTask(const std::string &executable, const std::vector<std::string> &arguments) {
    NSMutableArray<NSString *> *list = [NSMutableArray array];
    for (const std::string &argument : arguments)
        [list addObject:nativeString(argument)];
    NSTask *task = [[NSTask alloc] init];
    task.executableURL = [NSURL fileURLWithPath:nativeString(executable)];
    task.arguments = list;
    NSError *error = nil;
    const ChildSignals signals;
    return [task launchAndReturnError:&error] ? task : nil;
}

} // namespace

void setActivationPolicyAccessory() {
    [NSApplication.sharedApplication setActivationPolicy:NSApplicationActivationPolicyAccessory];
}

void activateProgram() {
    [NSApplication.sharedApplication activateIgnoringOtherApps:YES];
}

bool openUrl(const std::string &url) {
    @autoreleasepool {
        NSURL *address = [NSURL URLWithString:nativeString(url)];
        return address != nil && [NSWorkspace.sharedWorkspace openURL:address];
    }
}

bool runAndWait(const std::string &executable, const std::vector<std::string> &arguments) {
    @autoreleasepool {
        NSTask *task = launchedTask(executable, arguments);
        [task waitUntilExit];
        return task != nil;
    }
}

bool runDetached(const std::string &executable, const std::vector<std::string> &arguments) {
    @autoreleasepool {
        return launchedTask(executable, arguments) != nil;
    }
}

std::string relaunchCommand(const std::string &bundlePath) {
    return "sleep 0.7; /usr/bin/open \"" + bundlePath + "\"";
}

} // namespace quenda::mac
