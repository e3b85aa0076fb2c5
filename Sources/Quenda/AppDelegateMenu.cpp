// AppDelegateMenu
