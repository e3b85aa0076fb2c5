// UpdateChecker
