#include "Platform/MacOS/MacSession.h"

#import <AppKit/AppKit.h>
#import <dispatch/dispatch.h>

#include <csignal>
#include <cstdint>
#include <utility>
#include <vector>

namespace quenda::mac {

struct SignalSources::State {
    std::vector<dispatch_source_t> sources;
};

SignalSources::SignalSources(std::function<void()> handler) : m_state(std::make_unique<State>()) {
    for (const int number : {SIGTERM, SIGINT}) {
        std::signal(number, SIG_IGN); // only the source reacts from now on
        dispatch_source_t source =
            dispatch_source_create(DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(number), 0,
                                   dispatch_get_main_queue());
        dispatch_source_set_event_handler(source, ^{
          if (handler)
              handler();
        });
        dispatch_resume(source);
        m_state->sources.push_back(source);
    }
}

SignalSources::~SignalSources() {
    for (dispatch_source_t source : m_state->sources)
        dispatch_source_cancel(source);
}

struct WakeObserver::State {
    id<NSObject> token = nil;
};

WakeObserver::WakeObserver(std::function<void()> handler) : m_state(std::make_unique<State>()) {
    NSNotificationCenter *center = NSWorkspace.sharedWorkspace.notificationCenter;
    m_state->token = [center addObserverForName:NSWorkspaceDidWakeNotification
                                         object:nil
                                          queue:NSOperationQueue.mainQueue
                                     usingBlock:^(NSNotification *) {
                                       if (handler)
                                           handler();
                                     }];
}

WakeObserver::~WakeObserver() {
    [NSWorkspace.sharedWorkspace.notificationCenter removeObserver:m_state->token];
}

} // namespace quenda::mac
