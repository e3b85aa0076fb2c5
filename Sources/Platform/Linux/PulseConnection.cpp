// PulseConnection
