// AppDelegate
