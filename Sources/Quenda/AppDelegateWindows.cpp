// AppDelegateWindows
