// AppDelegateDictation
