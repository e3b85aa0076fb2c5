#include "Platform/MacOS/MacPanel.h"

#import <AppKit/AppKit.h>

namespace quenda::mac {

namespace {
constexpr NSInteger kStatusWindowLevel = 25;
}

void makeFloatingPanel(void *nativeView) {
    if (nativeView == nullptr)
        return;
    NSView *view = (__bridge NSView *)nativeView;
    NSWindow *window = view.window;
    window.level = kStatusWindowLevel;
    window.collectionBehavior =
        NSWindowCollectionBehaviorCanJoinAllSpaces | NSWindowCollectionBehaviorFullScreenAuxiliary;
    window.releasedWhenClosed = NO;
    window.hidesOnDeactivate = NO;
    window.ignoresMouseEvents = NO;
    window.hasShadow = YES;
    // Qt's tool windows are panels; as non-activating ones they take clicks without taking focus.
    if ([window isKindOfClass:NSPanel.class]) {
        NSPanel *panel = static_cast<NSPanel *>(window);
        panel.styleMask |= NSWindowStyleMaskNonactivatingPanel;
        panel.becomesKeyOnlyIfNeeded = YES;
        panel.floatingPanel = YES;
        panel.level = kStatusWindowLevel; // floatingPanel sets a level of its own
    }
}

} // namespace quenda::mac
