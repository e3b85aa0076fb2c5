// PulseMicrophonePermission
