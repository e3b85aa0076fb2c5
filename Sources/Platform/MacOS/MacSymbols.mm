#include "Platform/MacOS/MacSymbols.h"

#include "Platform/MacOS/CFOwner.h"

#import <AppKit/AppKit.h>

#include <algorithm>

namespace quenda::mac {

std::optional<SymbolBitmap> systemSymbol(const std::string &name, const SymbolColor &color,
                                         int pixels) {
    if (pixels <= 0)
        return std::nullopt;
    @autoreleasepool {
        NSString *symbolName = [NSString stringWithUTF8String:name.c_str()];
        if (symbolName == nil)
            return std::nullopt;
        NSImage *plain = [NSImage imageWithSystemSymbolName:symbolName
                                   accessibilityDescription:@"Quenda"];
        if (plain == nil)
            return std::nullopt;
        NSImageSymbolConfiguration *configuration =
            [NSImageSymbolConfiguration configurationWithPointSize:pixels * 0.8
                                                            weight:NSFontWeightSemibold];
        NSImage *configured = [plain imageWithSymbolConfiguration:configuration];
        NSImage *image = configured != nil ? configured : plain;

        SymbolBitmap bitmap;
        bitmap.size = pixels;
        const auto side = static_cast<std::size_t>(pixels);
        bitmap.pixels.assign(side * side * 4, 0);
        const CFOwner<CGColorSpaceRef> space(CGColorSpaceCreateWithName(kCGColorSpaceSRGB));
        const CFOwner<CGContextRef> context(
            CGBitmapContextCreate(bitmap.pixels.data(), side, side, 8, side * 4, space.get(),
                                  static_cast<CGBitmapInfo>(kCGImageAlphaPremultipliedLast)));
        if (!context)
            return std::nullopt;

        const CGFloat scale =
            std::min<CGFloat>(1.0, pixels / std::max(image.size.width, image.size.height));
        const CGFloat width = image.size.width * scale;
        const CGFloat height = image.size.height * scale;
        const NSRect frame = NSMakeRect((pixels - width) / 2, (pixels - height) / 2, width, height);
        NSGraphicsContext *graphics = [NSGraphicsContext graphicsContextWithCGContext:context.get()
                                                                              flipped:NO];
        [NSGraphicsContext saveGraphicsState];
        NSGraphicsContext.currentContext = graphics;
        [image drawInRect:frame
                 fromRect:NSZeroRect
                operation:NSCompositingOperationSourceOver
                 fraction:1.0];
        // A template: its shape in our colour.
        [[NSColor colorWithSRGBRed:color.red green:color.green blue:color.blue
                             alpha:color.alpha] set];
        NSRectFillUsingOperation(NSMakeRect(0, 0, pixels, pixels), NSCompositingOperationSourceIn);
        [NSGraphicsContext restoreGraphicsState];
        return bitmap;
    }
}

} // namespace quenda::mac
