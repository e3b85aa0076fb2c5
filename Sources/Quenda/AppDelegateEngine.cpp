// AppDelegateEngine
