#include "Platform/MacOS/MacSounds.h"

#import <AppKit/AppKit.h>

namespace quenda::mac {

void playSound(const std::string &name) {
    @autoreleasepool {
        NSString *soundName = [NSString stringWithUTF8String:name.c_str()];
        if (soundName != nil)
            [[NSSound soundNamed:soundName] play];
    }
}

void beep() {
    NSBeep();
}

} // namespace quenda::mac
