// RecordingIndicator
