#include "Platform/MacOS/MacPasteboard.h"

#import <AppKit/AppKit.h>

namespace quenda::mac {

namespace {

std::string plainString(NSString *text) {
    const char *bytes = text.UTF8String;
    return bytes ? std::string(bytes) : std::string();
}

// Null where `text` is not UTF-8.
NSString *nativeString(const std::string &text) {
    return [[NSString alloc] initWithBytes:text.data()
                                    length:text.size()
                                  encoding:NSUTF8StringEncoding];
}

} // namespace

NativePasteboardItems readGeneralPasteboard() {
    NativePasteboardItems items;
    @autoreleasepool {
        NSArray<NSPasteboardItem *> *sources = NSPasteboard.generalPasteboard.pasteboardItems;
        for (NSPasteboardItem *source in sources) {
            NativePasteboardItem item;
            for (NSPasteboardType type in source.types) {
                NSData *data = [source dataForType:type];
                if (data == nil)
                    continue;
                const auto *bytes = static_cast<const std::uint8_t *>(data.bytes);
                item.emplace_back(plainString(type),
                                  std::vector<std::uint8_t>(bytes, bytes + data.length));
            }
            items.push_back(std::move(item));
        }
    }
    return items;
}

void clearGeneralPasteboard() {
    [NSPasteboard.generalPasteboard clearContents];
}

bool writeGeneralPasteboardString(const std::string &text) {
    @autoreleasepool {
        NSPasteboard *pasteboard = NSPasteboard.generalPasteboard;
        [pasteboard clearContents];
        NSString *string = nativeString(text);
        return string != nil && [pasteboard setString:string forType:NSPasteboardTypeString];
    }
}

bool writeGeneralPasteboardItems(const NativePasteboardItems &items) {
    @autoreleasepool {
        NSMutableArray<NSPasteboardItem *> *fresh = [NSMutableArray array];
        for (const NativePasteboardItem &item : items) {
            NSPasteboardItem *copy = [[NSPasteboardItem alloc] init];
            for (const auto &[type, bytes] : item) {
                NSString *name = nativeString(type);
                NSData *data = [NSData dataWithBytes:bytes.data() length:bytes.size()];
                if (name != nil)
                    [copy setData:data forType:name];
            }
            [fresh addObject:copy];
        }
        NSPasteboard *pasteboard = NSPasteboard.generalPasteboard;
        [pasteboard clearContents];
        return [pasteboard writeObjects:fresh];
    }
}

std::int64_t generalPasteboardChangeCount() {
    return NSPasteboard.generalPasteboard.changeCount;
}

} // namespace quenda::mac
