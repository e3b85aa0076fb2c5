#include "Platform/MacOS/MacProcess.h"

#include "Platform/MacOS/ChildSignals.h"

#import <Foundation/Foundation.h>
#import <dispatch/dispatch.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace quenda::mac {

struct MacProcess::State {
    NSTask *task = nil;
    std::function<void(int)> onExit;
    bool ended = false;
};

namespace {

NSString *nativeString(const std::string &text) {
    NSString *string = [NSString stringWithUTF8String:text.c_str()];
    return string != nil ? string : @"";
}

// Empty, and readable by the owner only from the first byte.
NSFileHandle *outputHandle(const std::string &path) {
    const int descriptor =
        path.empty() ? -1 : ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (descriptor < 0)
        return NSFileHandle.fileHandleWithNullDevice;
    ::fchmod(descriptor, 0600);
    return [[NSFileHandle alloc] initWithFileDescriptor:descriptor closeOnDealloc:YES];
}

} // namespace

MacProcess::MacProcess() : m_state(std::make_shared<State>()) {}

MacProcess::~MacProcess() {
    clearTerminationHandler();
    kill();
}

bool MacProcess::launch(const std::string &executable, const std::vector<std::string> &arguments,
                        const std::string &outputFile, std::function<void(int)> onExit,
                        std::string &failure) {
    @autoreleasepool {
        NSMutableArray<NSString *> *list = [NSMutableArray array];
        for (const std::string &argument : arguments)
            [list addObject:nativeString(argument)];
        NSTask *task = [[NSTask alloc] init];
        task.executableURL = [NSURL fileURLWithPath:nativeString(executable)];
        task.arguments = list;
        NSFileHandle *output = outputHandle(outputFile);
        task.standardInput = NSFileHandle.fileHandleWithNullDevice;
        task.standardOutput = output;
        task.standardError = output;
        m_state->onExit = std::move(onExit);
        const std::weak_ptr<State> weak = m_state;
        task.terminationHandler = ^(NSTask *ended) {
          const int status = ended.terminationStatus;
          dispatch_async(dispatch_get_main_queue(), ^{
            const std::shared_ptr<State> state = weak.lock();
            if (!state)
                return;
            state->ended = true;
            // It may start another child, or destroy this one.
            const std::function<void(int)> handler = std::exchange(state->onExit, nullptr);
            if (handler)
                handler(status);
          });
        };
        NSError *error = nil;
        const ChildSignals signals;
        if (![task launchAndReturnError:&error]) {
            m_state->onExit = nullptr;
            const char *words = error.localizedDescription.UTF8String;
            failure = words ? words : "";
            return false;
        }
        m_state->task = task;
        return true;
    }
}

std::int64_t MacProcess::processId() const {
    return m_state->task.processIdentifier;
}

bool MacProcess::isRunning() const {
    return m_state->task != nil && m_state->task.isRunning;
}

bool MacProcess::hasEnded() const {
    return m_state->ended;
}

void MacProcess::clearTerminationHandler() {
    m_state->onExit = nullptr;
}

void MacProcess::terminate() {
    if (isRunning())
        [m_state->task terminate];
}

void MacProcess::kill() {
    if (isRunning())
        ::kill(m_state->task.processIdentifier, SIGKILL);
}

} // namespace quenda::mac
